// CopyTo between messages of a store and messages on structured storage, as items travel.
#include <sqlite3.h>

#include "msgstore/message/message_fixture.h"
#include "msgstore/store/stored_file.h"
#include "msgstore/store/test_mailbox.h"
#include "platform/mapi/more_tags.h"

namespace quorvane {
namespace {

using testing::StoredFile;

constexpr DWORD kMode = STGM_READWRITE | STGM_SHARE_EXCLUSIVE;
constexpr GUID kSet{0x00062004, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
constexpr std::size_t kLarge = 100 * 1000;  // more than a store keeps among the other properties

// One property of each type that a message may have, from `firstId` on.
void PutEveryType(IMAPIProp& object, ULONG firstId)
{
    BYTE bytes[] = {0, 1, 255};
    char text[] = "\xCF\xF0\xE8";
    OLECHAR wide[] = OLESTR(
        "w\x00EF"
        "de");
    GUID guid = kSet;
    LONG longs[] = {1, -2};
    short shorts[] = {3, -4};
    double doubles[] = {0.5, -1e300};
    LARGE_INTEGER integers[2] = {};
    integers[1].QuadPart = -5'000'000'000;
    FILETIME times[] = {{1, 2}, {3, 4}};
    SBinary binaries[] = {{3, bytes}, {0, bytes}};
    LPWSTR texts[] = {wide, wide + 4};
    LPSTR narrow[] = {text, text + 3};
    SPropValue values[18] = {};
    ULONG count = 0;
    const auto put = [&](ULONG type) -> decltype(SPropValue::Value)& {
        values[count].ulPropTag = PROP_TAG(type, firstId + count);
        return values[count++].Value;
    };
    put(PT_SHORT).i = -7;
    put(PT_LONG).l = -70000;
    put(PT_FLOAT).flt = 1.25F;
    put(PT_DOUBLE).dbl = -1.5e200;
    put(PT_CURRENCY).cur.int64 = 123'456'789'012;
    put(PT_APPTIME).at = 40000.75;
    put(PT_BOOLEAN).b = 1;
    put(PT_LONGLONG).li.QuadPart = -5'000'000'000;
    put(PT_STRING8).lpszA = text;
    put(PT_UNICODE).lpszW = wide;
    put(PT_SYSTIME).ft = {0x12345678, 0x01D00000};
    put(PT_CLSID).lpguid = &guid;
    put(PT_BINARY).bin = {3, bytes};
    put(PT_MV_LONG).MVl = {2, longs};
    put(PT_MV_UNICODE).MVszW = {2, texts};
    put(PT_MV_BINARY).MVbin = {2, binaries};
    put(PT_MV_SYSTIME).MVft = {2, times};
    put(PT_MV_DOUBLE).MVdbl = {2, doubles};
    MapiBuffer<SPropProblemArray> problems;
    EXPECT_EQ(object.SetProps(count, values, problems.Put()), S_OK);
    EXPECT_FALSE(problems);
    SPropValue more[3] = {};
    more[0].ulPropTag = PROP_TAG(PT_MV_I2, firstId + count);
    more[0].Value.MVi = {2, shorts};
    more[1].ulPropTag = PROP_TAG(PT_MV_I8, firstId + count + 1);
    more[1].Value.MVli = {2, integers};
    more[2].ulPropTag = PROP_TAG(PT_MV_STRING8, firstId + count + 2);
    more[2].Value.MVszA = {2, narrow};
    EXPECT_EQ(object.SetProps(3, more, problems.Put()), S_OK);
    EXPECT_FALSE(problems);
}

void PutStorage(IMessage& message)
{
    ULONG number = 0;
    ComPtr<IAttach> attachment;
    ComPtr<IStorage> object;
    ComPtr<IStream> stream;
    ASSERT_EQ(message.CreateAttach(nullptr, 0, &number, attachment.Put()), S_OK);
    EXPECT_EQ(say::Number(*attachment, PR_ATTACH_METHOD, ATTACH_OLE), S_OK);
    ASSERT_EQ(attachment->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IStorage, 0, MAPI_CREATE | MAPI_MODIFY,
                                       object.PutUnknown()),
              S_OK);
    ASSERT_EQ(object->CreateStream(OLESTR("Inside"), kMode | STGM_CREATE, 0, 0, stream.Put()), S_OK);
    EXPECT_EQ(stream->Write("object", 6, nullptr), S_OK);
    stream.Reset();
    object.Reset();
    EXPECT_EQ(attachment->SaveChanges(0), S_OK);
}

// Everything that a message can hold, two levels deep.
void Fill(IMessage& message, int levels = 2)
{
    PutEveryType(message, 0x6600);
    say::Text(message, PR_SUBJECT_W, OLESTR("RE: all"));
    say::Text(message, PR_BODY_W, OleString(kLarge, OLESTR('b')));
    say::Write(message, kPrHtml, std::string(kLarge, 'h'));
    say::Text(message, PROP_TAG(PT_UNICODE, PROP_ID(say::NamedId(message, kSet, 0x8005))), OLESTR("Doe, J."));
    say::Text(message,
              PROP_TAG(PT_UNICODE, PROP_ID(say::NamedId(message, PS_PUBLIC_STRINGS, OLESTR("Keywords")))),
              OLESTR("red"));
    for (const LONG kind : {MAPI_TO, MAPI_CC, MAPI_BCC})
        say::Recipient(message, kind, OLESTR("Recipient ") + OleString(1, static_cast<OLECHAR>('0' + kind)));
    say::Attachment(message, OLESTR("small"), "s");
    say::Attachment(message, OLESTR("large"), std::string(kLarge, 'a'));
    PutStorage(message);
    if (levels == 0)
        return;
    ULONG number = 0;
    ComPtr<IAttach> attachment;
    ComPtr<IMessage> inner;
    ASSERT_EQ(message.CreateAttach(nullptr, 0, &number, attachment.Put()), S_OK);
    EXPECT_EQ(say::Number(*attachment, PR_ATTACH_METHOD, ATTACH_EMBEDDED_MSG), S_OK);
    ASSERT_EQ(attachment->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, MAPI_CREATE | MAPI_MODIFY,
                                       inner.PutUnknown()),
              S_OK);
    Fill(*inner, levels - 1);
    EXPECT_EQ(inner->SaveChanges(0), S_OK);
    EXPECT_EQ(attachment->SaveChanges(0), S_OK);
}

class StorageCopyTest : public ::testing::Test {
protected:
    StorageCopyTest()
    {
        // The store and the files name things in different order.
        say::NamedId(mailbox.Store(), kSet, 1);
        message = NewMessage();
    }

