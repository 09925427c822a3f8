#include "msgstore/store/store_message.h"

#include <gtest/gtest.h>

#include <set>

#include "msgstore/store/test_mailbox.h"
#include "platform/mapi/more_tags.h"

namespace quorvane {
namespace {

using namespace quorvane::testing;

constexpr std::size_t kLargeValue = 300 * 1000;

BinaryValue Pattern(std::size_t size, BYTE seed = 0)
{
    BinaryValue bytes(size);
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<BYTE>(i * 7 + i / 251 + seed);
    return bytes;
}

void WriteStream(IMAPIProp& object, ULONG tag, const BinaryValue& bytes)
{
    ComPtr<IStream> stream;
    ASSERT_EQ(object.OpenProperty(tag, &IID_IStream, 0, MAPI_CREATE | MAPI_MODIFY, stream.PutUnknown()),
              S_OK);
    ULONG written = 0;
    ASSERT_EQ(stream->Write(bytes.data(), static_cast<ULONG>(bytes.size()), &written), S_OK);
    ASSERT_EQ(stream->Commit(0), S_OK);
}

BinaryValue ReadStream(IMAPIProp& object, ULONG tag)
{
    ComPtr<IStream> stream;
    if (FAILED(object.OpenProperty(tag, &IID_IStream, 0, 0, stream.PutUnknown())))
        return {};
    BinaryValue bytes;
    BYTE buffer[10000];
    ULONG read = 0;
    while (SUCCEEDED(stream->Read(buffer, sizeof(buffer), &read)) && read != 0)
        bytes.insert(bytes.end(), buffer, buffer + read);
    return bytes;
}

class StoreMessageTest : public ::testing::Test {
protected:
    StoreMessageTest() { EXPECT_EQ(StoreCore::Open(mailbox.StorePath(), false, core), S_OK); }

    std::int64_t Number(std::string_view sql)
    {
        std::int64_t number = -1;
        EXPECT_EQ(core->Read([&](SqliteConnection& connection) {
            SqliteRows rows = connection.Query(sql);
            if (rows.Next())
                number = rows.Int64(0);
            return rows.Result();
        }),
                  S_OK);
        return number;
    }
    std::string Text(std::string_view sql)
    {
        std::string text;
        EXPECT_EQ(core->Read([&](SqliteConnection& connection) {
            SqliteRows rows = connection.Query(sql);
            if (rows.Next())
                text = rows.Text(0);
            return rows.Result();
        }),
                  S_OK);
        return text;
    }
    std::int64_t CountRows(const std::string& table) { return Number("SELECT count(*) FROM " + table); }

    ComPtr<IMessage> NewMessage()
    {
        ComPtr<IMessage> message;
        EXPECT_EQ(mailbox.Inbox().CreateMessage(nullptr, 0, message.Put()), S_OK);
        EXPECT_EQ(SetText(*message, PR_SUBJECT_W, OLESTR("Hello")), S_OK);
        return message;
    }
    static ULONG AddAttachment(IMessage& message, const BinaryValue& data)
    {
        ULONG number = 0;
        ComPtr<IAttach> attachment;
        EXPECT_EQ(message.CreateAttach(nullptr, 0, &number, attachment.Put()), S_OK);
        EXPECT_EQ(SetLong(*attachment, PR_ATTACH_METHOD, ATTACH_BY_VALUE), S_OK);
        WriteStream(*attachment, PR_ATTACH_DATA_BIN, data);
        EXPECT_EQ(attachment->SaveChanges(0), S_OK);
        return number;
    }
    static BinaryValue AttachmentData(IMessage& message, ULONG number)
    {
        ComPtr<IAttach> attachment;
        if (FAILED(message.OpenAttach(number, nullptr, 0, attachment.Put())))
            return {};
        return ReadStream(*attachment, PR_ATTACH_DATA_BIN);
    }
    static void EmbedMessage(IMessage& message, const OleString& subject, const BinaryValue& data)
    {
        ULONG number = 0;
        ComPtr<IAttach> attachment;
        ASSERT_EQ(message.CreateAttach(nullptr, 0, &number, attachment.Put()), S_OK);
        ASSERT_EQ(SetLong(*attachment, PR_ATTACH_METHOD, ATTACH_EMBEDDED_MSG), S_OK);
        ComPtr<IMessage> embedded;
        ASSERT_EQ(attachment->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, MAPI_CREATE | MAPI_MODIFY,
                                           embedded.PutUnknown()),
                  S_OK);
        ASSERT_EQ(SetText(*embedded, PR_SUBJECT_W, subject), S_OK);
        AddAttachment(*embedded, data);
        ASSERT_EQ(embedded->SaveChanges(0), S_OK);
        ASSERT_EQ(attachment->SaveChanges(0), S_OK);
    }
    static BinaryValue Save(IMessage& message)
    {
        EXPECT_EQ(message.SaveChanges(KEEP_OPEN_READWRITE), S_OK);
        return BinaryOf(message, PR_ENTRYID);
    }

