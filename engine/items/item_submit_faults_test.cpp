// Submit with a mailbox of which one call fails, each in turn: what is left after the failure, and what the
// next attempt makes of it.
#include "engine/items/testing/failing_mailbox.h"
#include "engine/items/testing/mail_test.h"
#include "engine/session/trace/testing/traced_lines.h"
#include "engine/storeaccess/hex.h"
#include "engine/storeaccess/mapi_functions.h"
#include "engine/storeaccess/mapi_memory.h"
#include "engine/storeaccess/objects_cache.h"

namespace quorvane {
namespace {

using testing::FailingCall;
using testing::MakeDetachedMessage;
using testing::TestMail;
using testing::TestMailbox;
using testing::TracedLines;

const TestMail kOld{"Old", "Old body", {"zed", "zoe"}, {"old.txt", "old2.txt"}};
const TestMail kNew{"New", "New body", {"ann", "bob"}, {"new.txt"}};

class SubmitFaultsTest : public testing::MailTest {
protected:
    SubmitFaultsTest()
    {
        EXPECT_EQ(session.Database().OpenSession(database), S_OK);
        session.mapiSession = testing::MakeFailingSession(mailbox.Session(), call);
    }

    // An item as a package carries it, placed as Load does; without a message it is a deletion.
    ComPtr<CItem> Arrived(bool hasMessage)
    {
        ComPtr<CItem> item = MakeItem(OLESTR("{A}"));
        item->m_bstrFolderEntryID = folder.entryId;
        item->m_bstrStoreID = mailbox.StoreId();
        EXPECT_GE(item->DBReadByID(database), 0);
        if (hasMessage) {
            const Bstr entryId = item->m_bstrEntryID;
            EXPECT_EQ(item->put_Raw(MakeDetachedMessage(kNew).Get()), S_OK);
            item->m_bstrEntryID = entryId;
        }
        return item;
    }

    HRESULT Submit(CItem& item)
    {
        CMapiObjectsCache cache(session.MapiSession());
        return publicForm ? item.Submit() : item.Submit(database, cache);
    }

    // The folder with nothing in it, or with one mail that is the item {A} here.
    void Prepare(bool known)
    {
        for (const Bstr& id : Mails())
            mailbox.Delete(*inbox, id);
        session.Execute("DELETE FROM tblItem");
        if (!known)
            return;
        const ComPtr<CItem> item = MakeItem(OLESTR("{A}"), *mailbox.AddMessage(*inbox, kOld));
        ASSERT_EQ(item->DBAppend(database), S_OK);
        session.HashStores().SetHash(item->m_bstrEntryID.Get(), Bstr(testing::kFolderId).Get(),
                                     item->Message());
        knownHash = HashOf(item->m_bstrEntryID);
    }

    std::vector<Bstr> Mails()
    {
        std::vector<Bstr> mails;
        ComPtr<IMAPITable> table;
        EXPECT_EQ(inbox->GetContentsTable(0, table.Put()), S_OK);
        SPropTagArray columns{1, {PR_ENTRYID}};
        RowSet rows;
        EXPECT_EQ(mapi::HrQueryAllRows(table.Get(), &columns, nullptr, nullptr, 0, rows.Put()), S_OK);
        for (const SRow& row : rows) {
            mails.emplace_back();
            EXPECT_EQ(HexFromBinary(row.lpProps[0].Value.bin, mails.back()), S_OK);
        }
        return mails;
    }

    static bool Is(IMessage& message, const TestMail& expected)
    {
        const TestMail mail = TestMailbox::Read(message);
        return mail.subject == expected.subject && mail.body == expected.body &&
               mail.recipients == expected.recipients && mail.attachments == expected.attachments;
    }