    ComPtr<IMessage> NewMessage()
    {
        ComPtr<IMessage> made;
        EXPECT_EQ(mailbox.Inbox().CreateMessage(nullptr, 0, made.Put()), S_OK);
        return made;
    }
    ComPtr<IMessage> Saved(IMessage& unsaved)
    {
        EXPECT_EQ(unsaved.SaveChanges(KEEP_OPEN_READWRITE), S_OK);
        return mailbox.OpenMessage(testing::BinaryOf(unsaved, PR_ENTRYID));
    }

    static HRESULT CopyWithout(IMessage& from, IMessage& to, std::initializer_list<ULONG> tags,
                               LPSPropProblemArray* problems = nullptr)
    {
        struct {
            ULONG count = 0;
            ULONG tags[8] = {};
        } excluded;
        for (const ULONG tag : tags)
            excluded.tags[excluded.count++] = tag;
        return from.CopyTo(0, nullptr, reinterpret_cast<LPSPropTagArray>(&excluded), 0, nullptr,
                           &IID_IMessage, &to, MAPI_DIALOG, problems);
    }

    // Two messages as two saves leave them: of the time of its creation and of its change key each has its
    // own.
    static std::vector<std::string> Differences(IMessage& first, IMessage& second,
                                                bool bothHaveSearchKeys = true)
    {
        CompareOptions options;
        options.ignored = {PROP_ID(PR_CREATION_TIME), PROP_ID(kPrChangeKey)};
        if (!bothHaveSearchKeys)
            options.ignored.insert(PROP_ID(PR_SEARCH_KEY));
        return say::Differences(first, second, options);
    }

