// The corpus's .msg files: each opens, is copied, and is the same afterwards.
#include "msgstore/imsg/corpus_files.h"
#include "msgstore/imsg/element_names.h"
#include "msgstore/imsg/property_stream_format.h"
#include "msgstore/message/message_fixture.h"
#include "msgstore/props/little_endian.h"

namespace quorvane {
namespace {

TEST(CorpusTest, EveryMessageIsTheSameAfterACopyToANewStorage)
{
    for (const fs::path& path : CorpusFiles("msg")) {
        SCOPED_TRACE(path.filename());
        const auto storage = OpenFile(path);
        ASSERT_TRUE(storage);
        ComPtr<IMessage> message;
        ASSERT_EQ(OpenMessage(*storage, message), S_OK);
        MemoryFile file;
        ComPtr<IMessage> copy;
        ASSERT_EQ(OpenMessage(*file.storage, copy), S_OK);
        ASSERT_EQ(say::CopyAll(*message, *copy), S_OK);
        EXPECT_EQ(say::Differences(*message, *copy), std::vector<std::string>());
        ASSERT_EQ(copy->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
        copy.Reset();
        ASSERT_EQ(OpenMessage(*file.storage, copy), S_OK);
        EXPECT_EQ(say::Differences(*message, *copy), std::vector<std::string>());
    }
}

TEST(CorpusTest, EveryMessageIsTheSameAfterASaveInPlace)
{
    for (const fs::path& path : CorpusFiles("msg")) {
        SCOPED_TRACE(path.filename());
        const auto storage = OpenFile(path);
        ASSERT_TRUE(storage);
        ComPtr<IMessage> message;
        ASSERT_EQ(OpenMessage(*storage, message), S_OK);
        MemoryFile file;
        ASSERT_EQ(storage->CopyTo(0, nullptr, nullptr, file.storage.Get()), S_OK);
        ComPtr<IMessage> copy;
        ASSERT_EQ(OpenMessage(*file.storage, copy), S_OK);
        ASSERT_EQ(copy->SetReadFlag(CLEAR_READ_FLAG), S_OK);
        ASSERT_EQ(copy->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
        copy.Reset();
        ASSERT_EQ(OpenMessage(*file.storage, copy), S_OK);
        CompareOptions options;
        options.ignored.insert(PROP_ID(PR_MESSAGE_FLAGS));
        EXPECT_EQ(say::Differences(*message, *copy, options), std::vector<std::string>());
    }
}

// The tags that a storage's properties stream lists and whose values are there.
std::vector<ULONG> ListedTags(IStorage& storage, std::size_t header)
{
    std::vector<ULONG> tags;
    ComPtr<IStream> stream;
    const OleString name(kPropertiesName);
    EXPECT_EQ(storage.OpenStream(name.c_str(), nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, 0, stream.Put()),
              S_OK);
    std::vector<BYTE> list(1000000);
    ULONG size = 0;
    EXPECT_EQ(stream->Read(list.data(), static_cast<ULONG>(list.size()), &size), S_OK);
    for (std::size_t at = header; at + kEntrySize <= size; at += kEntrySize) {
        const ULONG tag = LoadLittle<std::uint32_t>(list.data() + at);
        const std::size_t fixed = FixedSize(PROP_TYPE(tag));
        ComPtr<IStream> value;
        const bool inLine = (PROP_TYPE(tag) & MV_FLAG) == 0 && fixed > 0 && fixed <= 8;
        if (inLine || SUCCEEDED(storage.OpenStream(ValueName(tag).c_str(), nullptr,
                                                   STGM_READ | STGM_SHARE_EXCLUSIVE, 0, value.Put())))
            tags.push_back(tag);
    }
    return tags;
}

TEST(CorpusTest, EveryPropertyThatAFileListsIsInItsMessage)
{
    std::size_t properties = 0;
    for (const fs::path& path : CorpusFiles("msg")) {
        SCOPED_TRACE(path.filename());
        const auto storage = OpenFile(path);
        ASSERT_TRUE(storage);
        const std::vector<ULONG> listed = ListedTags(*storage, kOutermostHeader);
        ComPtr<IMessage> message;
        ASSERT_EQ(OpenMessage(*storage, message), S_OK);
        MapiBuffer<SPropTagArray> tags;
        ASSERT_EQ(message->GetPropList(MAPI_UNICODE, tags.Put()), S_OK);
        const std::set<ULONG> given(tags->aulPropTag, tags->aulPropTag + tags->cValues);
        for (const ULONG tag : listed) {
            const bool found = given.count(tag) > 0 || given.count(CHANGE_PROP_TYPE(tag, PT_UNICODE)) > 0;
            EXPECT_TRUE(found) << std::hex << tag;
        }
        properties += listed.size();
    }
    RecordProperty("properties", static_cast<int>(properties));
}

TEST(CorpusTest, EveryRecipientAndAttachmentIsCounted)
{
    for (const fs::path& path : CorpusFiles("msg")) {
        SCOPED_TRACE(path.filename());
        const auto storage = OpenFile(path);
        ASSERT_TRUE(storage);
        ULONG recipients = 0;
        ULONG attachments = 0;
        ComPtr<IEnumSTATSTG> elements;
        ASSERT_EQ(storage->EnumElements(0, nullptr, 0, elements.Put()), S_OK);
        STATSTG stat{};
        for (ULONG fetched = 0; elements->Next(1, &stat, &fetched) == S_OK && fetched == 1;) {
            const OleString name = stat.pwcsName;
            CoTaskMemFree(stat.pwcsName);
            recipients += name.find(kRecipientPrefix) == 0;
            attachments += name.find(kAttachmentPrefix) == 0;
        }
        ComPtr<IMessage> message;
        ASSERT_EQ(OpenMessage(*storage, message), S_OK);
        EXPECT_EQ(say::Recipients(*message), recipients);
        EXPECT_EQ(say::Attachments(*message), attachments);
    }
}

}  // namespace
}  // namespace quorvane
