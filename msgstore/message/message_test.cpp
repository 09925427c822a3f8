#include "msgstore/message/message.h"

#include "msgstore/message/message_fixture.h"
#include "msgstore/message/subject.h"
#include "platform/mapi/more_tags.h"
#include "quorvane3/message_store.h"

namespace quorvane {
namespace {

class RecipientsTest : public MessageTest {
protected:
    // The PR_ROWIDs of all recipients.
    std::vector<LONG> Ids()
    {
        ComPtr<IMAPITable> table;
        RowSet rows;
        SPropTagArray column{1, {PR_ROWID}};
        EXPECT_EQ(message_->GetRecipientTable(0, table.Put()), S_OK);
        EXPECT_EQ(HrQueryAllRows(table.Get(), &column, nullptr, nullptr, 0, rows.Put()), S_OK);
        std::vector<LONG> ids;
        for (const SRow& row : rows)
            ids.push_back(row.lpProps[0].Value.l);
        return ids;
    }
};

TEST_F(RecipientsTest, EachGetsARowIdOfItsOwn)
{
    say::Recipient(*message_, MAPI_TO, OLESTR("Ann"));
    say::Recipient(*message_, MAPI_CC, OLESTR("Ben"));
    EXPECT_EQ(Ids(), (std::vector<LONG>{0, 1}));
    Reopen();
    say::Recipient(*message_, MAPI_TO, OLESTR("Cid"));
    EXPECT_EQ(Ids(), (std::vector<LONG>{0, 1, 2}));
}

TEST_F(RecipientsTest, NamesAreListedByKind)
{
    say::Recipient(*message_, MAPI_TO, OLESTR("Ann"));
    say::Recipient(*message_, MAPI_CC, OLESTR("Ben"));
    say::Recipient(*message_, MAPI_TO, OLESTR("Cid"));
    EXPECT_EQ(say::TextOf(*message_, PR_DISPLAY_TO_W), OLESTR("Ann; Cid"));
    EXPECT_EQ(say::TextOf(*message_, PR_DISPLAY_CC_W), OLESTR("Ben"));
    EXPECT_EQ(say::TextOf(*message_, PR_DISPLAY_BCC_W), OLESTR(""));
}

TEST_F(RecipientsTest, WhatBecameOfAnEarlierTryToSendDoesNotCountForTheKind)
{
    constexpr ULONG kSent = 0x80000000;
    constexpr ULONG kToBeTriedAgain = 0x10000000;
    say::Recipient(*message_, static_cast<LONG>(MAPI_TO | kSent), OLESTR("Ann"));
    say::Recipient(*message_, static_cast<LONG>(MAPI_TO | kToBeTriedAgain), OLESTR("Ben"));
    say::Recipient(*message_, static_cast<LONG>(MAPI_CC | kSent), OLESTR("Cid"));
    EXPECT_EQ(say::TextOf(*message_, PR_DISPLAY_TO_W), OLESTR("Ann; Ben"));
    EXPECT_EQ(say::TextOf(*message_, PR_DISPLAY_CC_W), OLESTR("Cid"));
}

TEST_F(RecipientsTest, RowsFromTheTableRemoveThem)
{
    for (int i = 0; i < 3; ++i)
        say::Recipient(*message_, MAPI_TO, OLESTR("Ann"));
    ComPtr<IMAPITable> table;
    RowSet rows;
    SPropTagArray column{1, {PR_ROWID}};
    ASSERT_EQ(message_->GetRecipientTable(0, table.Put()), S_OK);
    ASSERT_EQ(HrQueryAllRows(table.Get(), &column, nullptr, nullptr, 0, rows.Put()), S_OK);
    ASSERT_EQ(message_->ModifyRecipients(MODRECIP_REMOVE, reinterpret_cast<LPADRLIST>(rows.Get())), S_OK);
    EXPECT_EQ(say::Recipients(*message_), 0u);
    EXPECT_EQ(message_->ModifyRecipients(MODRECIP_REMOVE, reinterpret_cast<LPADRLIST>(rows.Get())), S_OK);
}

TEST_F(RecipientsTest, OneIsReplacedByItsRowId)
{
    say::Recipient(*message_, MAPI_TO, OLESTR("Ann"));
    say::Recipient(*message_, MAPI_TO, OLESTR("Ben"));
    OleString name(OLESTR("Bea"));
    SPropValue values[2] = {};
    values[0].ulPropTag = PR_ROWID;
    values[0].Value.l = 1;
    values[1].ulPropTag = PR_DISPLAY_NAME_W;
    values[1].Value.lpszW = name.data();
    ADRLIST list{1, {{0, 2, values}}};
    ASSERT_EQ(message_->ModifyRecipients(MODRECIP_MODIFY, &list), S_OK);
    EXPECT_EQ(say::TextOf(*message_, PR_DISPLAY_TO_W), OLESTR("Ann; Bea"));
    values[0].Value.l = 9;
    EXPECT_EQ(message_->ModifyRecipients(MODRECIP_MODIFY, &list), MAPI_E_INVALID_PARAMETER);
}

TEST_F(RecipientsTest, NoFlagsReplacesAll)
{
    say::Recipient(*message_, MAPI_TO, OLESTR("Ann"));
    ADRLIST none{0, {}};
    ASSERT_EQ(message_->ModifyRecipients(0, &none), S_OK);
    EXPECT_EQ(say::Recipients(*message_), 0u);
    EXPECT_EQ(message_->ModifyRecipients(3, &none), MAPI_E_UNKNOWN_FLAGS);
    EXPECT_EQ(message_->ModifyRecipients(0, nullptr), MAPI_E_INVALID_PARAMETER);
}

TEST_F(RecipientsTest, StoredNamesStandInWhileThereAreNoRecipients)
{
    say::Text(*message_, PR_DISPLAY_TO_W, OLESTR("everybody"));
    EXPECT_EQ(say::TextOf(*message_, PR_DISPLAY_TO_W), OLESTR("everybody"));
    say::Recipient(*message_, MAPI_TO, OLESTR("Ann"));
    EXPECT_EQ(say::TextOf(*message_, PR_DISPLAY_TO_W), OLESTR("Ann"));
    EXPECT_EQ(say::Number(*message_, CHANGE_PROP_TYPE(PR_DISPLAY_TO, PT_LONG), 1), MAPI_E_COMPUTED);
}

class AttachmentsTest : public MessageTest {};

TEST_F(AttachmentsTest, OneShowsWhenItsSaved)
{
    ULONG number = 99;
    ComPtr<IAttach> attachment;
    ASSERT_EQ(message_->CreateAttach(nullptr, 0, &number, attachment.Put()), S_OK);
    EXPECT_EQ(number, 0u);
    EXPECT_EQ(say::Attachments(*message_), 0u);
    ASSERT_EQ(attachment->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    EXPECT_EQ(say::Attachments(*message_), 1u);
}

TEST_F(AttachmentsTest, EachStandsAtItsNumberInWhateverOrderTheyAreSaved)
{
    constexpr ULONG kCount = 5;
    std::vector<ComPtr<IAttach>> made(kCount);
    const auto nameOf = [](ULONG number) { return OleString(1, static_cast<OLECHAR>('a' + number)); };
    for (ULONG i = 0; i < kCount; ++i) {
        ULONG number = 0;
        ASSERT_EQ(message_->CreateAttach(nullptr, 0, &number, made[i].Put()), S_OK);
        ASSERT_EQ(number, i);
        say::Text(*made[i], PR_ATTACH_LONG_FILENAME_W, nameOf(i).c_str());
    }
    for (const ULONG number : {3U, 0U, 4U, 2U, 1U})
        ASSERT_EQ(made[number]->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    ASSERT_EQ(message_->DeleteAttach(2, 0, nullptr, 0), S_OK);
    const auto expectEach = [&](IMessage& message) {
        for (ULONG number = 0; number <= kCount; ++number) {
            ComPtr<IAttach> attachment;
            const bool isThere = number != 2 && number != kCount;
            ASSERT_EQ(message.OpenAttach(number, nullptr, 0, attachment.Put()),
                      isThere ? S_OK : MAPI_E_NOT_FOUND)
                << number;
            if (isThere) {
                EXPECT_EQ(say::TextOf(*attachment, PR_ATTACH_LONG_FILENAME_W), nameOf(number));
            }
        }
    };
    expectEach(*message_);
    ASSERT_EQ(message_->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    MessageImage image = *backend_->image();
    ASSERT_TRUE(std::is_sorted(image.attachments.begin(), image.attachments.end(),
                               [](const auto& a, const auto& b) { return a.number < b.number; }));
    // As a damaged store may give them.
    std::reverse(image.attachments.begin(), image.attachments.end());
    ASSERT_EQ(backend_->Save(image, 0), S_OK);
    expectEach(*Open(backend_));
}

TEST_F(AttachmentsTest, OneIsPermanentWhenTheMessageIsSaved)
{
    say::Attachment(*message_, OLESTR("a.txt"), "data");
    EXPECT_EQ(say::Attachments(*Open(backend_)), 0u);
    Reopen();
    ComPtr<IAttach> attachment;
    ASSERT_EQ(message_->OpenAttach(0, nullptr, 0, attachment.Put()), S_OK);
    EXPECT_EQ(say::TextOf(*attachment, PR_ATTACH_LONG_FILENAME_W), OLESTR("a.txt"));
    EXPECT_EQ(say::Read(*attachment, PR_ATTACH_DATA_BIN), "data");
}

TEST_F(AttachmentsTest, ChangesThatArentSavedDontShow)
{
    say::Attachment(*message_, OLESTR("a.txt"), "data");
    ComPtr<IAttach> attachment;
    ASSERT_EQ(message_->OpenAttach(0, nullptr, MAPI_MODIFY, attachment.Put()), S_OK);
    say::Text(*attachment, PR_ATTACH_LONG_FILENAME_W, OLESTR("b.txt"));
    attachment.Reset();
    ASSERT_EQ(message_->OpenAttach(0, nullptr, 0, attachment.Put()), S_OK);
    EXPECT_EQ(say::TextOf(*attachment, PR_ATTACH_LONG_FILENAME_W), OLESTR("a.txt"));
}

TEST_F(AttachmentsTest, OneOpenedForReadingCantBeWritten)
{
    say::Attachment(*message_, OLESTR("a.txt"), "data");
    ComPtr<IAttach> attachment;
    ASSERT_EQ(message_->OpenAttach(0, nullptr, 0, attachment.Put()), S_OK);
    EXPECT_EQ(say::Number(*attachment, PR_RENDERING_POSITION, 1), E_ACCESSDENIED);
    EXPECT_EQ(attachment->SaveChanges(0), E_ACCESSDENIED);
}

TEST_F(AttachmentsTest, NumbersArentUsedTwice)
{
    EXPECT_EQ(say::Attachment(*message_, OLESTR("a"), "a"), 0u);
    EXPECT_EQ(say::Attachment(*message_, OLESTR("b"), "b"), 1u);
    ASSERT_EQ(message_->DeleteAttach(1, 0, nullptr, 0), S_OK);
    EXPECT_EQ(message_->DeleteAttach(1, 0, nullptr, 0), MAPI_E_NOT_FOUND);
    EXPECT_EQ(say::Attachment(*message_, OLESTR("c"), "c"), 2u);
    ComPtr<IAttach> attachment;
    EXPECT_EQ(message_->OpenAttach(1, nullptr, 0, attachment.Put()), MAPI_E_NOT_FOUND);
}

TEST_F(AttachmentsTest, OneKnowsItsNumber)
{
    say::Attachment(*message_, OLESTR("a"), "a");
    say::Attachment(*message_, OLESTR("b"), "b");
    ComPtr<IAttach> attachment;
    ASSERT_EQ(message_->OpenAttach(1, nullptr, 0, attachment.Put()), S_OK);
    EXPECT_EQ(say::NumberOf(*attachment, PR_ATTACH_NUM), 1);
}

TEST_F(AttachmentsTest, TheirTableAndThatOfTheRecipientsAreObjectsOfTheMessageToo)
{
    say::Attachment(*message_, OLESTR("a"), "a");
    say::Attachment(*message_, OLESTR("b"), "b");
    say::Recipient(*message_, MAPI_TO, OLESTR("Ann"));
    const auto rows = [&](ULONG tag) {
        ComPtr<IMAPITable> table;
        ULONG count = 0;
        EXPECT_EQ(message_->OpenProperty(tag, &IID_IMAPITable, 0, 0, table.PutUnknown()), S_OK);
        return table && SUCCEEDED(table->GetRowCount(0, &count)) ? count : 99;
    };
    EXPECT_EQ(rows(PR_MESSAGE_ATTACHMENTS), 2u);
    EXPECT_EQ(rows(PR_MESSAGE_RECIPIENTS), 1u);
    ComPtr<IMAPITable> none;
    EXPECT_EQ(message_->OpenProperty(PROP_TAG(PT_OBJECT, 0x3FF9), &IID_IMAPITable, 0, 0, none.PutUnknown()),
              MAPI_E_NOT_FOUND);
}

TEST_F(AttachmentsTest, TheRowOfOneIsFoundAgainByItsKeys)
{
    say::Attachment(*message_, OLESTR("a"), "a");
    say::Attachment(*message_, OLESTR("b"), "b");
    ComPtr<IMAPITable> table;
    ASSERT_EQ(message_->GetAttachmentTable(0, table.Put()), S_OK);
    SizedSPropTagArray(2, tags) = {2, {PR_RECORD_KEY, PR_INSTANCE_KEY}};
    ASSERT_EQ(table->SetColumns(reinterpret_cast<LPSPropTagArray>(&tags), 0), S_OK);
    RowSet rows;
    ASSERT_EQ(table->QueryRows(9, 0, rows.Put()), S_OK);
    ASSERT_EQ(rows.size(), 2u);
    BYTE number = 0;
    for (const SRow& row : rows) {
        for (ULONG column = 0; column < 2; ++column) {
            ASSERT_EQ(row.lpProps[column].ulPropTag, tags.aulPropTag[column]);
            const SBinary& key = row.lpProps[column].Value.bin;
            EXPECT_EQ(std::vector<BYTE>(key.lpb, key.lpb + key.cb), (std::vector<BYTE>{number, 0, 0, 0}));
        }
        ++number;
    }
}

TEST_F(AttachmentsTest, SavingADeletedOneIsRefused)
{
    say::Attachment(*message_, OLESTR("a"), "a");
    ComPtr<IAttach> attachment;
    ASSERT_EQ(message_->OpenAttach(0, nullptr, MAPI_MODIFY, attachment.Put()), S_OK);
    EXPECT_EQ(say::Number(*attachment, PR_RENDERING_POSITION, 1), S_OK);
    ASSERT_EQ(message_->DeleteAttach(0, 0, nullptr, 0), S_OK);
    EXPECT_EQ(attachment->SaveChanges(0), MAPI_E_OBJECT_DELETED);
}

TEST_F(AttachmentsTest, TheMessageTellsOfVisibleOnes)
{
    EXPECT_EQ(say::NumberOf(*message_, PR_HASATTACH) & 1, 0);
    const ULONG number = say::Attachment(*message_, OLESTR("a"), "a");
    EXPECT_EQ(say::NumberOf(*message_, PR_HASATTACH) & 1, 1);
    EXPECT_NE(say::NumberOf(*message_, PR_MESSAGE_FLAGS) & static_cast<LONG>(MSGFLAG_HASATTACH), 0);
    ComPtr<IAttach> attachment;
    ASSERT_EQ(message_->OpenAttach(number, nullptr, MAPI_MODIFY, attachment.Put()), S_OK);
    SPropValue hidden{};
    hidden.ulPropTag = kPrAttachmentHidden;
    hidden.Value.b = 1;
    ASSERT_EQ(HrSetOneProp(attachment.Get(), &hidden), S_OK);
    ASSERT_EQ(attachment->SaveChanges(0), S_OK);
    EXPECT_EQ(say::NumberOf(*message_, PR_HASATTACH) & 1, 0);
}

TEST_F(AttachmentsTest, SizesCountAllThatIsInside)
{
    const LONG before = say::NumberOf(*message_, PR_MESSAGE_SIZE);
    say::Attachment(*message_, OLESTR("a"), std::string(200000, 'x'));
    EXPECT_GE(say::NumberOf(*message_, PR_MESSAGE_SIZE), before + 200000);
}

TEST_F(AttachmentsTest, TheSizeLeavesOutWhatTheMessageWasMadeOf)
{
    const LONG before = say::NumberOf(*message_, PR_MESSAGE_SIZE);
    const std::string bytes(200000, 'x');
    const auto put = [&](const GUID& set, const OLECHAR* name) {
        SPropValue value{};
        value.ulPropTag = CHANGE_PROP_TYPE(say::NamedId(*message_, set, name), PT_BINARY);
        value.Value.bin = {static_cast<ULONG>(bytes.size()),
                           reinterpret_cast<BYTE*>(const_cast<char*>(bytes.data()))};
        EXPECT_EQ(HrSetOneProp(message_.Get(), &value), S_OK);
    };
    put(kOriginalMailSet, kOriginalMailName);
    EXPECT_EQ(say::NumberOf(*message_, PR_MESSAGE_SIZE), before);
    put(kOriginalMailSet, OLESTR("Another"));
    EXPECT_GE(say::NumberOf(*message_, PR_MESSAGE_SIZE), before + 200000);
    put(PS_PUBLIC_STRINGS, kOriginalMailName);
    EXPECT_GE(say::NumberOf(*message_, PR_MESSAGE_SIZE), before + 400000);
}

class EmbeddedTest : public MessageTest {
protected:
    // Creates an attachment with a new message in it, both left open.
    void Create()
    {
        ULONG number = 0;
        ASSERT_EQ(message_->CreateAttach(nullptr, 0, &number, attachment_.Put()), S_OK);
        ASSERT_EQ(say::Number(*attachment_, PR_ATTACH_METHOD, ATTACH_EMBEDDED_MSG), S_OK);
        ASSERT_EQ(attachment_->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, MAPI_CREATE | MAPI_MODIFY,
                                            inner_.PutUnknown()),
                  S_OK);
    }

    // Opens the message in attachment 0 again.
    void OpenInner(ULONG flags = 0)
    {
        ASSERT_EQ(message_->OpenAttach(0, nullptr, flags, attachment_.Put()), S_OK);
        ASSERT_EQ(attachment_->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, flags, inner_.PutUnknown()),
                  S_OK);
    }

    ComPtr<IAttach> attachment_;
    ComPtr<IMessage> inner_;
};

TEST_F(EmbeddedTest, OneIsSavedThroughItsAttachmentAndItsMessage)
{
    Create();
    say::Text(*inner_, PR_SUBJECT_W, OLESTR("inner"));
    say::Recipient(*inner_, MAPI_TO, OLESTR("Ann"));
    say::Attachment(*inner_, OLESTR("deep"), "deep data");
    ASSERT_EQ(inner_->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    ASSERT_EQ(attachment_->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    Reopen();
    OpenInner();
    EXPECT_EQ(say::TextOf(*inner_, PR_SUBJECT_W), OLESTR("inner"));
    EXPECT_EQ(say::TextOf(*inner_, PR_DISPLAY_TO_W), OLESTR("Ann"));
    ComPtr<IAttach> deep;
    ASSERT_EQ(inner_->OpenAttach(0, nullptr, 0, deep.Put()), S_OK);
    EXPECT_EQ(say::Read(*deep, PR_ATTACH_DATA_BIN), "deep data");
}

TEST_F(EmbeddedTest, OneThatIsntSavedLeavesNoTrace)
{
    Create();
    say::Text(*inner_, PR_SUBJECT_W, OLESTR("inner"));
    ASSERT_EQ(attachment_->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    Reopen();
    ASSERT_EQ(message_->OpenAttach(0, nullptr, 0, attachment_.Put()), S_OK);
    EXPECT_EQ(attachment_->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, 0, inner_.PutUnknown()),
              MAPI_E_NOT_FOUND);
}

TEST_F(EmbeddedTest, OneIsChangedInPlace)
{
    Create();
    say::Text(*inner_, PR_SUBJECT_W, OLESTR("inner"));
    ASSERT_EQ(inner_->SaveChanges(0), S_OK);
    ASSERT_EQ(attachment_->SaveChanges(0), S_OK);
    Reopen();
    OpenInner(MAPI_MODIFY);
    say::Text(*inner_, PR_COMMENT_W, OLESTR("more"));
    ASSERT_EQ(inner_->SaveChanges(0), S_OK);
    ASSERT_EQ(attachment_->SaveChanges(0), S_OK);
    Reopen();
    OpenInner();
    EXPECT_EQ(say::TextOf(*inner_, PR_SUBJECT_W), OLESTR("inner"));
    EXPECT_EQ(say::TextOf(*inner_, PR_COMMENT_W), OLESTR("more"));
}

TEST_F(EmbeddedTest, DataTakesTheMessagesPlace)
{
    Create();
    ASSERT_EQ(inner_->SaveChanges(0), S_OK);
    say::Write(*attachment_, PR_ATTACH_DATA_BIN, "data");
    EXPECT_EQ(attachment_->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, 0, inner_.PutUnknown()),
              MAPI_E_NOT_FOUND);
    EXPECT_EQ(say::Read(*attachment_, PR_ATTACH_DATA_BIN), "data");
}

TEST_F(EmbeddedTest, DeletingTheObjectDropsTheMessage)
{
    Create();
    ASSERT_EQ(inner_->SaveChanges(0), S_OK);
    SPropTagArray tag{1, {PR_ATTACH_DATA_OBJ}};
    ASSERT_EQ(attachment_->DeleteProps(&tag, nullptr), S_OK);
    EXPECT_EQ(attachment_->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, 0, inner_.PutUnknown()),
              MAPI_E_NOT_FOUND);
}

TEST_F(EmbeddedTest, NestingHasAnEnd)
{
    ComPtr<IMessage> at = message_;
    HRESULT hr = S_OK;
    int depth = 0;
    for (; SUCCEEDED(hr) && depth < 1000; ++depth) {
        ULONG number = 0;
        ComPtr<IAttach> attachment;
        ComPtr<IMessage> inner;
        ASSERT_EQ(at->CreateAttach(nullptr, 0, &number, attachment.Put()), S_OK);
        hr = attachment->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, MAPI_CREATE | MAPI_MODIFY,
                                      inner.PutUnknown());
        at = inner;
    }
    EXPECT_EQ(hr, MAPI_E_TOO_COMPLEX);
    EXPECT_LT(depth, 100);
}

class SaveTest : public MessageTest {};

TEST_F(SaveTest, NothingIsPermanentBefore)
{
    say::Text(*message_, PR_SUBJECT_W, OLESTR("x"));
    EXPECT_EQ(backend_->saves(), 0u);
    ASSERT_EQ(message_->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    EXPECT_EQ(backend_->saves(), 1u);
}

TEST_F(SaveTest, AMessageWithoutChangesIsntWrittenAgain)
{
    ASSERT_EQ(message_->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    ASSERT_EQ(message_->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    EXPECT_EQ(backend_->saves(), 1u);
    ASSERT_EQ(message_->SaveChanges(KEEP_OPEN_READWRITE | FORCE_SAVE), S_OK);
    EXPECT_EQ(backend_->saves(), 2u);
}

TEST_F(SaveTest, ReadOnlyAfterwardsRefusesWrites)
{
    say::Attachment(*message_, OLESTR("a"), "a");
    say::Text(*message_, PR_SUBJECT_W, OLESTR("x"));
    ASSERT_EQ(message_->SaveChanges(KEEP_OPEN_READONLY), S_OK);
    EXPECT_EQ(say::TextOf(*message_, PR_SUBJECT_W), OLESTR("x"));
    EXPECT_EQ(say::Number(*message_, PR_IMPORTANCE, 1), E_ACCESSDENIED);
    EXPECT_EQ(message_->SetReadFlag(0), E_ACCESSDENIED);
    EXPECT_EQ(message_->SaveChanges(KEEP_OPEN_READWRITE), E_ACCESSDENIED);
    EXPECT_EQ(message_->DeleteAttach(0, 0, nullptr, 0), E_ACCESSDENIED);
    ADRLIST none{0, {}};
    EXPECT_EQ(message_->ModifyRecipients(0, &none), E_ACCESSDENIED);
    EXPECT_EQ(say::NumberOf(*message_, PR_ACCESS_LEVEL), 0);
}

TEST_F(SaveTest, AFailedOneKeepsTheChangesForTheNext)
{
    say::Text(*message_, PR_SUBJECT_W, OLESTR("x"));
    say::Recipient(*message_, MAPI_TO, OLESTR("Ann"));
    say::Attachment(*message_, OLESTR("a"), "a");
    backend_->FailSaves(MAPI_E_NOT_ENOUGH_DISK);
    EXPECT_EQ(message_->SaveChanges(KEEP_OPEN_READWRITE), MAPI_E_NOT_ENOUGH_DISK);
    backend_->FailSaves(S_OK);
    Reopen();
    EXPECT_EQ(say::TextOf(*message_, PR_SUBJECT_W), OLESTR("x"));
    EXPECT_EQ(say::Recipients(*message_), 1u);
    EXPECT_EQ(say::Attachments(*message_), 1u);
}

TEST_F(SaveTest, AnImageTellsWhatChanged)
{
    say::Recipient(*message_, MAPI_TO, OLESTR("Ann"));
    ASSERT_EQ(message_->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    EXPECT_TRUE(backend_->image()->recipientsChanged);
    EXPECT_FALSE(backend_->image()->attachmentsChanged);
    say::Attachment(*message_, OLESTR("a"), "a");
    ASSERT_EQ(message_->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    EXPECT_FALSE(backend_->image()->recipientsChanged);
    EXPECT_TRUE(backend_->image()->attachmentsChanged);
    EXPECT_EQ(backend_->image()->computed.Find(PR_HASATTACH)->AsInteger(), 1);
    EXPECT_EQ(backend_->image()->computed.Find(PR_DISPLAY_TO_W)->AsText(), OLESTR("Ann"));
}

TEST_F(SaveTest, ASavedMessageHasASearchKeyAndATimeThatStay)
{
    ASSERT_EQ(message_->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    MapiBuffer<SPropValue> first;
    MapiBuffer<SPropValue> second;
    ASSERT_EQ(HrGetOneProp(message_.Get(), PR_SEARCH_KEY, first.Put()), S_OK);
    EXPECT_EQ(say::Find(*message_, PR_CREATION_TIME), S_OK);
    say::Text(*message_, PR_SUBJECT_W, OLESTR("x"));
    Reopen();
    ASSERT_EQ(HrGetOneProp(message_.Get(), PR_SEARCH_KEY, second.Put()), S_OK);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(first->Value.bin.lpb), 16),
              std::string(reinterpret_cast<char*>(second->Value.bin.lpb), 16));
}

TEST_F(SaveTest, SubmittingIsntSupported)
{
    EXPECT_EQ(message_->SubmitMessage(0), MAPI_E_NO_SUPPORT);
}

TEST_F(SaveTest, TheReleaseIsTold)
{
    int released = 0;
    ComPtr<IMessage> message;
    ASSERT_EQ(MakeMessage(
                  std::make_shared<MemoryBackend>(), true, [&] { ++released; }, message.Put()),
              S_OK);
    ULONG number = 0;
    ComPtr<IAttach> attachment;
    ASSERT_EQ(message->CreateAttach(nullptr, 0, &number, attachment.Put()), S_OK);
    message.Reset();
    EXPECT_EQ(released, 0);  // its attachment keeps it
    attachment.Reset();
    EXPECT_EQ(released, 1);
}

class ReadFlagTest : public MessageTest {
protected:
    bool IsRead()
    {
        return (say::NumberOf(*message_, PR_MESSAGE_FLAGS) & static_cast<LONG>(MSGFLAG_READ)) != 0;
    }
};

TEST_F(ReadFlagTest, ItIsSetAndCleared)
{
    ASSERT_EQ(message_->SetReadFlag(0), S_OK);
    EXPECT_TRUE(IsRead());
    Reopen();
    EXPECT_TRUE(IsRead());
    ASSERT_EQ(message_->SetReadFlag(CLEAR_READ_FLAG), S_OK);
    Reopen();
    EXPECT_FALSE(IsRead());
}

TEST_F(ReadFlagTest, FlagsThatExcludeEachOtherAreRefused)
{
    EXPECT_EQ(message_->SetReadFlag(CLEAR_READ_FLAG | SUPPRESS_RECEIPT), MAPI_E_INVALID_PARAMETER);
    EXPECT_EQ(message_->SetReadFlag(0x1000), MAPI_E_UNKNOWN_FLAGS);
}

TEST(SubjectTest, APrefixIsShortAndEndsInAColonAndASpace)
{
    EXPECT_EQ(SubjectPrefixLength(OLESTR("RE: x")), 4u);
    EXPECT_EQ(SubjectPrefixLength(OLESTR("R: x")), 3u);
    EXPECT_EQ(SubjectPrefixLength(OLESTR("\u56DE\u590D: x")), 4u);
    for (const auto* subject : {OLESTR("RE:x"), OLESTR("Note: x"), OLESTR("R2: x"), OLESTR(": x"),
                                OLESTR("RE:"), OLESTR(""), OLESTR("x")})
        EXPECT_EQ(SubjectPrefixLength(subject), 0u);
}

class SubjectPartsTest : public MessageTest {};

TEST_F(SubjectPartsTest, TheyFollowTheSubject)
{
    say::Text(*message_, PR_SUBJECT_W, OLESTR("RE: plan"));
    EXPECT_EQ(say::TextOf(*message_, PR_SUBJECT_PREFIX_W), OLESTR("RE: "));
    EXPECT_EQ(say::TextOf(*message_, PR_NORMALIZED_SUBJECT_W), OLESTR("plan"));
    say::Text(*message_, PR_NORMALIZED_SUBJECT_W, OLESTR("special"));
    EXPECT_EQ(say::TextOf(*message_, PR_NORMALIZED_SUBJECT_W), OLESTR("special"));
    say::Text(*message_, PR_SUBJECT_W, OLESTR("FW: other"));
    EXPECT_EQ(say::TextOf(*message_, PR_NORMALIZED_SUBJECT_W), OLESTR("other"));
}

}  // namespace
}  // namespace quorvane
