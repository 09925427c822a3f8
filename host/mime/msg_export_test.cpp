// Messages that were never mail: .msg files, exported. QUORVANE_CORPUS names a folder with msg/ in it.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>

#include "host/mime/mapi_text.h"
#include "host/mime/test_store.h"
#include "quorvane3/storage.h"

namespace quorvane {
namespace {

class MsgExportTest : public StoreTest {
protected:
    static ComPtr<IMessage> Open(const std::filesystem::path& path, ComPtr<IStorage>& storage)
    {
        const OleString name = MapiText(path.string());
        ComPtr<IMessage> message;
        EXPECT_EQ(StgOpenStorage(name.c_str(), nullptr, STGM_READ | STGM_SHARE_DENY_WRITE, nullptr, 0,
                                 storage.Put()),
                  S_OK)
            << path;
        if (!storage)
            return message;
        const ComPtr<IMalloc> allocator = ComPtr<IMalloc>::Attach(MAPIGetDefaultMalloc());
        EXPECT_EQ(OpenIMsgOnIStg(nullptr, MAPIAllocateBuffer, MAPIAllocateMore, MAPIFreeBuffer,
                                 allocator.Get(), nullptr, storage.Get(), nullptr, 0, 0, message.Put()),
                  S_OK)
            << path;
        return message;
    }

    // Text without what MIME may change: line ends and blanks around it.
    static std::string Loose(std::string text)
    {
        std::erase_if(text, [](char c) { return c == '\r' || c == '\n' || c == ' ' || c == '\t'; });
        return text;
    }

    // How many recipients a message has.
    static std::ptrdiff_t People(IMessage& message)
    {
        const std::string lines = RecipientLines(message);
        return std::count(lines.begin(), lines.end(), '\n');
    }

    static std::vector<std::string> Data(IMessage& message)
    {
        std::vector<std::string> data;
        for (const ComPtr<IAttach>& attachment : Attachments(message)) {
            if (ReadLong(*attachment, PR_ATTACH_METHOD) == static_cast<LONG>(ATTACH_BY_VALUE))
                data.push_back(AttachmentData(*attachment));
        }
        std::sort(data.begin(), data.end());
        return data;
    }
};

TEST_F(MsgExportTest, EveryMsgFileBecomesAMailWithItsContent)
{
    const char* const corpus = std::getenv("QUORVANE_CORPUS");
    if (!corpus) {
        std::cout << "QUORVANE_CORPUS isn't set: no message was read\n";
        return;
    }
    int exported = 0;
    for (const auto& entry : std::filesystem::directory_iterator(std::filesystem::path(corpus) / "msg")) {
        ComPtr<IStorage> storage;
        const ComPtr<IMessage> message = Open(entry.path(), storage);
        if (!message)
            continue;
        const auto copy = store->Import(Export(*message));
        const ULONG codePage = NarrowCodePage(*message);
        std::string subject = ShortText(*message, PR_SUBJECT_W, codePage);
        if (subject.starts_with('\x01'))
            subject.erase(0, 2);
        EXPECT_EQ(Loose(Text(*copy, PR_SUBJECT_W)), Loose(subject)) << entry.path();
        EXPECT_EQ(Loose(Text(*copy, PR_BODY_W)), Loose(ShortText(*message, PR_BODY_W, codePage)))
            << entry.path();
        EXPECT_EQ(People(*copy), People(*message))
            << entry.path() << RecipientLines(*message) << RecipientLines(*copy);
        const auto before = Attachments(*message);
        const auto after = Attachments(*copy);
        EXPECT_GE(after.size(), before.size()) << entry.path();
        const std::vector<std::string> kept = Data(*copy);
        for (const std::string& data : Data(*message))
            EXPECT_TRUE(std::binary_search(kept.begin(), kept.end(), data))
                << entry.path() << " " << data.size();
        ++exported;
    }
    std::cout << exported << " .msg files became mails\n";
    EXPECT_GE(exported, 120);
}

}  // namespace
}  // namespace quorvane