    // One mail is in the folder, and it is the item.
    void ExpectOnly(const TestMail& mail)
    {
        const std::vector<Bstr> mails = Mails();
        ASSERT_EQ(mails.size(), 1u);
        EXPECT_TRUE(Is(*mailbox.Open(mails[0]), mail));
        EXPECT_EQ(Rows(), Narrow(mails[0].View()));
    }
    void ExpectNothing()
    {
        EXPECT_TRUE(Mails().empty());
        EXPECT_EQ(Rows(), "NULL");
    }
    // The entry identifiers in the rows.
    std::string Rows() { return session.Ask("SELECT group_concat(EntryID) FROM tblItem WHERE ID='{A}'"); }

    void ExpectFree()
    {
        EXPECT_TRUE(session.ItemSubmitEvent().IsSet());
        ASSERT_TRUE(session.SubmitLock().TryLock());
        session.SubmitLock().Unlock();
    }

    // Submits an item again and again, the first call failing, the second, and so on until there are no more;
    // `judge` looks at each failure, and then the item comes once more.
    template <class Judge, class Expect>
    void FailEachCall(bool known, bool hasMessage, Judge judge, Expect expectDone)
    {
        for (unsigned at = 1;; ++at) {
            Prepare(known);
            const ComPtr<CItem> item = Arrived(hasMessage);
            HRESULT hr = E_FAIL;
            call->SetAt(at);
            const std::string lines = TracedLines([&] { hr = Submit(*item); });
            call->Clear();
            SCOPED_TRACE("call " + std::to_string(at) + ", " + call->Failed());
            ExpectFree();
            ExpectTraced(hr, lines);
            if (!call->Failed().empty() && judge(hr)) {
                EXPECT_GE(Submit(*Arrived(hasMessage)), 0);
            }
            expectDone();
            if (HasFailure() || call->Failed().empty()) {
                EXPECT_EQ(hr, S_OK);
                EXPECT_GT(at, 5u);
                return;
            }
        }
    }

    // A failure that is returned stands in the log under the operation's name. A deletion that doesn't find
    // its message is no failure of its own.
    void ExpectTraced(HRESULT hr, const std::string& lines)
    {
        const bool isUnfound = call->Failed() == "IMsgStore::OpenEntry" && lines.empty();
        if (hr == FailingCall::kFailure && !isUnfound) {
            EXPECT_NE(lines.find("CItem::Submit("), std::string::npos) << lines;
            EXPECT_NE(lines.find("0x80040115"), std::string::npos) << lines;
        } else {
            EXPECT_TRUE(hr == S_OK || isUnfound);
        }
    }