    TestMailbox mailbox;
    std::shared_ptr<StoreCore> core;
};

TEST_F(StoreMessageTest, ALargeValueComesBackThroughAStream)
{
    const ComPtr<IMessage> message = NewMessage();
    WriteStream(*message, kPrHtml, Pattern(kLargeValue));
    const BinaryValue id = Save(*message);

    EXPECT_EQ(ReadStream(*mailbox.OpenMessage(id, 0), kPrHtml), Pattern(kLargeValue));
    EXPECT_EQ(CountRows("large_value"), 1);
}

TEST_F(StoreMessageTest, ALargeValueThatDidntChangeStaysInItsRows)
{
    const ComPtr<IMessage> message = NewMessage();
    WriteStream(*message, kPrHtml, Pattern(kLargeValue));
    const BinaryValue id = Save(*message);
    const std::int64_t before = Number("SELECT id FROM large_value");

    mailbox.ChangeSubject(id, OLESTR("Other"));

    EXPECT_EQ(Number("SELECT id FROM large_value"), before);
    EXPECT_EQ(ReadStream(*mailbox.OpenMessage(id, 0), kPrHtml), Pattern(kLargeValue));
}

TEST_F(StoreMessageTest, AReplacedLargeValueLeavesNoRowsBehind)
{
    const ComPtr<IMessage> message = NewMessage();
    WriteStream(*message, kPrHtml, Pattern(kLargeValue));
    const BinaryValue id = Save(*message);

    WriteStream(*message, kPrHtml, Pattern(kLargeValue / 2, 1));
    Save(*message);

    EXPECT_EQ(ReadStream(*mailbox.OpenMessage(id, 0), kPrHtml), Pattern(kLargeValue / 2, 1));
    EXPECT_EQ(CountRows("large_value"), 1);
    EXPECT_EQ(Number("SELECT sum(length(data)) FROM chunk"), static_cast<std::int64_t>(kLargeValue / 2));
}

TEST_F(StoreMessageTest, AttachmentsComeBackWholeUnderTheirNumbers)
{
    const ComPtr<IMessage> message = NewMessage();
    const ULONG large = AddAttachment(*message, Pattern(kLargeValue));
    const ULONG small = AddAttachment(*message, Pattern(10));
    const BinaryValue id = Save(*message);

    const ComPtr<IMessage> opened = mailbox.OpenMessage(id, 0);

    EXPECT_EQ(AttachmentData(*opened, large), Pattern(kLargeValue));
    EXPECT_EQ(AttachmentData(*opened, small), Pattern(10));
    EXPECT_EQ(LongOf(*opened, PR_MESSAGE_FLAGS) & MSGFLAG_HASATTACH, static_cast<LONG>(MSGFLAG_HASATTACH));
}

TEST_F(StoreMessageTest, AnAttachmentThatDidntChangeKeepsItsPart)
{
    const ComPtr<IMessage> message = NewMessage();
    const ULONG first = AddAttachment(*message, Pattern(kLargeValue));
    const BinaryValue id = Save(*message);
    const std::int64_t part = Number("SELECT id FROM part WHERE parent_id != 0");

    const ComPtr<IMessage> opened = mailbox.OpenMessage(id);
    AddAttachment(*opened, Pattern(20));
    Save(*opened);

    EXPECT_EQ(Number("SELECT id FROM part WHERE parent_id != 0 ORDER BY number"), part);
    EXPECT_EQ(AttachmentData(*mailbox.OpenMessage(id, 0), first), Pattern(kLargeValue));
}

TEST_F(StoreMessageTest, AChangedAttachmentKeepsItsNumberAndItsUnchangedData)
{
    const ComPtr<IMessage> message = NewMessage();
    const ULONG number = AddAttachment(*message, Pattern(kLargeValue));
    const BinaryValue id = Save(*message);
    const std::int64_t value = Number("SELECT id FROM large_value");

    const ComPtr<IMessage> opened = mailbox.OpenMessage(id);
    ComPtr<IAttach> attachment;
    ASSERT_EQ(opened->OpenAttach(number, nullptr, MAPI_MODIFY, attachment.Put()), S_OK);
    ASSERT_EQ(SetText(*attachment, PR_ATTACH_LONG_FILENAME_W, OLESTR("plan.pdf")), S_OK);
    ASSERT_EQ(attachment->SaveChanges(0), S_OK);
    Save(*opened);

    EXPECT_EQ(Number("SELECT id FROM large_value"), value);
    const ComPtr<IMessage> again = mailbox.OpenMessage(id, 0);
    EXPECT_EQ(AttachmentData(*again, number), Pattern(kLargeValue));
    EXPECT_EQ(CountRows("part"), 2);
}

TEST_F(StoreMessageTest, ADeletedAttachmentLeavesNothingBehind)
{
    const ComPtr<IMessage> message = NewMessage();
    const ULONG first = AddAttachment(*message, Pattern(kLargeValue));
    EmbedMessage(*message, OLESTR("Inner"), Pattern(kLargeValue, 3));
    const BinaryValue id = Save(*message);
    ASSERT_EQ(CountRows("large_value"), 2);

    const ComPtr<IMessage> opened = mailbox.OpenMessage(id);
    ASSERT_EQ(opened->DeleteAttach(first, 0, nullptr, 0), S_OK);
    ASSERT_EQ(opened->DeleteAttach(first + 1, 0, nullptr, 0), S_OK);
    Save(*opened);

    EXPECT_EQ(CountRows("part"), 1);
    EXPECT_EQ(CountRows("large_value"), 0);
    EXPECT_EQ(CountRows("chunk"), 0);
}

TEST_F(StoreMessageTest, AnEmbeddedMessageOpensWithItsAttachments)
{
    const ComPtr<IMessage> message = NewMessage();
    EmbedMessage(*message, OLESTR("Inner"), Pattern(kLargeValue, 3));
    const BinaryValue id = Save(*message);

    ComPtr<IAttach> attachment;
    ASSERT_EQ(mailbox.OpenMessage(id, 0)->OpenAttach(0, nullptr, 0, attachment.Put()), S_OK);
    ComPtr<IMessage> embedded;
    ASSERT_EQ(attachment->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, 0, embedded.PutUnknown()), S_OK);

