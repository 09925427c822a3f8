// Submit with a mailbox of which one call fails, each in turn: what is left after the failure, and what the
// next attempt makes of it.
#include "engine/items/testing/failing_mailbox.h"
#include "engine/items/testing/submit_test.h"
#include "engine/session/trace/testing/traced_lines.h"

namespace quorvane {
namespace {

using testing::FailingCall;
using testing::kNewMail;
using testing::kOldMail;
using testing::TracedLines;

class SubmitFaultsTest : public testing::SubmitTest {
protected:
    SubmitFaultsTest() { session.mapiSession = testing::MakeFailingSession(mailbox.Session(), call); }

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
        [&] { ExpectOnly(kNewMail); });
}

TEST_P(BothFormsTest, AFailureLeavesAKnownItemAsItWas)
{
    FailEachCall(
        true, true,
        [&](HRESULT hr) {
            if (FAILED(hr))
                ExpectOnly(kOldMail);
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
        [&] { ExpectOnly(kNewMail); });
}

TEST_P(BothFormsTest, AFailedDeletionLeavesTheItemAsItWas)
{
    FailEachCall(
        true, false,
        [&](HRESULT hr) {
            EXPECT_EQ(hr, FailingCall::kFailure);
            ExpectOnly(kOldMail);
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
    ExpectOnly(kNewMail);
}

TEST_F(ReplaceFaultsTest, AnAttachmentThatCantBeDeletedIsTracedAndReplaced)
{
    std::string lines;
    EXPECT_EQ(ReplaceWithout("IMessage::DeleteAttach", &lines), S_OK);
    EXPECT_NE(lines.find("CItem::DeleteAtachments("), std::string::npos);
    ExpectOnly(kNewMail);
}

TEST_F(ReplaceFaultsTest, AttachmentsThatCantBeListedAreTracedOnTheirWay)
{
    std::string lines;
    EXPECT_EQ(ReplaceWithout("IMAPITable::QueryRows", &lines), FailingCall::kFailure);
    EXPECT_NE(lines.find("CItem::DeleteAtachments("), std::string::npos) << lines;
}

TEST_F(ReplaceFaultsTest, RecipientsThatCantBeRemovedAreReplaced)
{
    EXPECT_EQ(ReplaceWithout("IMessage::ModifyRecipients"), S_OK);
    ExpectOnly(kNewMail);
}

TEST_F(ReplaceFaultsTest, AReadFlagThatCantBeClearedIsTraced)
{
    std::string lines;
    EXPECT_EQ(ReplaceWithout("IMessage::SetReadFlag", &lines), S_OK);
    EXPECT_NE(lines.find("CItem::Submit("), std::string::npos);
    ExpectOnly(kNewMail);
}

TEST_F(ReplaceFaultsTest, AReadFlagThatCantBeSetEndsThePublicForm)
{
    publicForm = true;
    EXPECT_EQ(ReplaceWithout("IMessage::SetReadFlag"), FailingCall::kFailure);
    ExpectOnly(kOldMail);
}

TEST_F(ReplaceFaultsTest, AListOfPropertiesThatCantBeReadEndsTheReceivedFormAlone)
{
    EXPECT_EQ(ReplaceWithout("IMessage::GetPropList"), FailingCall::kFailure);
    ExpectOnly(kOldMail);
    publicForm = true;
    EXPECT_EQ(ReplaceWithout("IMessage::GetPropList"), S_OK);
    ExpectOnly(kNewMail);
}

TEST_F(ReplaceFaultsTest, AStoreThatCantBeOpenedIsReported)
{
    EXPECT_EQ(ReplaceWithout("IMAPISession::OpenMsgStore"), FailingCall::kFailure);
    publicForm = true;
    EXPECT_EQ(ReplaceWithout("IMAPISession::OpenMsgStore"), FailingCall::kFailure);
    ExpectOnly(kOldMail);
}

}  // namespace
}  // namespace quorvane
