// Messages on storages, through OpenIMsgOnIStg.
#include <thread>

#include "msgstore/imsg/element_names.h"
#include "msgstore/imsg/property_stream_format.h"
#include "msgstore/message/message_fixture.h"
#include "msgstore/props/little_endian.h"
#include "platform/cfb/stg.h"
#include "platform/mapi/more_tags.h"

namespace quorvane {
namespace {

constexpr DWORD kMode = STGM_READWRITE | STGM_SHARE_EXCLUSIVE;
constexpr GUID kSet{0x00062004, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

// A compound file in memory with a message on its root.
class ImsgTest : public ::testing::Test {
protected:
    ImsgTest()
    {
        EXPECT_EQ(CreateILockBytesOnHGlobal(nullptr, TRUE, bytes_.Put()), S_OK);
        EXPECT_EQ(StgCreateDocfileOnILockBytes(bytes_.Get(), kMode | STGM_CREATE, 0, storage_.Put()), S_OK);
        message_ = Open(*storage_);
    }

    static ComPtr<IMessage> Open(IStorage& storage, HRESULT expected = S_OK)
    {
        ComPtr<IMessage> message;
        EXPECT_EQ(OpenIMsgOnIStg(nullptr, MAPIAllocateBuffer, MAPIAllocateMore, MAPIFreeBuffer,
                                 MAPIGetDefaultMalloc(), nullptr, &storage, nullptr, 0, 0, message.Put()),
                  expected);
        return message;
    }

    // Saves, closes all, and opens the file again.
    void Reopen(DWORD mode = kMode)
    {
        ASSERT_EQ(message_->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
        Close();
        OpenAgain(mode);
    }
    void Close()
    {
        message_.Reset();
        storage_.Reset();
    }
    void OpenAgain(DWORD mode = kMode)
    {
        ASSERT_EQ(StgOpenStorageOnILockBytes(bytes_.Get(), nullptr, mode, nullptr, 0, storage_.Put()), S_OK);
        message_ = Open(*storage_);
    }

    // The names of a storage's elements.
    static std::set<OleString> Elements(IStorage& storage)
    {
        std::set<OleString> names;
        ComPtr<IEnumSTATSTG> elements;
        EXPECT_EQ(storage.EnumElements(0, nullptr, 0, elements.Put()), S_OK);
        STATSTG stat{};
        ULONG fetched = 0;
        while (elements->Next(1, &stat, &fetched) == S_OK && fetched == 1) {
            names.insert(stat.pwcsName);
            CoTaskMemFree(stat.pwcsName);
        }
        return names;
    }

    static std::string StreamOf(IStorage& storage, const OleString& name)
    {
        ComPtr<IStream> stream;
        std::string bytes(100000, '\0');
        ULONG read = 0;
        EXPECT_EQ(
            storage.OpenStream(name.c_str(), nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, 0, stream.Put()),
            S_OK);
        EXPECT_EQ(stream->Read(bytes.data(), static_cast<ULONG>(bytes.size()), &read), S_OK);
        bytes.resize(read);
        return bytes;
    }

    static void PutStream(IStorage& storage, const OleString& name, const std::string& bytes)
    {
        ComPtr<IStream> stream;
        ASSERT_EQ(storage.CreateStream(name.c_str(), kMode | STGM_CREATE, 0, 0, stream.Put()), S_OK);
        ASSERT_EQ(stream->Write(bytes.data(), static_cast<ULONG>(bytes.size()), nullptr), S_OK);
    }

    ComPtr<ILockBytes> bytes_;
    ComPtr<IStorage> storage_;
    ComPtr<IMessage> message_;
};

TEST_F(ImsgTest, ASavedMessageComesBack)
{
    say::Text(*message_, PR_SUBJECT_W, OLESTR("RE: Gr\u00FC\u00DFe"));
    EXPECT_EQ(say::Number(*message_, PR_IMPORTANCE, IMPORTANCE_HIGH), S_OK);
    say::Write(*message_, kPrHtml, std::string(200000, 'h'));
    say::Recipient(*message_, MAPI_TO, OLESTR("Ann"));
    say::Attachment(*message_, OLESTR("a.bin"), std::string(50000, 'a'));
    Reopen();
    EXPECT_EQ(say::TextOf(*message_, PR_SUBJECT_W), OLESTR("RE: Gr\u00FC\u00DFe"));
    EXPECT_EQ(say::NumberOf(*message_, PR_IMPORTANCE), IMPORTANCE_HIGH);
    EXPECT_EQ(say::Read(*message_, kPrHtml), std::string(200000, 'h'));
    EXPECT_EQ(say::TextOf(*message_, PR_DISPLAY_TO_W), OLESTR("Ann"));
    ComPtr<IAttach> attachment;
    ASSERT_EQ(message_->OpenAttach(0, nullptr, 0, attachment.Put()), S_OK);
    EXPECT_EQ(say::Read(*attachment, PR_ATTACH_DATA_BIN), std::string(50000, 'a'));
}

// The first bytes of a value; the rest stays unread.
std::string BeginningOf(IMAPIProp& object, ULONG tag)
{
    ComPtr<IStream> stream;
    EXPECT_EQ(object.OpenProperty(tag, &IID_IStream, 0, 0, stream.PutUnknown()), S_OK);
    std::string bytes(1000, '\0');
    ULONG read = 0;
    EXPECT_EQ(stream->Read(bytes.data(), static_cast<ULONG>(bytes.size()), &read), S_OK);
    EXPECT_EQ(read, bytes.size());
    return bytes;
}

TEST_F(ImsgTest, AValueThatIsReadHalfwayKeepsNothingFromBeingChanged)
{
    say::Write(*message_, kPrHtml, std::string(200000, 'h'));
    say::Write(*message_, PR_BODY_A, std::string(200000, 'b'));
    say::Attachment(*message_, OLESTR("a.bin"), std::string(200000, 'a'));
    Reopen();
    for (int turn = 0; turn < 3; ++turn) {
        EXPECT_EQ(BeginningOf(*message_, kPrHtml), std::string(1000, 'h'));
        EXPECT_EQ(BeginningOf(*message_, PR_BODY_A), std::string(1000, 'b'));
    }
    EXPECT_EQ(BeginningOf(*message_, kPrHtml), std::string(1000, 'h'));
    say::Write(*message_, kPrHtml, std::string(300000, 'H'));
    ASSERT_EQ(message_->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    EXPECT_EQ(say::Read(*message_, kPrHtml), std::string(300000, 'H'));

    ComPtr<IAttach> attachment;
    ASSERT_EQ(message_->OpenAttach(0, nullptr, 0, attachment.Put()), S_OK);
    EXPECT_EQ(BeginningOf(*attachment, PR_ATTACH_DATA_BIN), std::string(1000, 'a'));
    ASSERT_EQ(message_->DeleteAttach(0, 0, nullptr, 0), S_OK);
    EXPECT_EQ(BeginningOf(*message_, PR_BODY_A), std::string(1000, 'b'));
    SPropTagArray body = {1, {PR_BODY_A}};
    ASSERT_EQ(message_->DeleteProps(&body, nullptr), S_OK);
    Reopen();

    EXPECT_EQ(say::Read(*message_, kPrHtml), std::string(300000, 'H'));
    const std::set<OleString> names = Elements(*storage_);
    EXPECT_EQ(names.count(OLESTR("__substg1.0_1000001E")) + names.count(OLESTR("__substg1.0_1000001F")), 0u);
    EXPECT_EQ(message_->OpenAttach(0, nullptr, 0, attachment.Put()), MAPI_E_NOT_FOUND);
}

TEST_F(ImsgTest, AValueThatWasReadToItsEndIsOpenNoLonger)
{
    say::Write(*message_, kPrHtml, std::string(100000, 'h'));
    Reopen();
    EXPECT_EQ(say::Read(*message_, kPrHtml), std::string(100000, 'h'));

    EXPECT_EQ(StreamOf(*storage_, OLESTR("__substg1.0_10130102")), std::string(100000, 'h'));
}

TEST_F(ImsgTest, TheLayoutIsThePublishedOne)
{
    say::Text(*message_, PR_SUBJECT_W, OLESTR("subject"));
    EXPECT_EQ(say::Number(*message_, PR_IMPORTANCE, 2), S_OK);
    say::Recipient(*message_, MAPI_TO, OLESTR("Ann"));
    say::Attachment(*message_, OLESTR("a"), "data");
    ASSERT_EQ(message_->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    message_.Reset();
    const std::set<OleString> names = Elements(*storage_);
    for (const OLECHAR* name : {OLESTR("__properties_version1.0"), OLESTR("__nameid_version1.0"),
                                OLESTR("__recip_version1.0_#00000000"),
                                OLESTR("__attach_version1.0_#00000000"), OLESTR("__substg1.0_0037001F")})
        EXPECT_EQ(names.count(name), 1u);
    EXPECT_EQ(StreamOf(*storage_, OLESTR("__substg1.0_0037001F")), std::string("s\0u\0b\0j\0e\0c\0t\0", 14));
    const std::string list = StreamOf(*storage_, OLESTR("__properties_version1.0"));
    ASSERT_GT(list.size(), kOutermostHeader);
    EXPECT_EQ((list.size() - kOutermostHeader) % kEntrySize, 0u);
    EXPECT_EQ(list[kRecipientCountAt], 1);
    EXPECT_EQ(list[kAttachmentCountAt], 1);
    const std::string importance("\x03\x00\x17\x00\x06\x00\x00\x00\x02\x00\x00\x00\x00\x00\x00\x00", 16);
    EXPECT_NE(list.find(importance, kOutermostHeader), std::string::npos);
    const std::string subject("\x1F\x00\x37\x00\x06\x00\x00\x00\x10\x00\x00\x00\x00\x00\x00\x00", 16);
    EXPECT_NE(list.find(subject, kOutermostHeader), std::string::npos);
}

TEST_F(ImsgTest, SeveralValuesComeBack)
{
    WCHAR one[] = OLESTR("one");
    WCHAR two[] = OLESTR("");
    LPWSTR texts[] = {one, two};
    LONG longs[] = {1, -2, 3};
    BYTE bytes[] = {7, 8};
    SBinary binaries[] = {{2, bytes}, {0, nullptr}};
    SPropValue values[3] = {};
    values[0].ulPropTag = PROP_TAG(PT_MV_UNICODE, 0x6601);
    values[0].Value.MVszW = {2, texts};
    values[1].ulPropTag = PROP_TAG(PT_MV_LONG, 0x6602);
    values[1].Value.MVl = {3, longs};
    values[2].ulPropTag = PROP_TAG(PT_MV_BINARY, 0x6603);
    values[2].Value.MVbin = {2, binaries};
    ASSERT_EQ(message_->SetProps(3, values, nullptr), S_OK);
    Reopen();
    MapiBuffer<SPropValue> read;
    ASSERT_EQ(HrGetOneProp(message_.Get(), values[0].ulPropTag, read.Put()), S_OK);
    ASSERT_EQ(read->Value.MVszW.cValues, 2u);
    EXPECT_EQ(OleString(read->Value.MVszW.lppszW[0]), OLESTR("one"));
    EXPECT_EQ(OleString(read->Value.MVszW.lppszW[1]), OLESTR(""));
    ASSERT_EQ(HrGetOneProp(message_.Get(), values[1].ulPropTag, read.Put()), S_OK);
    EXPECT_EQ(read->Value.MVl.lpl[1], -2);
    ASSERT_EQ(HrGetOneProp(message_.Get(), values[2].ulPropTag, read.Put()), S_OK);
    EXPECT_EQ(read->Value.MVbin.lpbin[0].lpb[1], 8);
    EXPECT_EQ(read->Value.MVbin.lpbin[1].cb, 0u);
    EXPECT_EQ(Elements(*storage_).count(OLESTR("__substg1.0_6601101F-00000001")), 1u);
}

TEST_F(ImsgTest, NamesComeBackAndGrow)
{
    const ULONG number = say::NamedId(*message_, kSet, 0x8005);
    const ULONG text = say::NamedId(*message_, PS_PUBLIC_STRINGS, OLESTR("Keywords"));
    say::Text(*message_, PROP_TAG(PT_UNICODE, PROP_ID(text)), OLESTR("red"));
    Reopen();
    EXPECT_EQ(say::NamedId(*message_, kSet, 0x8005, 0), number);
    EXPECT_EQ(say::NamedId(*message_, PS_PUBLIC_STRINGS, OLESTR("Keywords"), 0), text);
    EXPECT_EQ(say::TextOf(*message_, PROP_TAG(PT_UNICODE, PROP_ID(text))), OLESTR("red"));
    const ULONG third = say::NamedId(*message_, kSet, OLESTR("third"));
    say::Text(*message_, PROP_TAG(PT_UNICODE, PROP_ID(third)), OLESTR("blue"));
    Reopen();
    EXPECT_EQ(say::NamedId(*message_, kSet, 0x8005, 0), number);
    EXPECT_EQ(say::NamedId(*message_, kSet, OLESTR("third"), 0), third);
}

TEST_F(ImsgTest, TheMapOfNamesIsThePublishedOne)
{
    say::NamedId(*message_, kSet, 0x8005);
    say::NamedId(*message_, PS_PUBLIC_STRINGS, OLESTR("Keywords"));
    ASSERT_EQ(message_->SaveChanges(0), S_OK);
    message_.Reset();
    ComPtr<IStorage> names;
    ASSERT_EQ(storage_->OpenStorage(OLESTR("__nameid_version1.0"), nullptr, kMode, nullptr, 0, names.Put()),
              S_OK);
    EXPECT_EQ(StreamOf(*names, OLESTR("__substg1.0_00020102")).size(), 16u);
    EXPECT_EQ(StreamOf(*names, OLESTR("__substg1.0_00030102")),
              std::string("\x05\x80\0\0\x06\0\0\0\0\0\0\0\x05\0\x01\0", 16));
    EXPECT_EQ(StreamOf(*names, OLESTR("__substg1.0_00040102")).substr(0, 6), std::string("\x10\0\0\0K\0", 6));
    // 0x8005 ^ 6 is 0x8003, and 0x8003 modulo 31 is 4.
    EXPECT_EQ(StreamOf(*names, OLESTR("__substg1.0_10040102")), std::string("\x05\x80\0\0\x06\0\0\0", 8));
}

TEST_F(ImsgTest, WhatIsDeletedLeavesTheStorage)
{
    say::Text(*message_, PR_COMMENT_W, OLESTR("x"));
    say::Recipient(*message_, MAPI_TO, OLESTR("Ann"));
    say::Attachment(*message_, OLESTR("a"), "a");
    Reopen();
    SPropTagArray tag{1, {PR_COMMENT_W}};
    ADRLIST none{0, {}};
    ASSERT_EQ(message_->DeleteProps(&tag, nullptr), S_OK);
    ASSERT_EQ(message_->DeleteAttach(0, 0, nullptr, 0), S_OK);
    ASSERT_EQ(message_->ModifyRecipients(0, &none), S_OK);
    Reopen();
    EXPECT_EQ(say::Find(*message_, PR_COMMENT_W), MAPI_E_NOT_FOUND);
    EXPECT_EQ(say::Recipients(*message_), 0u);
    EXPECT_EQ(say::Attachments(*message_), 0u);
    const std::set<OleString> names = Elements(*storage_);
    EXPECT_EQ(names.count(OLESTR("__substg1.0_3004001F")), 0u);
    EXPECT_EQ(names.count(OLESTR("__recip_version1.0_#00000000")), 0u);
    EXPECT_EQ(names.count(OLESTR("__attach_version1.0_#00000000")), 0u);
}

TEST_F(ImsgTest, ChangesAreMadeInPlace)
{
    say::Write(*message_, kPrHtml, std::string(100000, 'h'));
    say::Recipient(*message_, MAPI_TO, OLESTR("Ann"));
    say::Recipient(*message_, MAPI_TO, OLESTR("Ben"));
    say::Attachment(*message_, OLESTR("a"), std::string(20000, 'a'));
    say::Attachment(*message_, OLESTR("b"), std::string(20000, 'b'));
    Reopen();
    say::Text(*message_, PR_SUBJECT_W, OLESTR("new"));
    say::Recipient(*message_, MAPI_TO, OLESTR("Cid"));
    ComPtr<IAttach> attachment;
    ASSERT_EQ(message_->OpenAttach(1, nullptr, MAPI_MODIFY, attachment.Put()), S_OK);
    say::Text(*attachment, PR_ATTACH_LONG_FILENAME_W, OLESTR("renamed"));
    ASSERT_EQ(attachment->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    attachment.Reset();
    Reopen();
    EXPECT_EQ(say::Read(*message_, kPrHtml), std::string(100000, 'h'));
    EXPECT_EQ(say::TextOf(*message_, PR_DISPLAY_TO_W), OLESTR("Ann; Ben; Cid"));
    ASSERT_EQ(message_->OpenAttach(1, nullptr, 0, attachment.Put()), S_OK);
    EXPECT_EQ(say::TextOf(*attachment, PR_ATTACH_LONG_FILENAME_W), OLESTR("renamed"));
    EXPECT_EQ(say::Read(*attachment, PR_ATTACH_DATA_BIN), std::string(20000, 'b'));
    ASSERT_EQ(message_->OpenAttach(0, nullptr, 0, attachment.Put()), S_OK);
    EXPECT_EQ(say::Read(*attachment, PR_ATTACH_DATA_BIN), std::string(20000, 'a'));
    EXPECT_EQ(Elements(*storage_).count(OLESTR("__recip_version1.0_#00000002")), 1u);
}

TEST_F(ImsgTest, AMessageStaysUsableAfterASave)
{
    say::Text(*message_, PR_SUBJECT_W, OLESTR("one"));
    ASSERT_EQ(message_->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    say::Text(*message_, PR_SUBJECT_W, OLESTR("two"));
    say::Attachment(*message_, OLESTR("a"), "a");
    ASSERT_EQ(message_->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    EXPECT_EQ(say::TextOf(*message_, PR_SUBJECT_W), OLESTR("two"));
    EXPECT_EQ(say::Attachments(*message_), 1u);
}

TEST_F(ImsgTest, AStorageInAnAttachmentComesBack)
{
    {
        ULONG number = 0;
        ComPtr<IAttach> attachment;
        ComPtr<IStorage> object;
        ComPtr<IStorage> child;
        ASSERT_EQ(message_->CreateAttach(nullptr, 0, &number, attachment.Put()), S_OK);
        EXPECT_EQ(say::Number(*attachment, PR_ATTACH_METHOD, ATTACH_OLE), S_OK);
        ASSERT_EQ(attachment->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IStorage, 0, MAPI_CREATE | MAPI_MODIFY,
                                           object.PutUnknown()),
                  S_OK);
        PutStream(*object, OLESTR("CONTENTS"), "object");
        ASSERT_EQ(object->CreateStorage(OLESTR("Child"), kMode | STGM_CREATE, 0, 0, child.Put()), S_OK);
        PutStream(*child, OLESTR("Inside"), std::string(10000, 'i'));
        child.Reset();
        object.Reset();
        ASSERT_EQ(attachment->SaveChanges(0), S_OK);
    }
    Reopen();
    ComPtr<IAttach> attachment;
    ComPtr<IStorage> object;
    ComPtr<IStorage> child;
    ASSERT_EQ(message_->OpenAttach(0, nullptr, 0, attachment.Put()), S_OK);
    ASSERT_EQ(attachment->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IStorage, 0, 0, object.PutUnknown()), S_OK);
    EXPECT_EQ(StreamOf(*object, OLESTR("CONTENTS")), "object");
    ASSERT_EQ(object->OpenStorage(OLESTR("Child"), nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, nullptr, 0,
                                  child.Put()),
              S_OK);
    EXPECT_EQ(StreamOf(*child, OLESTR("Inside")), std::string(10000, 'i'));
}

TEST_F(ImsgTest, AStorageOpenForReadingGivesAMessageForReading)
{
    say::Text(*message_, PR_SUBJECT_W, OLESTR("x"));
    Reopen(STGM_READ | STGM_SHARE_EXCLUSIVE);
    EXPECT_EQ(say::TextOf(*message_, PR_SUBJECT_W), OLESTR("x"));
    EXPECT_EQ(say::Number(*message_, PR_IMPORTANCE, 1), E_ACCESSDENIED);
    EXPECT_EQ(message_->SaveChanges(KEEP_OPEN_READWRITE), E_ACCESSDENIED);
}

TEST_F(ImsgTest, AStorageOfOtherThingsIsRefused)
{
    message_.Reset();
    PutStream(*storage_, OLESTR("WordDocument"), "text");
    EXPECT_FALSE(Open(*storage_, MAPI_E_CORRUPT_DATA));
}

TEST_F(ImsgTest, WrongArgumentsAreRefused)
{
    ComPtr<IMessage> message;
    EXPECT_EQ(OpenIMsgOnIStg(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, 0, 0,
                             message.Put()),
              MAPI_E_INVALID_PARAMETER);
    EXPECT_EQ(OpenIMsgSession(nullptr, 0, nullptr), MAPI_E_INVALID_PARAMETER);
}

TEST_F(ImsgTest, AMessageOutlivesItsSession)
{
    message_.Reset();
    LPMSGSESS session = nullptr;
    ASSERT_EQ(OpenIMsgSession(MAPIGetDefaultMalloc(), 0, &session), S_OK);
    ASSERT_EQ(OpenIMsgOnIStg(session, MAPIAllocateBuffer, MAPIAllocateMore, MAPIFreeBuffer,
                             MAPIGetDefaultMalloc(), nullptr, storage_.Get(), nullptr, 0, 0, message_.Put()),
              S_OK);
    CloseIMsgSession(session);
    CloseIMsgSession(nullptr);
    say::Text(*message_, PR_SUBJECT_W, OLESTR("x"));
    EXPECT_EQ(message_->SaveChanges(0), S_OK);
}

struct Released {
    ULONG data = 0;
    IMessage* message = nullptr;
} released;

TEST_F(ImsgTest, TheOpenerIsToldOfTheRelease)
{
    message_.Reset();
    IMessage* message = nullptr;
    ASSERT_EQ(OpenIMsgOnIStg(
                  nullptr, MAPIAllocateBuffer, MAPIAllocateMore, MAPIFreeBuffer, MAPIGetDefaultMalloc(),
                  nullptr, storage_.Get(),
                  [](ULONG data, LPMESSAGE which) {
                      released = {data, which};
                  },
                  42, 0, &message),
              S_OK);
    EXPECT_EQ(released.data, 0u);
    message->Release();
    EXPECT_EQ(released.data, 42u);
    EXPECT_EQ(released.message, message);
}

TEST_F(ImsgTest, BrokenPropertiesAreLeftOut)
{
    say::Text(*message_, PR_SUBJECT_W, OLESTR("kept"));
    say::Text(*message_, PR_COMMENT_W, OLESTR("lost"));
    say::Text(*message_, PR_SENDER_NAME_W, OLESTR("odd"));
    Reopen();
    message_.Reset();
    ASSERT_EQ(storage_->DestroyElement(OLESTR("__substg1.0_3004001F")), S_OK);
    PutStream(*storage_, OLESTR("__substg1.0_0C1A001F"), std::string("o\0d", 3));
    std::string list = StreamOf(*storage_, OLESTR("__properties_version1.0"));
    list += std::string("\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF", 16);  // no type
    list += std::string("\x02\x11\x70\x66\0\0\0\0\xFF\xFF\xFF\xFF\0\0\0\0",
                        16);                                                // several values without a stream
    list += std::string("\x48\x00\x71\x66\0\0\0\0\x10\0\0\0\0\0\0\0", 16);  // an identifier without a stream
    list += "cut off";
    PutStream(*storage_, OLESTR("__properties_version1.0"), list);
    message_ = Open(*storage_);
    EXPECT_EQ(say::TextOf(*message_, PR_SUBJECT_W), OLESTR("kept"));
    EXPECT_EQ(say::TextOf(*message_, PR_SENDER_NAME_W), OLESTR("o"));
    EXPECT_EQ(say::Find(*message_, PR_COMMENT_W), MAPI_E_NOT_FOUND);
    EXPECT_EQ(say::Find(*message_, PROP_TAG(PT_MV_BINARY, 0x6670)), MAPI_E_NOT_FOUND);
}

TEST_F(ImsgTest, ATooShortListIsAnError)
{
    message_.Reset();
    PutStream(*storage_, OLESTR("__properties_version1.0"), "short");
    message_ = Open(*storage_);
    EXPECT_EQ(say::Find(*message_, PR_SUBJECT_W), MAPI_E_CORRUPT_DATA);
    EXPECT_EQ(message_->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
}

TEST_F(ImsgTest, LyingNamesAreLeftOut)
{
    const ULONG good = say::NamedId(*message_, kSet, OLESTR("good"));
    ASSERT_EQ(message_->SaveChanges(0), S_OK);
    message_.Reset();
    {
        ComPtr<IStorage> names;
        ASSERT_EQ(
            storage_->OpenStorage(OLESTR("__nameid_version1.0"), nullptr, kMode, nullptr, 0, names.Put()),
            S_OK);
        std::string entries = StreamOf(*names, OLESTR("__substg1.0_00030102"));
        entries += std::string("\xFE\xFF\xFF\xFF\x07\0\x01\0", 8);  // a text far beyond the stream
        entries += std::string("\x01\0\0\0\xFE\xFF\x02\0", 8);      // a set far beyond the stream
        entries += std::string("\x01\0\0\0\x02\0\xFF\x7F", 8);      // the identifier that stands for none
        PutStream(*names, OLESTR("__substg1.0_00030102"), entries + "cut");
    }
    message_ = Open(*storage_);
    EXPECT_EQ(say::NamedId(*message_, kSet, OLESTR("good"), 0), good);
    ULONG count = 0;
    LPSPropTagArray tags = nullptr;
    MapiBuffer<LPMAPINAMEID> names;
    ASSERT_EQ(message_->GetNamesFromIDs(&tags, nullptr, 0, &count, names.Put()), S_OK);
    EXPECT_EQ(count, 1u);
    MAPIFreeBuffer(tags);
}

TEST_F(ImsgTest, ADamagedRecipientDoesntTakeTheOthersAlong)
{
    say::Recipient(*message_, MAPI_TO, OLESTR("Ann"));
    say::Recipient(*message_, MAPI_TO, OLESTR("Ben"));
    ASSERT_EQ(message_->SaveChanges(0), S_OK);
    message_.Reset();
    {
        ComPtr<IStorage> recipient;
        ASSERT_EQ(storage_->OpenStorage(OLESTR("__recip_version1.0_#00000000"), nullptr, kMode, nullptr, 0,
                                        recipient.Put()),
                  S_OK);
        ASSERT_EQ(recipient->DestroyElement(OLESTR("__properties_version1.0")), S_OK);
    }
    message_ = Open(*storage_);
    EXPECT_EQ(say::TextOf(*message_, PR_DISPLAY_TO_W), OLESTR("Ben"));
}

}  // namespace
}  // namespace quorvane
