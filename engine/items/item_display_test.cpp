#include "engine/items/entry.h"
#include "engine/items/testing/failing_mailbox.h"
#include "engine/items/testing/mail_test.h"
#include "engine/session/trace/testing/traced_lines.h"
#include "engine/storeaccess/hex.h"
#include "engine/storeaccess/mapi_functions.h"
#include "platform/testing/form/test_form.h"

namespace quorvane {
namespace {

using test::TestForm;
using testing::FailingCall;
using testing::MakeDetachedMessage;
using testing::TestMailbox;
using testing::TracedLines;

using Calls = std::vector<std::string>;

constexpr char kOwnClass[] = "IPM.Note.Quorvane";

// Messages of kOwnClass have the form of the tests' own; the form manager is the message store's.
class ItemDisplayTest : public testing::MailTest {
protected:
    ItemDisplayTest()
    {
        folder.raw = ComPtr<IUnknown>(inbox.Get());
        test::RegisterTestForm(kOwnClass);
        forms = {};
    }
    ~ItemDisplayTest()
    {
        if (forms.last)
            forms.last->Close();
        EXPECT_EQ(forms.alive, 0);
    }

    static HRESULT SetClass(IMessage& target, const char* messageClass)
    {
        SPropValue value{};
        value.ulPropTag = PR_MESSAGE_CLASS_A;
        value.Value.lpszA = const_cast<char*>(messageClass);
        HRESULT hr = target.SetProps(1, &value, nullptr);
        return FAILED(hr) ? hr : target.SaveChanges(KEEP_OPEN_READWRITE);
    }

    ComPtr<IMessage> AddMessage(const char* messageClass = kOwnClass)
    {
        const ComPtr<IMessage> added = mailbox.AddMessage(*inbox, {"Subject", "Body", {"zoe"}, {}});
        EXPECT_EQ(SetClass(*added, messageClass), S_OK);
        return added;
    }

    void SetStatus(IMessage& target, ULONG status)
    {
        BinaryId id;
        ASSERT_EQ(BinaryFromHex(TestMailbox::IdOf(target).Get(), id), S_OK);
        const SBinary binary = id.Binary();
        ASSERT_EQ(
            inbox->SetMessageStatus(binary.cb, reinterpret_cast<LPENTRYID>(binary.lpb), status, ~0u, nullptr),
            S_OK);
    }

    // Display fails with the code, traces it under its name, and leaves no form.
    void ExpectFailure(HRESULT expected)
    {
        HRESULT hr = S_OK;
        const std::string lines = TracedLines([&] { hr = item->Display(VARIANT_FALSE, 0); });
        EXPECT_EQ(hr, expected);
        char code[16];
        std::snprintf(code, sizeof(code), "0x%X", static_cast<unsigned>(expected));
        const size_t line = lines.find("CItem::Display(");
        EXPECT_NE(line, std::string::npos);
        EXPECT_NE(lines.find(code, line), std::string::npos) << lines;
        EXPECT_EQ(forms.alive, 0);
    }