    // The problems that are a loss; what a target computes for itself is none.
    static std::vector<ULONG> LostTags(const MapiBuffer<SPropProblemArray>& problems)
    {
        std::vector<ULONG> tags;
        for (ULONG i = 0; problems && i < problems->cProblem; ++i) {
            if (problems->aProblem[i].scode != MAPI_E_COMPUTED)
                tags.push_back(PROP_ID(problems->aProblem[i].ulPropTag));
        }
        return tags;
    }

    // Damages the file under an open store.
    void RunSql(const char* sql)
    {
        sqlite3* database = nullptr;
        ASSERT_EQ(sqlite3_open(mailbox.StorePath().c_str(), &database), SQLITE_OK);
        EXPECT_EQ(sqlite3_exec(database, sql, nullptr, nullptr, nullptr), SQLITE_OK);
        sqlite3_close(database);
    }

    testing::TestMailbox mailbox;
    ComPtr<IMessage> message;
    StoredFile file;
};

TEST_F(StorageCopyTest, AMessageOfAStoreIsTheSameOnAStorage)
{
    Fill(*message);
    message = Saved(*message);
    ASSERT_EQ(say::CopyAll(*message, *file.message), S_OK);
    EXPECT_EQ(say::Differences(*message, *file.message), std::vector<std::string>());
    file.Reopen();
    EXPECT_EQ(say::Differences(*message, *file.message), std::vector<std::string>());
}

TEST_F(StorageCopyTest, AMessageOnAStorageIsTheSameInAStore)
{
    Fill(*file.message);
    file.Reopen();
    ASSERT_EQ(say::CopyAll(*file.message, *message), S_OK);
    EXPECT_EQ(say::Differences(*file.message, *message), std::vector<std::string>());
    EXPECT_EQ(Differences(*file.message, *Saved(*message), false), std::vector<std::string>());
}

TEST_F(StorageCopyTest, AMessageThatWentAwayAndCameBackIsTheSame)
{
    Fill(*message);
    message = Saved(*message);
    ASSERT_EQ(say::CopyAll(*message, *file.message), S_OK);
    file.Reopen(STGM_READ | STGM_SHARE_EXCLUSIVE);
    const ComPtr<IMessage> back = NewMessage();
    ASSERT_EQ(say::CopyAll(*file.message, *back), S_OK);
    EXPECT_EQ(Differences(*message, *Saved(*back)), std::vector<std::string>());
    EXPECT_NE(testing::BinaryOf(*message, PR_ENTRYID), testing::BinaryOf(*back, PR_ENTRYID));
}

TEST_F(StorageCopyTest, AnArrivedMessageReplacesTheOneThatStands)
{
    Fill(*message);
    message = Saved(*message);
    say::Text(*file.message, PR_SUBJECT_W, OLESTR("new"));
    say::Recipient(*file.message, MAPI_TO, OLESTR("Eve"));
    say::Attachment(*file.message, OLESTR("only"), "only");
    file.Reopen();
    MapiBuffer<SPropTagArray> all;
    ASSERT_EQ(message->GetPropList(0, all.Put()), S_OK);
    ASSERT_EQ(message->DeleteProps(all.Get(), nullptr), S_OK);
    ASSERT_EQ(say::CopyAll(*file.message, *message), S_OK);
    EXPECT_EQ(Differences(*file.message, *Saved(*message), false), std::vector<std::string>());
}

TEST_F(StorageCopyTest, ExcludedTagsStayBehindInBothDirections)
{
    const ULONG named = say::NamedId(*message, kSet, 0x8005);
    Fill(*message);
    message = Saved(*message);
    ASSERT_EQ(CopyWithout(*message, *file.message, {PR_BODY_A, kPrHtml, named, PR_MESSAGE_RECIPIENTS}), S_OK);
    file.Reopen();
    EXPECT_EQ(say::Find(*file.message, PR_BODY_W), MAPI_E_NOT_FOUND);
    EXPECT_EQ(say::Find(*file.message, kPrHtml), MAPI_E_NOT_FOUND);
    // The embedded messages have it still, and with it the name.
    const ULONG there = PROP_TAG(PT_UNICODE, PROP_ID(say::NamedId(*file.message, kSet, 0x8005, 0)));
    EXPECT_EQ(say::Find(*file.message, there), MAPI_E_NOT_FOUND);
    EXPECT_EQ(say::Recipients(*file.message), 0u);
    EXPECT_EQ(say::Attachments(*file.message), 4u);
    EXPECT_EQ(say::TextOf(*file.message, PR_SUBJECT_W), OLESTR("RE: all"));

    const ComPtr<IMessage> back = NewMessage();
    ASSERT_EQ(CopyWithout(*file.message, *back, {PR_SUBJECT_W, PR_MESSAGE_ATTACHMENTS, 0}), S_OK);
    const ComPtr<IMessage> saved = Saved(*back);
    EXPECT_EQ(say::Find(*saved, PR_SUBJECT_W), MAPI_E_NOT_FOUND);
    EXPECT_EQ(say::Attachments(*saved), 0u);
    EXPECT_EQ(say::NumberOf(*saved, PROP_TAG(PT_LONG, 0x6601)), -70000);
}

TEST_F(StorageCopyTest, ThePropertiesThatATargetKeepsForItselfAreProblems)
{
    say::Text(*message, PR_SUBJECT_W, OLESTR("x"));
    message = Saved(*message);
    struct {
        ULONG count = 3;
        ULONG tags[3] = {PR_ENTRYID, PR_SUBJECT_W, PR_RECORD_KEY};
    } wanted;
    MapiBuffer<SPropProblemArray> problems;
    ASSERT_EQ(message->CopyProps(reinterpret_cast<LPSPropTagArray>(&wanted), 0, nullptr, &IID_IMessage,
                                 file.message.Get(), 0, problems.Put()),
              S_OK);
    ASSERT_TRUE(problems);
    ASSERT_EQ(problems->cProblem, 2u);
    EXPECT_EQ(problems->aProblem[0].ulIndex, 0u);
    EXPECT_EQ(problems->aProblem[0].ulPropTag, static_cast<ULONG>(PR_ENTRYID));
    EXPECT_EQ(problems->aProblem[0].scode, MAPI_E_COMPUTED);
    EXPECT_EQ(problems->aProblem[1].ulIndex, 2u);
    EXPECT_EQ(say::TextOf(*file.message, PR_SUBJECT_W), OLESTR("x"));
}

TEST_F(StorageCopyTest, AValueThatCantBeReadIsAProblemAndTheRestIsCopied)
{
    Fill(*message, 0);
    message = Saved(*message);
    RunSql("DELETE FROM chunk WHERE value_id=(SELECT id FROM large_value WHERE tag=0x10130102)");

    MapiBuffer<SPropProblemArray> problems;
    ASSERT_EQ(CopyWithout(*message, *file.message, {}, problems.Put()), S_OK);
    EXPECT_EQ(LostTags(problems), std::vector<ULONG>{PROP_ID(kPrHtml)});
    EXPECT_EQ(say::Attachments(*file.message), 3u);
    EXPECT_EQ(say::TextOf(*file.message, PR_SUBJECT_W), OLESTR("RE: all"));

    // Who doesn't ask for the problems is told of the loss by the result.
    StoredFile other;
    EXPECT_TRUE(FAILED(say::CopyAll(*message, *other.message)));
}

TEST_F(StorageCopyTest, AnAttachmentThatCantBeReadIsAProblemOfTheAttachments)
{
    Fill(*message, 0);
    message = Saved(*message);
    RunSql("DELETE FROM chunk WHERE value_id=(SELECT id FROM large_value WHERE tag=0x37010102)");

    MapiBuffer<SPropProblemArray> problems;
    ASSERT_EQ(CopyWithout(*message, *file.message, {}, problems.Put()), S_OK);
    EXPECT_EQ(LostTags(problems), std::vector<ULONG>{PROP_ID(PR_MESSAGE_ATTACHMENTS)});
    EXPECT_EQ(say::Recipients(*file.message), 3u);
    EXPECT_EQ(say::Read(*file.message, kPrHtml).size(), kLarge);
    StoredFile other;
    EXPECT_TRUE(FAILED(say::CopyAll(*message, *other.message)));
}

TEST_F(StorageCopyTest, AStorageForReadingIsNoTarget)
{
    say::Text(*message, PR_SUBJECT_W, OLESTR("x"));
    message = Saved(*message);
    file.Reopen(STGM_READ | STGM_SHARE_EXCLUSIVE);
    EXPECT_EQ(say::CopyAll(*message, *file.message), E_ACCESSDENIED);
}

}  // namespace
}  // namespace quorvane