    EXPECT_EQ(TextOf(*embedded, PR_SUBJECT_W), OLESTR("Inner"));
    EXPECT_EQ(AttachmentData(*embedded, 0), Pattern(kLargeValue, 3));
}

TEST_F(StoreMessageTest, ACopiedMessageHasAllItsPartsAndADeletedOneNone)
{
    const ComPtr<IMessage> message = NewMessage();
    WriteStream(*message, kPrHtml, Pattern(kLargeValue));
    const ULONG number = AddAttachment(*message, Pattern(kLargeValue, 1));
    EmbedMessage(*message, OLESTR("Inner"), Pattern(kLargeValue, 3));
    BinaryValue id = Save(*message);
    SBinary one{static_cast<ULONG>(id.size()), id.data()};
    ENTRYLIST list{1, &one};
    ASSERT_EQ(mailbox.Inbox().CopyMessages(&list, nullptr, &mailbox.Inbox(), 0, nullptr, 0), S_OK);
    ASSERT_EQ(TestMailbox::Delete(mailbox.Inbox(), id), S_OK);

    RowSet rows;
    ASSERT_EQ(ContentsOf(mailbox.Inbox())->QueryRows(2, 0, rows.Put()), S_OK);
    ASSERT_EQ(rows.size(), 1u);
    const BinaryValue copyId = BinaryOf(rows[0], PR_ENTRYID);
    const ComPtr<IMessage> copy = mailbox.OpenMessage(copyId, 0);
    EXPECT_EQ(ReadStream(*copy, kPrHtml), Pattern(kLargeValue));
    EXPECT_EQ(AttachmentData(*copy, number), Pattern(kLargeValue, 1));
    EXPECT_EQ(CountRows("large_value"), 3);

    ASSERT_EQ(TestMailbox::Delete(mailbox.Inbox(), copyId), S_OK);
    for (const char* const table : {"message", "part", "large_value", "chunk"})
        EXPECT_EQ(CountRows(table), 0) << table;
}

