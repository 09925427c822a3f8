// Sending: what a message's SubmitMessage does in a store, and the status that a message has there.
#include <gtest/gtest.h>

#include "msgstore/store/store_message.h"
#include "msgstore/store/test_mailbox.h"

namespace quorvane {
namespace {

using namespace quorvane::testing;

class SubmitTest : public ::testing::Test {
protected:
    ComPtr<IMessage> NewMessage(const OleString& recipient = OLESTR("zoe"))
    {
        ComPtr<IMessage> made;
        EXPECT_EQ(mailbox.Inbox().CreateMessage(nullptr, 0, made.Put()), S_OK);
        EXPECT_EQ(SetText(*made, PR_SUBJECT_W, OLESTR("Hello")), S_OK);
        if (!recipient.empty())
            AddRecipient(*made, recipient);
        return made;
    }
    static void AddRecipient(IMessage& message, OleString name)
    {
        SPropValue values[2] = {};
        values[0].ulPropTag = PR_DISPLAY_NAME_W;
        values[0].Value.lpszW = name.data();
        values[1].ulPropTag = PR_RECIPIENT_TYPE;
        values[1].Value.l = MAPI_TO;
        ADRLIST list{1, {{0, 2, values}}};
        EXPECT_EQ(message.ModifyRecipients(MODRECIP_ADD, &list), S_OK);
    }
    std::vector<OleString> Subjects(IMAPIFolder& folder) { return SubjectsOf(*ContentsOf(folder)); }
    // The status of the message in its folder.
    ULONG Status(const BinaryValue& message)
    {
        BinaryValue id = message;
        ULONG status = 77;
        EXPECT_EQ(mailbox.Inbox().GetMessageStatus(static_cast<ULONG>(id.size()),
                                                   reinterpret_cast<LPENTRYID>(id.data()), 0, &status),
                  S_OK);
        return status;
    }
    void SetStatus(const BinaryValue& message, ULONG status)
    {
        BinaryValue id = message;
        EXPECT_EQ(
            mailbox.Inbox().SetMessageStatus(static_cast<ULONG>(id.size()),
                                             reinterpret_cast<LPENTRYID>(id.data()), status, ~0u, nullptr),
            S_OK);
    }