    test::TestForms& forms = test::FormsOfLibrary();
    ComPtr<IMessage> message = AddMessage();
    ComPtr<CItem> item = MakeItem(OLESTR("{A}"), *message);
};

TEST_F(ItemDisplayTest, TheFormIsLoadedListenedToAndOpened)
{
    SetStatus(*message, 0x1004);

    EXPECT_EQ(item->Display(VARIANT_FALSE, 0), S_OK);

    const std::string flags = std::to_string(MSGFLAG_UNSENT);
    EXPECT_EQ(forms.calls, (Calls{"Load 4100 " + flags, "SetViewContext", "Advise", "DoVerb 0"}));
}

TEST_F(ItemDisplayTest, WhatTheArgumentsSayDoesntMatter)
{
    ASSERT_EQ(item->Display(VARIANT_FALSE, 0), S_OK);
    const Calls modeless = std::exchange(forms.calls, {});
    forms.last->Close();
    forms.calls.clear();

    EXPECT_EQ(item->Display(VARIANT_TRUE, 0x7FFFFFFF), S_OK);

    EXPECT_EQ(forms.calls, modeless);
}

TEST_F(ItemDisplayTest, TheFormsSiteIsTheItemsPlace)
{
    ASSERT_EQ(item->Display(VARIANT_FALSE, 0), S_OK);

    IMAPIMessageSite& site = *forms.last->site;
    ComPtr<IMessage> shown;
    ComPtr<IMAPIFolder> place;
    ComPtr<IMAPISession> sessionOfSite;
    ComPtr<IMsgStore> store;
    EXPECT_EQ(site.GetMessage(shown.Put()), S_OK);
    EXPECT_EQ(site.GetFolder(place.Put()), S_OK);
    EXPECT_EQ(site.GetSession(sessionOfSite.Put()), S_OK);
    EXPECT_EQ(site.GetStore(store.Put()), S_OK);
    EXPECT_EQ(shown, message.Get());
    EXPECT_EQ(forms.last->message, message.Get());
    EXPECT_EQ(place, inbox.Get());
    EXPECT_EQ(sessionOfSite, mailbox.Session().Get());
    EXPECT_EQ(TestMailbox::IdOf(*store).View(), mailbox.StoreId().View());
    ComPtr<IMAPIMessageSite> siteOfView;
    EXPECT_EQ(forms.last->context.As(siteOfView), S_OK);
    EXPECT_EQ(siteOfView, &site);
}

TEST_F(ItemDisplayTest, TheFormGoesOnUntilItIsClosed)
{
    ASSERT_EQ(item->Display(VARIANT_FALSE, 0), S_OK);
    item.Reset();
    ASSERT_EQ(forms.alive, 1);
    EXPECT_EQ(forms.last->site->SaveMessage(), S_OK);

    forms.last->Close();

    EXPECT_EQ(forms.alive, 0);
}

TEST_F(ItemDisplayTest, AFormMayCloseAsItOpens)
{
    forms.answer = [](TestForm& form, const std::string& call) {
        if (call == "DoVerb 0")
            form.Close();
        return S_OK;
    };

    EXPECT_EQ(item->Display(VARIANT_FALSE, 0), S_OK);

    EXPECT_EQ(forms.alive, 0);
    EXPECT_EQ(forms.calls.back(), "Unadvise");
}

TEST_F(ItemDisplayTest, AFormThatTakesItsMessageFurtherSubmitsIt)
{
    ASSERT_EQ(item->Display(VARIANT_FALSE, 0), S_OK);

    EXPECT_EQ(forms.last->site->SubmitMessage(0), S_OK);

    EXPECT_TRUE(mailbox.Subjects(*inbox).empty());
}

TEST_F(ItemDisplayTest, TheClassMayBeOneBelow)
{
    ASSERT_EQ(SetClass(*message, "ipm.note.quorvane.Urgent.Today"), S_OK);

    EXPECT_EQ(item->Display(VARIANT_FALSE, 0), S_OK);

    EXPECT_EQ(forms.alive, 1);
}

TEST_F(ItemDisplayTest, AReceivedItemIsShownFromItsPackage)
{
    const ComPtr<IMessage> carried = MakeDetachedMessage({"Carried", "", {}, {}});
    ASSERT_EQ(SetClass(*carried, kOwnClass), S_OK);
    const ComPtr<CItem> received = MakeItem();
    received->m_bstrFolderEntryID = folder.entryId;
    received->m_bstrStoreID = mailbox.StoreId();
    ASSERT_EQ(received->put_Raw(carried.Get()), S_OK);

    EXPECT_EQ(received->Display(VARIANT_FALSE, 0), S_OK);

    const std::string flags = std::to_string(MSGFLAG_UNSENT);
    EXPECT_EQ(forms.calls.front(), "Load 0 " + flags) << "a message of a package has no status";
}

TEST_F(ItemDisplayTest, AMessageWithoutAClassIsShownAsMail)
{
    test::RegisterTestForm("IPM.Note");
    const ComPtr<IMessage> carried = MakeDetachedMessage({"Carried", "", {}, {}});
    SPropTagArray tags{1, {PR_MESSAGE_CLASS_A}};
    ASSERT_EQ(carried->DeleteProps(&tags, nullptr), S_OK);
    item->m_bstrFolderEntryID = folder.entryId;
    ASSERT_EQ(item->put_Raw(carried.Get()), S_OK);

    EXPECT_EQ(item->Display(VARIANT_FALSE, 0), S_OK);

    EXPECT_EQ(forms.alive, 1);
}

TEST_F(ItemDisplayTest, ItDoesntOpenAMessageByItself)
{
    const ComPtr<CItem> known = MakeItem();
    known->m_bstrEntryID = item->m_bstrEntryID;
    known->m_bstrStoreID = item->m_bstrStoreID;
    known->m_bstrFolderEntryID = folder.entryId;
    item = known;

    ExpectFailure(E_POINTER);

    EXPECT_EQ(item->Message(), nullptr);
    ComPtr<IUnknown> raw;
    ASSERT_EQ(item->get_Raw(raw.Put()), S_OK);
    EXPECT_EQ(item->Display(VARIANT_FALSE, 0), S_OK) << "once the item holds its message";
}

TEST_F(ItemDisplayTest, AnItemOutsideOfTheSharedFoldersIsntShown)
{
    const ComPtr<IMAPIFolder> elsewhere = mailbox.MakeFolder("Elsewhere");
    item = MakeItem(OLESTR("{B}"), *mailbox.AddMessage(*elsewhere, {"Private", "", {}, {}}));

    ExpectFailure(DISP_E_MEMBERNOTFOUND);
}

TEST_F(ItemDisplayTest, AFolderWithoutItsMapiFolderFails)
{
    folder.raw.Reset();
    ExpectFailure(E_POINTER);
    folder.raw = ComPtr<IUnknown>(message.Get());
    ExpectFailure(E_NOINTERFACE);
}

TEST_F(ItemDisplayTest, ASessionWithoutMapiFails)
{
    session.mapiSession.Reset();
    ExpectFailure(E_HANDLE);
}

TEST_F(ItemDisplayTest, AFormThatIsntThereFails)
{
    test::PutUserSetting(std::string(R"(Software\Brindlemoor\Quorvane\Message Store\Forms\)") + kOwnClass,
                         "Library", "no such library.dll");
    ExpectFailure(HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND));
}

TEST_F(ItemDisplayTest, AFormThatFailsAtAnyStepIsLetGoOf)
{
    for (const char* const step : {"Load", "SetViewContext", "Advise", "DoVerb"}) {
        forms.calls.clear();
        forms.answer = [&](TestForm&, const std::string& call) {
            return call.starts_with(step) ? MAPI_E_CALL_FAILED : S_OK;
        };
        ExpectFailure(MAPI_E_CALL_FAILED);
        const bool failedAtStep =
            std::any_of(forms.calls.begin(), forms.calls.end(),
                        [&](const std::string& call) { return call.starts_with(step); });
        EXPECT_TRUE(failedAtStep) << step;
    }
}

// Every call that the steps make of the mailbox fails once.
TEST_F(ItemDisplayTest, AFailureOfTheMailboxIsTheAnswerAndLeavesNoForm)
{
    const auto call = std::make_shared<FailingCall>();
    session.mapiSession = testing::MakeFailingSession(mailbox.Session(), call);
    ComPtr<IMsgStore> store;
    BinaryId storeId;
    ASSERT_EQ(BinaryFromHex(mailbox.StoreId().Get(), storeId), S_OK);
    const SBinary binary = storeId.Binary();
    ASSERT_EQ(session.mapiSession->OpenMsgStore(0, binary.cb, reinterpret_cast<LPENTRYID>(binary.lpb),
                                                nullptr, MDB_WRITE, store.Put()),
              S_OK);
    ComPtr<IMAPIFolder> failingFolder;
    ASSERT_EQ(OpenEntryById(*store, folder.entryId.Get(), MAPI_MODIFY, failingFolder), S_OK);
    ComPtr<IMessage> failingMessage;
    ASSERT_EQ(OpenEntryById(*store, TestMailbox::IdOf(*message).Get(), MAPI_MODIFY, failingMessage), S_OK);
    folder.raw = ComPtr<IUnknown>(failingFolder.Get());
    unsigned failed = 0;
    for (unsigned number = 1;; ++number) {
        item = MakeItem(OLESTR("{A}"), *failingMessage);
        call->SetAt(number);
        const HRESULT hr = item->Display(VARIANT_FALSE, 0);
        call->Clear();
        if (call->Failed().empty()) {
            EXPECT_EQ(hr, S_OK);
            break;
        }
        ++failed;
        EXPECT_EQ(hr, FailingCall::kFailure) << call->Failed();
        EXPECT_EQ(forms.alive, 0) << call->Failed();
    }
    EXPECT_GE(failed, 4u) << "the parent, the message's values, the folder's store, the store";
}

}  // namespace
}  // namespace quorvane