TEST_F(StoreMessageTest, AnAttachmentReadAfterSomeoneReplacedItIsTheOldOneOrFails)
{
    const ComPtr<IMessage> message = NewMessage();
    const ULONG number = AddAttachment(*message, Pattern(kLargeValue));
    const BinaryValue id = Save(*message);
    const ComPtr<IMessage> old = mailbox.OpenMessage(id, 0);
    ComPtr<IAttach> attachment;
    ASSERT_EQ(old->OpenAttach(number, nullptr, 0, attachment.Put()), S_OK);
    ComPtr<IStream> stream;
    ASSERT_EQ(attachment->OpenProperty(PR_ATTACH_DATA_BIN, &IID_IStream, 0, 0, stream.PutUnknown()), S_OK);

    const ComPtr<IMessage> opened = mailbox.OpenMessage(id);
    ASSERT_EQ(opened->DeleteAttach(number, 0, nullptr, 0), S_OK);
    AddAttachment(*opened, Pattern(kLargeValue, 9));
    Save(*opened);

    BYTE byte = 0;
    ULONG read = 0;
    EXPECT_EQ(stream->Read(&byte, 1, &read), MAPI_E_OBJECT_CHANGED);
    EXPECT_EQ(read, 0u);
}

TEST_F(StoreMessageTest, RecipientsComeBackInOrder)
{
    const ComPtr<IMessage> message = NewMessage();
    SPropValue values[2][2] = {};
    const LPWSTR names[] = {const_cast<LPWSTR>(OLESTR("Zoe")), const_cast<LPWSTR>(OLESTR("Adam"))};
    std::vector<BYTE> memory(CbNewADRLIST(2));
    auto* const list = reinterpret_cast<LPADRLIST>(memory.data());
    list->cEntries = 2;
    for (int i = 0; i < 2; ++i) {
        values[i][0].ulPropTag = PR_DISPLAY_NAME_W;
        values[i][0].Value.lpszW = names[i];
        values[i][1].ulPropTag = PR_RECIPIENT_TYPE;
        values[i][1].Value.l = MAPI_TO;
        list->aEntries[i] = {0, 2, values[i]};
    }
    ASSERT_EQ(message->ModifyRecipients(MODRECIP_ADD, list), S_OK);
    const BinaryValue id = Save(*message);

    const ComPtr<IMessage> opened = mailbox.OpenMessage(id, 0);
    ComPtr<IMAPITable> table;
    ASSERT_EQ(opened->GetRecipientTable(MAPI_UNICODE, table.Put()), S_OK);
    RowSet rows;
    ASSERT_EQ(table->QueryRows(10, 0, rows.Put()), S_OK);
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(TextOf(rows[0], PR_DISPLAY_NAME_W), OLESTR("Zoe"));
    EXPECT_EQ(TextOf(rows[1], PR_DISPLAY_NAME_W), OLESTR("Adam"));
    EXPECT_EQ(TextOf(*opened, PR_DISPLAY_TO_W), OLESTR("Zoe; Adam"));
}

TEST_F(StoreMessageTest, NamedPropertiesKeepTheirIdentifiersAcrossSessions)
{
    GUID set = PS_PUBLIC_STRINGS;
    MAPINAMEID name{};
    name.lpguid = &set;
    name.ulKind = MNID_STRING;
    name.Kind.lpwstrName = const_cast<LPWSTR>(OLESTR("Sharing"));
    LPMAPINAMEID names[] = {&name};
    MapiBuffer<SPropTagArray> first;
    ASSERT_EQ(NewMessage()->GetIDsFromNames(1, names, MAPI_CREATE, first.Put()), S_OK);
    EXPECT_GE(PROP_ID(first->aulPropTag[0]), kFirstNamedId);
    core.reset();
    mailbox.LogOff();
    mailbox.LogOn();

    MapiBuffer<SPropTagArray> second;
    ASSERT_EQ(NewMessage()->GetIDsFromNames(1, names, 0, second.Put()), S_OK);
    EXPECT_EQ(PROP_ID(second->aulPropTag[0]), PROP_ID(first->aulPropTag[0]));
}