    TestMailbox mailbox;
    ComPtr<IMAPIFolder> outbox = mailbox.OpenFolder(BinaryOf(mailbox.Store(), PR_IPM_OUTBOX_ENTRYID));
};

TEST_F(SubmitTest, AMessageThatIsInTheStoreMovesToTheOutbox)
{
    const ComPtr<IMessage> message = NewMessage();
    ASSERT_EQ(message->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    const BinaryValue id = BinaryOf(*message, PR_ENTRYID);
    ASSERT_EQ(SetText(*message, PR_SUBJECT_W, OLESTR("Changed last")), S_OK);

    EXPECT_EQ(message->SubmitMessage(0), S_OK);

    EXPECT_TRUE(Subjects(mailbox.Inbox()).empty());
    EXPECT_EQ(Subjects(*outbox), std::vector<OleString>{OLESTR("Changed last")});
    const ComPtr<IMessage> sent = mailbox.OpenMessage(id);
    ASSERT_TRUE(sent) << "a move changes no identifier";
    EXPECT_EQ(static_cast<ULONG>(LongOf(*sent, PR_MESSAGE_FLAGS)), MSGFLAG_SUBMIT | MSGFLAG_UNSENT);
    EXPECT_NE(TimeOf(*sent, PR_CLIENT_SUBMIT_TIME), 0u);
    EXPECT_EQ(BinaryOf(*sent, PR_PARENT_ENTRYID), BinaryOf(*outbox, PR_ENTRYID));
    EXPECT_EQ(BinaryOf(*message, PR_PARENT_ENTRYID), BinaryOf(*outbox, PR_ENTRYID))
        << "the object that was used too";
}

TEST_F(SubmitTest, ANewMessageIsMadeInTheOutbox)
{
    const ComPtr<IMessage> message = NewMessage();

    EXPECT_EQ(message->SubmitMessage(FORCE_SUBMIT), S_OK);

    EXPECT_EQ(Subjects(*outbox), std::vector<OleString>{OLESTR("Hello")});
    EXPECT_TRUE(Subjects(mailbox.Inbox()).empty());
}

TEST_F(SubmitTest, SinksHearOfTheMove)
{
    const ComPtr<IMessage> message = NewMessage();
    ASSERT_EQ(message->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    const ComPtr<CTestSink> sink = MakeComObject<CTestSink>();
    ULONG connection = 0;
    ASSERT_EQ(mailbox.Store().Advise(0, nullptr, fnevObjectMoved, sink.Get(), &connection), S_OK);

    ASSERT_EQ(message->SubmitMessage(0), S_OK);

    EXPECT_TRUE(sink->WaitForCount(1));
    EXPECT_EQ(sink->Events().at(0).parent, BinaryOf(*outbox, PR_ENTRYID));
    EXPECT_EQ(sink->Events().at(0).oldParent, BinaryOf(mailbox.Inbox(), PR_ENTRYID));
    EXPECT_EQ(mailbox.Store().Unadvise(connection), S_OK);
}

TEST_F(SubmitTest, AMessageIsSubmittedOnce)
{
    const ComPtr<IMessage> message = NewMessage();
    ASSERT_EQ(message->SubmitMessage(0), S_OK);
    const auto first = TimeOf(*message, PR_CLIENT_SUBMIT_TIME);

    EXPECT_EQ(message->SubmitMessage(0), MAPI_E_SUBMITTED);

    EXPECT_EQ(TimeOf(*message, PR_CLIENT_SUBMIT_TIME), first);
}

TEST_F(SubmitTest, AMessageToNobodyStaysAsItWas)
{
    const ComPtr<IMessage> message = NewMessage(OleString());
    ASSERT_EQ(message->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    ASSERT_EQ(SetText(*message, PR_SUBJECT_W, OLESTR("Not saved yet")), S_OK);

    EXPECT_EQ(message->SubmitMessage(0), MAPI_E_NO_RECIPIENTS);

    EXPECT_EQ(TextOf(*message, PR_SUBJECT_W), OLESTR("Not saved yet"));
    EXPECT_EQ(static_cast<ULONG>(LongOf(*message, PR_MESSAGE_FLAGS)), MSGFLAG_UNSENT);
    EXPECT_EQ(Subjects(mailbox.Inbox()), std::vector<OleString>{OLESTR("Hello")});
    AddRecipient(*message, OLESTR("zoe"));
    EXPECT_EQ(message->SubmitMessage(0), S_OK);
    EXPECT_EQ(Subjects(*outbox), std::vector<OleString>{OLESTR("Not saved yet")});
}

TEST_F(SubmitTest, AMessageThatIsGoneIsNotSubmitted)
{
    const ComPtr<IMessage> message = NewMessage();
    ASSERT_EQ(message->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    ASSERT_EQ(TextOf(*message, PR_SUBJECT_W), OLESTR("Hello"));
    ASSERT_EQ(mailbox.Delete(mailbox.Inbox(), BinaryOf(*message, PR_ENTRYID)), S_OK);

    EXPECT_EQ(message->SubmitMessage(0), MAPI_E_OBJECT_DELETED);

    EXPECT_TRUE(Subjects(*outbox).empty());
    EXPECT_EQ(static_cast<ULONG>(LongOf(*message, PR_MESSAGE_FLAGS)), MSGFLAG_UNSENT);
}

TEST_F(SubmitTest, AMessageThatIsOpenForReadingOrAskedForMoreIsRefused)
{
    const ComPtr<IMessage> message = NewMessage();
    ASSERT_EQ(message->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    const ComPtr<IMessage> read = mailbox.OpenMessage(BinaryOf(*message, PR_ENTRYID), 0);

    EXPECT_EQ(read->SubmitMessage(0), E_ACCESSDENIED);
    EXPECT_EQ(message->SubmitMessage(0x10), MAPI_E_UNKNOWN_FLAGS);
    EXPECT_TRUE(Subjects(*outbox).empty());
}

TEST_F(SubmitTest, AMessageKnowsTheStatusThatItsFolderGaveIt)
{
    const BinaryValue id = mailbox.AddMessage(mailbox.Inbox(), OLESTR("Hello"));
    const ComPtr<IMessage> message = mailbox.OpenMessage(id);
    EXPECT_EQ(LongOf(*message, kPrMessageStatus), 0);

    SetStatus(id, 0x1004);

    EXPECT_EQ(LongOf(*message, kPrMessageStatus), 0x1004) << "as it is, and not as it was when it was opened";
}

TEST_F(SubmitTest, TheStatusIsTheFoldersToGive)
{
    const BinaryValue id = mailbox.AddMessage(mailbox.Inbox(), OLESTR("Hello"));
    const ComPtr<IMessage> message = mailbox.OpenMessage(id);
    SetStatus(id, 4);
    MapiBuffer<SPropProblemArray> problems;
    SPropValue value{};
    value.ulPropTag = kPrMessageStatus;
    value.Value.l = 8;

    EXPECT_EQ(message->SetProps(1, &value, problems.Put()), S_OK);

    ASSERT_TRUE(problems);
    EXPECT_EQ(problems->aProblem[0].scode, MAPI_E_COMPUTED);
    EXPECT_EQ(Status(id), 4u);
}

TEST_F(SubmitTest, TheStatusIsNotCopiedAndNotListed)
{
    const BinaryValue id = mailbox.AddMessage(mailbox.Inbox(), OLESTR("Hello"));
    const ComPtr<IMessage> message = mailbox.OpenMessage(id);
    SetStatus(id, 4);
    const ComPtr<IMessage> copy = NewMessage();
    ASSERT_EQ(message->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMessage, copy.Get(), 0, nullptr), S_OK);
    ASSERT_EQ(copy->SaveChanges(KEEP_OPEN_READWRITE), S_OK);

    EXPECT_EQ(LongOf(*copy, kPrMessageStatus), 0);
    MapiBuffer<SPropTagArray> tags;
    ASSERT_EQ(message->GetPropList(0, tags.Put()), S_OK);
    for (ULONG i = 0; i < tags->cValues; ++i)
        EXPECT_NE(PROP_ID(tags->aulPropTag[i]), PROP_ID(kPrMessageStatus));
}

}  // namespace
}  // namespace quorvane
