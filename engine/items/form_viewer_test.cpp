#include "engine/items/form_viewer.h"

#include "engine/items/testing/mail_test.h"
#include "platform/testing/form/test_form.h"

namespace quorvane {
namespace {

using test::TestForm;
using test::TestForms;

using Calls = std::vector<std::string>;

class FormAdviseSink final : public ComObject<FormAdviseSink, IMAPIFormAdviseSink> {
public:
    HRESULT STDMETHODCALLTYPE OnChange(ULONG) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnActivateNext(LPCSTR, ULONG, ULONG, LPPERSISTMESSAGE*) override
    {
        return S_OK;
    }
};

// Something that has a message to keep and is no form.
class PersistAlone final : public ComObject<PersistAlone, IPersistMessage> {
public:
    HRESULT STDMETHODCALLTYPE GetLastError(HRESULT, ULONG, LPMAPIERROR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetClassID(CLSID*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE IsDirty() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE InitNew(LPMAPIMESSAGESITE, LPMESSAGE) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Load(LPMAPIMESSAGESITE, LPMESSAGE, ULONG, ULONG) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Save(LPMESSAGE, ULONG) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SaveCompleted(LPMESSAGE) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE HandsOffMessage() override { return E_NOTIMPL; }
};

template <class Object>
ULONG CountOf(Object& object)
{
    object.AddRef();
    return object.Release();
}

class FormViewerTest : public testing::MailTest {
protected:
    // Forms close, as a user closes them, before their mailbox goes.
    ~FormViewerTest()
    {
        viewer.Reset();
        EXPECT_EQ(forms.alive, form ? 1 : 0);
    }

    ComPtr<CMyMAPIFormViewer> MakeViewer()
    {
        return MakeComObject<CMyMAPIFormViewer>(&mailbox.Store(), mailbox.Session().Get(), inbox.Get(),
                                                message.Get());
    }

    static HRESULT SetSubject(IMessage& target, const char* subject)
    {
        SPropValue value{};
        value.ulPropTag = PR_SUBJECT_A;
        value.Value.lpszA = const_cast<char*>(subject);
        return target.SetProps(1, &value, nullptr);
    }

    // The form, which listens for itself, in the viewer.
    void Open()
    {
        ASSERT_EQ(viewer->SetPersistFromForm(form.Get()), S_OK);
        ASSERT_EQ(form->Load(viewer.Get(), message.Get(), 0, 0), S_OK);
        forms.calls.clear();
    }

    struct Composed {
        HRESULT hr = E_FAIL;
        ComPtr<IMessage> message;
        ComPtr<IMAPIMessageSite> site;
        ComPtr<IMAPIViewContext> context;
    };
    Composed Compose(ULONG inFolder, IMAPIFolder* focus, IPersistMessage* persist)
    {
        Composed made;
        made.hr = viewer->NewMessage(inFolder, focus, persist, made.message.Put(), made.site.Put(),
                                     made.context.Put());
        return made;
    }
    static ComPtr<IMAPIFolder> FolderOf(IMAPIMessageSite& site)
    {
        ComPtr<IMAPIFolder> found;
        EXPECT_EQ(site.GetFolder(found.Put()), S_OK);
        return found;
    }

    TestForms forms;
    ComPtr<TestForm> form = MakeComObject<TestForm>(forms);
    ComPtr<IMessage> message = mailbox.AddMessage(*inbox, {"Subject", "Body", {"zoe"}, {}});
    ComPtr<CMyMAPIFormViewer> viewer = MakeViewer();
};

TEST_F(FormViewerTest, ItsInterfacesAreItsThreeAndNoOther)
{
    ComPtr<IUnknown> found;
    for (const IID& iid : {IID_IMAPIMessageSite, IID_IMAPIViewContext, IID_IMAPIViewAdviseSink, IID_IUnknown})
        EXPECT_EQ(viewer->QueryInterface(iid, found.PutVoid()), S_OK);
    EXPECT_EQ(viewer->QueryInterface(IID_IMAPIForm, found.PutVoid()), E_NOINTERFACE);
    EXPECT_FALSE(found);
    EXPECT_EQ(CountOf(*viewer.Get()), 1u);
}

TEST_F(FormViewerTest, TheSiteGivesReferencesToWhatItWasMadeOf)
{
    ComPtr<IMAPISession> session_;
    ComPtr<IMsgStore> store;
    ComPtr<IMessage> shown;
    EXPECT_EQ(viewer->GetSession(session_.Put()), S_OK);
    EXPECT_EQ(viewer->GetStore(store.Put()), S_OK);
    EXPECT_EQ(viewer->GetMessage(shown.Put()), S_OK);
    EXPECT_EQ(session_, mailbox.Session());
    EXPECT_EQ(store, &mailbox.Store());
    EXPECT_EQ(shown, message.Get());
    EXPECT_EQ(FolderOf(*viewer.Get()), inbox.Get());
    EXPECT_EQ(viewer->GetMessage(nullptr), E_POINTER);
    EXPECT_EQ(viewer->GetSession(nullptr), E_POINTER);
}

TEST_F(FormViewerTest, TheSiteGivesTheFormManager)
{
    ComPtr<IMAPIFormMgr> manager;

    EXPECT_EQ(viewer->GetFormManager(manager.Put()), S_OK);

    EXPECT_TRUE(manager);
}

TEST_F(FormViewerTest, SiteAndViewTellWhatTheyAllow)
{
    ULONG status = 0;
    EXPECT_EQ(viewer->GetSiteStatus(&status), S_OK);
    EXPECT_EQ(status, 0x680000u);
    EXPECT_EQ(viewer->GetViewStatus(&status), S_OK);
    EXPECT_EQ(status, 0xBu);
    EXPECT_EQ(viewer->GetSiteStatus(nullptr), E_POINTER);
    EXPECT_EQ(viewer->GetViewStatus(nullptr), E_POINTER);
}

TEST_F(FormViewerTest, WhatItDoesNotDoItSays)
{
    EXPECT_EQ(viewer->CopyMessage(inbox.Get()), MAPI_E_NO_SUPPORT);
    EXPECT_EQ(viewer->MoveMessage(inbox.Get(), nullptr, nullptr), MAPI_E_NO_SUPPORT);
    EXPECT_EQ(viewer->DeleteMessage(nullptr, nullptr), MAPI_E_NO_SUPPORT);
    EXPECT_EQ(mailbox.Subjects(*inbox), Calls{"Subject"});
}

TEST_F(FormViewerTest, WhatNeedsNothingDoneSucceedsAndFillsNothingIn)
{
    LPMAPIERROR error = nullptr;
    LPFORMPRINTSETUP setup = nullptr;
    LPSTREAM stream = nullptr;
    ULONG flags = 7;
    ULONG format = 7;
    EXPECT_EQ(viewer->GetLastError(E_FAIL, 0, &error), S_OK);
    EXPECT_EQ(viewer->ActivateNext(VCSTATUS_NEXT, nullptr), S_OK);
    EXPECT_EQ(viewer->GetPrintSetup(0, &setup), S_OK);
    EXPECT_EQ(viewer->GetSaveStream(&flags, &format, &stream), S_OK);
    EXPECT_TRUE(!error && !setup && !stream && flags == 7 && format == 7);
    EXPECT_EQ(viewer->OnNewMessage(), S_OK);
    EXPECT_EQ(viewer->OnPrint(1, E_FAIL), S_OK);
    EXPECT_EQ(viewer->OnSubmitted(), S_OK);
    EXPECT_EQ(viewer->OnSaved(), S_OK);
}

TEST_F(FormViewerTest, OneAdviseSinkIsKeptAtATime)
{
    const ComPtr<FormAdviseSink> first = MakeComObject<FormAdviseSink>();
    const ComPtr<FormAdviseSink> second = MakeComObject<FormAdviseSink>();

    EXPECT_EQ(viewer->SetAdviseSink(first.Get()), S_OK);
    EXPECT_EQ(CountOf(*first.Get()), 2u);
    EXPECT_EQ(viewer->SetAdviseSink(second.Get()), S_OK);
    EXPECT_EQ(CountOf(*first.Get()), 1u);
    EXPECT_EQ(viewer->SetAdviseSink(nullptr), S_OK);
    EXPECT_EQ(CountOf(*second.Get()), 1u);
}

TEST_F(FormViewerTest, SavingHasTheFormWriteFirst)
{
    Open();
    forms.answer = [&](TestForm& self, const std::string&) { return SetSubject(*self.message, "Edited"); };

    EXPECT_EQ(viewer->SaveMessage(), S_OK);

    EXPECT_EQ(forms.calls, Calls{"Save 1"});
    EXPECT_EQ(mailbox.Subjects(*inbox), Calls{"Edited"});
    EXPECT_EQ(SetSubject(*message, "Edited again"), S_OK) << "the message stays open for writing";
    form->Close();
}

TEST_F(FormViewerTest, WhatAFormCannotWriteIsNotSaved)
{
    Open();
    ASSERT_EQ(SetSubject(*message, "Half written"), S_OK);
    forms.answer = [](TestForm&, const std::string& call) { return call == "Save 1" ? E_FAIL : S_OK; };

    EXPECT_EQ(viewer->SaveMessage(), E_FAIL);
    EXPECT_EQ(viewer->SubmitMessage(0), E_FAIL);

    EXPECT_EQ(mailbox.Subjects(*inbox), Calls{"Subject"});
    EXPECT_EQ(forms.calls, (Calls{"Save 1", "Save 1"}));
    form->Close();
}

TEST_F(FormViewerTest, ASubmittedMessageGoesToTheOutboxAndIsTheSitesNoMore)
{
    Open();
    ComPtr<IMessage> shown;

    EXPECT_EQ(viewer->SubmitMessage(0), S_OK);

    EXPECT_EQ(forms.calls, (Calls{"Save 1", "HandsOffMessage"}));
    EXPECT_EQ(viewer->GetMessage(shown.Put()), S_FALSE);
    EXPECT_FALSE(shown);
    EXPECT_TRUE(mailbox.Subjects(*inbox).empty());
    EXPECT_EQ(viewer->SaveMessage(), E_UNEXPECTED);
    EXPECT_EQ(viewer->SubmitMessage(0), E_UNEXPECTED);
    form->Close();
}

TEST_F(FormViewerTest, AMessageThatCannotBeSubmittedStays)
{
    message = mailbox.AddMessage(*inbox, {"To nobody", "", {}, {}});
    viewer = MakeViewer();
    Open();
    ComPtr<IMessage> shown;

    EXPECT_EQ(viewer->SubmitMessage(0), MAPI_E_NO_RECIPIENTS);

    EXPECT_EQ(viewer->GetMessage(shown.Put()), S_OK);
    form->Close();
}

TEST_F(FormViewerTest, AFormThatDoesNotHandTheMessageOffIsNotSubmitted)
{
    Open();
    forms.answer = [](TestForm&, const std::string& call) {
        return call == "HandsOffMessage" ? E_FAIL : S_OK;
    };

    EXPECT_EQ(viewer->SubmitMessage(0), E_FAIL);

    EXPECT_EQ(mailbox.Subjects(*inbox), Calls{"Subject"});
    form->Close();
}

TEST_F(FormViewerTest, WithoutAFormNothingIsSaved)
{
    EXPECT_EQ(viewer->SaveMessage(), E_UNEXPECTED);
    EXPECT_EQ(viewer->SubmitMessage(0), E_UNEXPECTED);
    EXPECT_EQ(viewer->OnShutdown(), E_UNEXPECTED);
    EXPECT_EQ(mailbox.Subjects(*inbox), Calls{"Subject"});
}

TEST_F(FormViewerTest, AFormThatClosesIsListenedToNoMore)
{
    Open();
    ASSERT_EQ(form->sinks.size(), 1u);

    form->Close();

    EXPECT_EQ(forms.calls, Calls{"Unadvise"});
    EXPECT_TRUE(form->sinks.empty());
    EXPECT_EQ(CountOf(*viewer.Get()), 1u);
    EXPECT_EQ(form->Count(), 2u) << "the viewer keeps it until it ends";
    viewer.Reset();
    EXPECT_EQ(form->Count(), 1u);
}

TEST_F(FormViewerTest, ThatAFormCannotBeUnadvisedIsItsViewersAnswer)
{
    Open();
    forms.answer = [](TestForm&, const std::string&) { return E_FAIL; };

    EXPECT_EQ(viewer->OnShutdown(), E_FAIL);

    form->Close();
}

TEST_F(FormViewerTest, AnotherFormTakesThePlaceOfTheFirst)
{
    Open();
    form->Close();
    const ComPtr<TestForm> other = MakeComObject<TestForm>(forms);

    ASSERT_EQ(viewer->SetPersistFromForm(other.Get()), S_OK);

    EXPECT_EQ(form->Count(), 1u);
    other->Close();
    viewer.Reset();
    EXPECT_EQ(other->Count(), 1u);
    form = other;
}

TEST_F(FormViewerTest, AFormThatRefusesToBeListenedToIsNotKept)
{
    forms.answer = [](TestForm&, const std::string&) { return E_ACCESSDENIED; };

    EXPECT_EQ(viewer->SetPersistFromForm(form.Get()), E_ACCESSDENIED);

    EXPECT_EQ(form->Count(), 1u);
    EXPECT_EQ(viewer->SaveMessage(), E_UNEXPECTED);
}

TEST_F(FormViewerTest, AnOpenFormKeepsTheLibrary)
{
    Open();
    viewer.Reset();

    EXPECT_TRUE(ServerLocks::AreHeld());
    form->Close();
}

TEST_F(FormViewerTest, ANewMessageIsMadeInTheViewersOwnFolder)
{
    const ComPtr<IMAPIFolder> focus = mailbox.MakeFolder("Focus");

    const Composed made = Compose(TRUE, focus.Get(), form.Get());

    ASSERT_EQ(made.hr, S_OK);
    EXPECT_EQ(mailbox.Subjects(*inbox).size(), 2u);
    EXPECT_TRUE(mailbox.Subjects(*focus).empty());
    EXPECT_EQ(FolderOf(*made.site.Get()), focus.Get()) << "the focus is only what the new site says";
    EXPECT_EQ(SetSubject(*made.message, "New"), S_OK) << "it stays open for writing";
    ComPtr<IMessage> shown;
    EXPECT_EQ(made.site->GetMessage(shown.Put()), S_OK);
    EXPECT_EQ(shown, made.message.Get());
    form->Close();
}

TEST_F(FormViewerTest, OnlyAFolderThatIsComposedInCounts)
{
    const ComPtr<IMAPIFolder> focus = mailbox.MakeFolder("Focus");

    EXPECT_EQ(FolderOf(*Compose(FALSE, focus.Get(), nullptr).site.Get()), inbox.Get());
    EXPECT_EQ(FolderOf(*Compose(TRUE, nullptr, nullptr).site.Get()), inbox.Get());
}

TEST_F(FormViewerTest, TheNewViewIsThatOfTheNewSite)
{
    const Composed made = Compose(FALSE, nullptr, form.Get());

    ComPtr<IMAPIMessageSite> site;
    ASSERT_EQ(made.context.As(site), S_OK);
    EXPECT_EQ(site, made.site.Get());
    EXPECT_NE(site, static_cast<IMAPIMessageSite*>(viewer.Get()));
    form->Close();
}

TEST_F(FormViewerTest, ANewMessagesFormHasTheCountThatItHadBefore)
{
    const ULONG before = form->Count();

    Composed made = Compose(FALSE, nullptr, form.Get());

    ASSERT_EQ(made.hr, S_OK);
    EXPECT_EQ(form->Count(), before);
    EXPECT_EQ(form->sinks.size(), 1u);
    form->Close();
    made = {};
    EXPECT_EQ(form->Count(), before);
}

TEST_F(FormViewerTest, ANewMessagesFormIsSavedThroughItsSite)
{
    Composed made = Compose(FALSE, nullptr, form.Get());
    ASSERT_EQ(form->Load(made.site.Get(), made.message.Get(), 0, 0), S_OK);
    forms.answer = [&](TestForm& self, const std::string& call) {
        return call == "Save 1" ? SetSubject(*self.message, "Composed") : S_OK;
    };

    EXPECT_EQ(made.site->SaveMessage(), S_OK);

    EXPECT_EQ(mailbox.Subjects(*inbox), (Calls{"Composed", "Subject"}));
    form->Close();
}

TEST_F(FormViewerTest, ANewMessagesFormMayEndBeforeItsSite)
{
    const Composed made = Compose(FALSE, nullptr, form.Get());

    form.Reset();

    EXPECT_EQ(forms.alive, 0);
    EXPECT_EQ(made.site->SaveMessage(), E_UNEXPECTED);
    EXPECT_EQ(made.site->SubmitMessage(0), E_UNEXPECTED);
}

TEST_F(FormViewerTest, ANewMessagesFormEndsWithItsLastReference)
{
    {
        const Composed made = Compose(FALSE, nullptr, form.Get());
        ASSERT_EQ(form->Load(made.site.Get(), made.message.Get(), 0, 0), S_OK);
        ASSERT_EQ(form->SetViewContext(made.context.Get()), S_OK);
    }
    form->Close();
    EXPECT_EQ(forms.alive, 1);

    form.Reset();

    EXPECT_EQ(forms.alive, 0);
}

TEST_F(FormViewerTest, AFormThatClosesWhileItIsSavedIsNotUsedAfterItsEnd)
{
    Composed made = Compose(FALSE, nullptr, form.Get());
    ASSERT_EQ(form->Load(made.site.Get(), made.message.Get(), 0, 0), S_OK);
    forms.answer = [&](TestForm& self, const std::string& call) {
        if (call == "Save 1") {
            self.Close();
            form.Reset();
        }
        return S_OK;
    };

    EXPECT_EQ(made.site->SubmitMessage(0), MAPI_E_NO_RECIPIENTS);

    EXPECT_EQ(forms.alive, 0);
}

TEST_F(FormViewerTest, TheListenerOfANewMessageIsItsViewer)
{
    const Composed made = Compose(FALSE, nullptr, form.Get());
    const ComPtr<IMAPIViewAdviseSink> listener = form->sinks.begin()->second;

    ComPtr<IMAPIMessageSite> site;
    EXPECT_EQ(listener.As(site), S_OK);
    EXPECT_EQ(site, made.site.Get());
    EXPECT_EQ(listener->OnNewMessage(), S_OK);
    EXPECT_EQ(listener->OnPrint(1, S_OK), S_OK);
    EXPECT_EQ(listener->OnSubmitted(), S_OK);
    EXPECT_EQ(listener->OnSaved(), S_OK);
    form->Close();
}

TEST_F(FormViewerTest, AFormThatKeepsNoListenerIsForgotten)
{
    const Composed made = Compose(FALSE, nullptr, form.Get());
    form->sinks.clear();

    EXPECT_EQ(made.site->SaveMessage(), E_UNEXPECTED);
    EXPECT_EQ(form->Count(), 1u);
}

TEST_F(FormViewerTest, WithoutAFormToListenToThereIsNoNewMessage)
{
    const ComPtr<PersistAlone> alone = MakeComObject<PersistAlone>();
    EXPECT_EQ(Compose(FALSE, nullptr, alone.Get()).hr, E_NOINTERFACE);
    EXPECT_EQ(CountOf(*alone.Get()), 1u);

    forms.answer = [](TestForm&, const std::string&) { return E_ACCESSDENIED; };
    const Composed made = Compose(FALSE, nullptr, form.Get());
    EXPECT_EQ(made.hr, E_ACCESSDENIED);
    EXPECT_TRUE(!made.message && !made.site && !made.context);
    EXPECT_EQ(form->Count(), 1u);
}

TEST_F(FormViewerTest, ANewMessageNeedsPlacesForItsResults)
{
    ComPtr<IMessage> made;
    ComPtr<IMAPIMessageSite> site;
    ComPtr<IMAPIViewContext> context;
    EXPECT_EQ(viewer->NewMessage(0, nullptr, nullptr, nullptr, site.Put(), context.Put()), E_POINTER);
    EXPECT_EQ(viewer->NewMessage(0, nullptr, nullptr, made.Put(), nullptr, context.Put()), E_POINTER);
    EXPECT_EQ(viewer->NewMessage(0, nullptr, nullptr, made.Put(), site.Put(), nullptr), E_POINTER);
    EXPECT_EQ(mailbox.Subjects(*inbox).size(), 1u);
}

}  // namespace
}  // namespace quorvane