TEST_F(StoreMessageTest, AnEmptyNameIsANameToo)
{
    GUID set = PS_PUBLIC_STRINGS;
    MAPINAMEID name{};
    name.lpguid = &set;
    name.ulKind = MNID_STRING;
    name.Kind.lpwstrName = const_cast<LPWSTR>(OLESTR(""));
    LPMAPINAMEID names[] = {&name};
    MapiBuffer<SPropTagArray> first;
    ASSERT_EQ(NewMessage()->GetIDsFromNames(1, names, MAPI_CREATE, first.Put()), S_OK);
    core.reset();
    mailbox.LogOff();
    mailbox.LogOn();

    MapiBuffer<SPropTagArray> second;
    const ComPtr<IMessage> message = NewMessage();
    ASSERT_EQ(message->GetIDsFromNames(1, names, 0, second.Put()), S_OK);
    EXPECT_EQ(PROP_ID(second->aulPropTag[0]), PROP_ID(first->aulPropTag[0]));
    LPSPropTagArray tags = second.Get();
    ULONG count = 0;
    LPMAPINAMEID* found = nullptr;
    ASSERT_EQ(message->GetNamesFromIDs(&tags, nullptr, 0, &count, &found), S_OK);
    const MapiBuffer<LPMAPINAMEID> freed(found);
    ASSERT_EQ(count, 1u);
    EXPECT_EQ(found[0]->ulKind, static_cast<ULONG>(MNID_STRING));
    EXPECT_EQ(OleStringView(found[0]->Kind.lpwstrName), OLESTR(""));
}

TEST_F(StoreMessageTest, ATimeThatIsToldBeforeTheContentIsReadIsThatOfTheContentAfterwards)
{
    const BinaryValue id = mailbox.AddMessage(mailbox.Inbox(), OLESTR("Old"));
    const ComPtr<IMessage> message = mailbox.OpenMessage(id);
    const std::uint64_t opened = TimeOf(*message, PR_LAST_MODIFICATION_TIME);
    mailbox.ChangeSubject(id, OLESTR("New"));

    EXPECT_EQ(TimeOf(*message, PR_LAST_MODIFICATION_TIME), opened);
    EXPECT_EQ(TextOf(*message, PR_SUBJECT_W), OLESTR("New"));
    EXPECT_GT(TimeOf(*message, PR_LAST_MODIFICATION_TIME), opened);
}

TEST_F(StoreMessageTest, TimesAndFlagsOfASavedMessageAreThoseOfTheSaveWhoeverSavesItNext)
{
    const ComPtr<IMessage> message = NewMessage();
    AddAttachment(*message, Pattern(10));
    const BinaryValue id = Save(*message);
    const std::uint64_t saved = TimeOf(*mailbox.OpenMessage(id, 0), PR_LAST_MODIFICATION_TIME);
    mailbox.ChangeSubject(id, OLESTR("Other"));

    EXPECT_EQ(TimeOf(*message, PR_LAST_MODIFICATION_TIME), saved);
    EXPECT_EQ(LongOf(*message, PR_MESSAGE_FLAGS), static_cast<LONG>(MSGFLAG_UNSENT | MSGFLAG_HASATTACH));
}

TEST_F(StoreMessageTest, FlagsFollowWhatWasntSavedYet)
{
    const ComPtr<IMessage> message = NewMessage();
    const BinaryValue id = Save(*message);
    EXPECT_EQ(LongOf(*message, PR_MESSAGE_FLAGS) & MSGFLAG_HASATTACH, 0);

    AddAttachment(*message, Pattern(10));

    EXPECT_NE(LongOf(*message, PR_MESSAGE_FLAGS) & MSGFLAG_HASATTACH, 0);
    EXPECT_EQ(LongOf(*mailbox.OpenMessage(id, 0), PR_MESSAGE_FLAGS) & MSGFLAG_HASATTACH, 0);
}

TEST_F(StoreMessageTest, EverySaveGivesAChangeKeyOfItsOwn)
{
    const ComPtr<IMessage> message = NewMessage();
    std::set<BinaryValue> keys;
    for (const OleStringView subject : {OLESTR("a"), OLESTR("b"), OLESTR("c"), OLESTR("d")}) {
        ASSERT_EQ(SetText(*message, PR_SUBJECT_W, OleString(subject)), S_OK);
        Save(*message);
        keys.insert(BinaryOf(*message, kPrChangeKey));
    }
    EXPECT_EQ(keys.size(), 4u);
}