    std::shared_ptr<FailingCall> call = std::make_shared<FailingCall>();
    DatabaseSession database;
    std::string knownHash;
    bool publicForm = false;
};

// What a failed call leaves to the next attempt, in both forms.
class BothFormsTest : public SubmitFaultsTest, public ::testing::WithParamInterface<bool> {
protected:
    BothFormsTest() { publicForm = GetParam(); }
};

TEST_P(BothFormsTest, AFailureLeavesNothingOfANewItem)
{
    FailEachCall(
        false, true,
        [&](HRESULT hr) {
            if (FAILED(hr))
                ExpectNothing();
            // Without its identifier the message can't be found again: that is the one call that may not
            // fail.
            const bool isLost = SUCCEEDED(hr) && Rows().empty();
            if (isLost)
                Prepare(false);
            return FAILED(hr) || isLost;
        },
        [&] { ExpectOnly(kNew); });
}

TEST_P(BothFormsTest, AFailureLeavesAKnownItemAsItWas)
{
    FailEachCall(
        true, true,
        [&](HRESULT hr) {
            if (FAILED(hr))
                ExpectOnly(kOld);
            // A message that can't be opened counts as gone, and another takes its place.
            if (call->Failed() == "IMsgStore::OpenEntry" && SUCCEEDED(hr)) {
                EXPECT_EQ(Mails().size(), 2u);
                for (const Bstr& mail : Mails()) {
                    if (Narrow(mail.View()) != Rows())
                        mailbox.Delete(*inbox, mail);
                }
            }
            return FAILED(hr);
        },
        [&] { ExpectOnly(kNew); });
}

TEST_P(BothFormsTest, AFailedDeletionLeavesTheItemAsItWas)
{
    FailEachCall(
        true, false,
        [&](HRESULT hr) {
            EXPECT_EQ(hr, FailingCall::kFailure);
            ExpectOnly(kOld);
            EXPECT_EQ(HashOf(Mails()[0]), knownHash);
            return true;
        },
        [&] { ExpectNothing(); });
}

INSTANTIATE_TEST_SUITE_P(Forms, BothFormsTest, ::testing::Bool(),
                         [](const auto& form) { return form.param ? "Public" : "Received"; });

// What doesn't stop the replacement.

class ReplaceFaultsTest : public SubmitFaultsTest {
protected:
    // Replaces the known item with the first call of that name failing.
    HRESULT ReplaceWithout(const std::string& name, std::string* lines = nullptr)
    {
        for (unsigned at = 1; at < 200; ++at) {
            Prepare(true);
            const ComPtr<CItem> item = Arrived(true);
            HRESULT hr = E_FAIL;
            call->SetAt(at);
            const std::string traced = TracedLines([&] { hr = Submit(*item); });
            call->Clear();
            if (call->Failed() != name)
                continue;
            if (lines)
                *lines = traced;
            return hr;
        }
        ADD_FAILURE() << name << " isn't called";
        return E_FAIL;
    }
};

TEST_F(ReplaceFaultsTest, PropertiesThatCantBeDeletedAreTracedAndOverwritten)
{
    std::string lines;
    EXPECT_EQ(ReplaceWithout("IMessage::DeleteProps", &lines), S_OK);
    EXPECT_NE(lines.find("CItem::Submit("), std::string::npos);
    ExpectOnly(kNew);
}

TEST_F(ReplaceFaultsTest, AnAttachmentThatCantBeDeletedIsTracedAndReplaced)
{
    std::string lines;
    EXPECT_EQ(ReplaceWithout("IMessage::DeleteAttach", &lines), S_OK);
    EXPECT_NE(lines.find("CItem::DeleteAtachments("), std::string::npos);
    ExpectOnly(kNew);
}

TEST_F(ReplaceFaultsTest, RecipientsThatCantBeRemovedAreReplaced)
{
    EXPECT_EQ(ReplaceWithout("IMessage::ModifyRecipients"), S_OK);
    ExpectOnly(kNew);
}

TEST_F(ReplaceFaultsTest, AReadFlagThatCantBeClearedIsTraced)
{
    std::string lines;
    EXPECT_EQ(ReplaceWithout("IMessage::SetReadFlag", &lines), S_OK);
    EXPECT_NE(lines.find("CItem::Submit("), std::string::npos);
    ExpectOnly(kNew);
}

TEST_F(ReplaceFaultsTest, AReadFlagThatCantBeSetEndsThePublicForm)
{
    publicForm = true;
    EXPECT_EQ(ReplaceWithout("IMessage::SetReadFlag"), FailingCall::kFailure);
    ExpectOnly(kOld);
}

TEST_F(ReplaceFaultsTest, AListOfPropertiesThatCantBeReadEndsTheReceivedFormAlone)
{
    EXPECT_EQ(ReplaceWithout("IMessage::GetPropList"), FailingCall::kFailure);
    ExpectOnly(kOld);
    publicForm = true;
    EXPECT_EQ(ReplaceWithout("IMessage::GetPropList"), S_OK);
    ExpectOnly(kNew);
}

TEST_F(ReplaceFaultsTest, AStoreThatCantBeOpenedIsReported)
{
    EXPECT_EQ(ReplaceWithout("IMAPISession::OpenMsgStore"), FailingCall::kFailure);
    publicForm = true;
    EXPECT_EQ(ReplaceWithout("IMAPISession::OpenMsgStore"), FailingCall::kFailure);
    ExpectOnly(kOld);
}

}  // namespace
}  // namespace quorvane