TEST_F(StoreMessageTest, AMessageOfADeletedFolderCantBeSaved)
{
    const ComPtr<IMAPIFolder> folder = mailbox.MakeFolder(mailbox.Inbox(), "Gone");
    ComPtr<IMessage> message;
    ASSERT_EQ(folder->CreateMessage(nullptr, 0, message.Put()), S_OK);
    ASSERT_EQ(SetText(*message, PR_SUBJECT_W, OLESTR("Hello")), S_OK);
    BinaryValue id = BinaryOf(*folder, PR_ENTRYID);
    ASSERT_EQ(mailbox.Inbox().DeleteFolder(static_cast<ULONG>(id.size()),
                                           reinterpret_cast<LPENTRYID>(id.data()), 0, nullptr, 0),
              S_OK);

    EXPECT_EQ(message->SaveChanges(0), MAPI_E_OBJECT_DELETED);
    EXPECT_EQ(CountRows("message"), 0);
}

TEST_F(StoreMessageTest, ASavedMessageIsSeenInItsFoldersTableByItsColumns)
{
    const ComPtr<IMessage> message = NewMessage();
    ASSERT_EQ(SetText(*message, PR_SENDER_NAME_W, OLESTR("Zoe")), S_OK);
    AddAttachment(*message, Pattern(10));
    Save(*message);

    RowSet rows;
    ASSERT_EQ(ContentsOf(mailbox.Inbox(), MAPI_UNICODE)->QueryRows(1, 0, rows.Put()), S_OK);
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(TextOf(rows[0], PR_SENDER_NAME_W), OLESTR("Zoe"));
    EXPECT_EQ(TextOf(rows[0], PR_NORMALIZED_SUBJECT_W), OLESTR("Hello"));
    EXPECT_NE(PpropFindProp(rows[0].lpProps, rows[0].cValues, PR_HASATTACH)->Value.b, 0);
    EXPECT_EQ(PpropFindProp(rows[0].lpProps, rows[0].cValues, PR_MESSAGE_SIZE)->Value.l,
              LongOf(*message, PR_MESSAGE_SIZE));
}

// As docs/message-store.md shows it: others read the file by that.
TEST_F(StoreMessageTest, ADumpOfAMessageIsWhatThePageShows)
{
    const ComPtr<IMessage> message = NewMessage();
    EXPECT_EQ(SetText(*message, PR_MESSAGE_CLASS_W, OLESTR("IPM.Note")), S_OK);
    EXPECT_EQ(SetText(*message, PR_SUBJECT_W, OLESTR("Re: Plan")), S_OK);
    SPropValue recipient[2] = {};
    recipient[0].ulPropTag = PR_RECIPIENT_TYPE;
    recipient[0].Value.l = MAPI_TO;
    recipient[1].ulPropTag = PR_DISPLAY_NAME_W;
    OleString name = OLESTR("Zoe");
    recipient[1].Value.lpszW = name.data();
    ADRLIST list = {1, {{0, 2, recipient}}};
    ASSERT_EQ(message->ModifyRecipients(MODRECIP_ADD, &list), S_OK);
    AddAttachment(*message, Pattern(50000));
    ASSERT_EQ(message->SaveChanges(0), S_OK);

    // The time and the search key are drawn.
    const std::string run = Text("SELECT hex(properties) FROM part WHERE id=1");
    ASSERT_EQ(run.size(), 2u * (16 + 16 + 12 + 16 + 24));
    EXPECT_EQ(run.substr(0, 2 * 44),
              "1F401A000800000049504D2E4E6F7465"
              "1F4037000800000052653A20506C616E"
              "0300070E0400000018000000");
    EXPECT_EQ(run.substr(2 * 44, 2 * 8), "4000073008000000");
    EXPECT_EQ(run.substr(2 * 60, 2 * 8), "02010B3010000000");
    EXPECT_EQ(Text("SELECT hex(properties) FROM part WHERE id=2"), "030005370400000001000000");
    EXPECT_EQ(Text("SELECT hex(recipients) FROM part WHERE id=1"),
              "0100000023000000"
              "0300150C0400000001000000"
              "030000300400000000000000"
              "1F400130030000005A6F65");
    EXPECT_EQ(Text("SELECT value_id||' '||number||' '||length(data) FROM chunk"), "1 0 50000");
    EXPECT_EQ(Text("SELECT number||' '||event||' '||kind||' '||object_id||' '||parent_id FROM change"),
              "1 4 5 1 3");
    EXPECT_EQ(Number("SELECT size FROM message"), 50078);
}

}  // namespace
}  // namespace quorvane
