#include "msgstore/form/form_manager.h"

#include <gtest/gtest.h>

#include <fstream>

#include "msgstore/form/form_registry.h"
#include "msgstore/form/shown_file.h"
#include "msgstore/message/message_fixture.h"
#include "platform/registry/registry.h"
#include "platform/testing/form/test_form.h"
#include "platform/testing/test_directory.h"

namespace quorvane {
namespace {

using test::TestForm;
using Calls = std::vector<std::string>;

constexpr char kFormsKey[] = "Software\\Brindlemoor\\Quorvane\\Message Store\\Forms";

class Site final : public ComObject<Site, IMAPIMessageSite> {
public:
    HRESULT STDMETHODCALLTYPE GetLastError(HRESULT, ULONG, LPMAPIERROR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetSession(LPMAPISESSION*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetStore(LPMDB*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetFolder(LPMAPIFOLDER*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetMessage(LPMESSAGE*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetFormManager(LPMAPIFORMMGR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE NewMessage(ULONG, LPMAPIFOLDER, LPPERSISTMESSAGE, LPMESSAGE*,
                                         LPMAPIMESSAGESITE*, LPMAPIVIEWCONTEXT*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE CopyMessage(LPMAPIFOLDER) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE MoveMessage(LPMAPIFOLDER, LPMAPIVIEWCONTEXT, LPCRECT) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE DeleteMessage(LPMAPIVIEWCONTEXT, LPCRECT) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SaveMessage() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SubmitMessage(ULONG) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetSiteStatus(ULONG*) override { return E_NOTIMPL; }
};

// Ends its connection when the form closes, as viewers do.
class Listener final : public ComObject<Listener, IMAPIViewAdviseSink> {
public:
    IMAPIForm* form = nullptr;
    ULONG_PTR connection = 0;
    int shutdowns = 0;

    HRESULT STDMETHODCALLTYPE OnShutdown() override
    {
        ++shutdowns;
        return form->Unadvise(connection);
    }
    HRESULT STDMETHODCALLTYPE OnNewMessage() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnPrint(ULONG, HRESULT) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnSubmitted() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnSaved() override { return S_OK; }
};

template <class Object>
ULONG CountOf(Object& object)
{
    object.AddRef();
    return object.Release();
}

// Forms are looked for in a registry of the test's own.
class FormManagerTest : public ::testing::Test {
protected:
    FormManagerTest()
    {
        test::KeepSettingsIn(directory.Path() / "settings");
        test::KeepDataIn(directory.Path() / "data");
        EXPECT_EQ(MakeMessage(std::make_shared<MemoryBackend>(), true, nullptr, message.Put()), S_OK);
        say::Text(*message, PR_SUBJECT_W, OLESTR("Plan"));
        forms = {};
    }
    ~FormManagerTest()
    {
        form.Reset();
        EXPECT_EQ(forms.alive, 0);
        test::KeepDataIn({});
        test::KeepSettingsIn({});
    }

    static void Put(const std::string& messageClass, const std::string& name, const std::string& text)
    {
        test::PutUserSetting(messageClass.empty() ? kFormsKey : std::string(kFormsKey) + "\\" + messageClass,
                             name, text);
    }

    HRESULT Load(const char* messageClass, ULONG flags = MAPI_DIALOG)
    {
        return manager->LoadForm(0, flags, messageClass, 1, 2, nullptr, site.Get(), message.Get(), nullptr,
                                 IID_IMAPIForm, form.PutVoid());
    }
    void LoadAndListen(const char* messageClass)
    {
        ASSERT_EQ(Load(messageClass), S_OK);
        listener->form = form.Get();
        ASSERT_EQ(form->Advise(listener.Get(), &listener->connection), S_OK);
    }
    void ExpectClosed()
    {
        EXPECT_EQ(listener->shutdowns, 1);
        EXPECT_EQ(CountOf(*listener.Get()), 1u);
        EXPECT_EQ(CountOf(*site.Get()), 1u);
    }
    HRESULT Open() { return form->DoVerb(EXCHIVERB_OPEN, nullptr, 0, nullptr); }

    std::vector<std::filesystem::path> ShownFiles()
    {
        std::vector<std::filesystem::path> files;
        const auto where = directory.Path() / "data" / "Quorvane3" / "shown";
        if (std::filesystem::exists(where)) {
            for (const auto& entry : std::filesystem::directory_iterator(where))
                files.push_back(entry.path());
        }
        return files;
    }

    const test::TestDirectory directory;
    test::TestForms& forms = test::FormsOfLibrary();
    ComPtr<IMAPIFormMgr> manager{MakeComObject<CFormManager>().Get()};
    ComPtr<Site> site = MakeComObject<Site>();
    ComPtr<Listener> listener = MakeComObject<Listener>();
    ComPtr<IMessage> message;
    ComPtr<IMAPIForm> form;
};

TEST_F(FormManagerTest, AManagerIsOpenedForASession)
{
    LPMAPIFORMMGR opened = manager.Get();
    EXPECT_EQ(MAPIOpenFormMgr(nullptr, &opened), MAPI_E_INVALID_PARAMETER);
    EXPECT_EQ(opened, nullptr);
    EXPECT_EQ(MAPIOpenFormMgr(nullptr, nullptr), MAPI_E_INVALID_PARAMETER);
}

TEST_F(FormManagerTest, ARegisteredFormGetsSiteMessageAndView)
{
    test::RegisterTestForm("IPM.Note");

    ASSERT_EQ(Load("IPM.Note"), S_OK);

    EXPECT_EQ(forms.calls, Calls{"Load 1 2"});
    EXPECT_EQ(forms.last->site, static_cast<IMAPIMessageSite*>(site.Get()));
    EXPECT_EQ(forms.last->message, message.Get());
    forms.last->Close();
}

TEST_F(FormManagerTest, AFormServesTheClassesBelowItsOwn)
{
    test::RegisterTestForm("IPM.Note");
    for (const char* messageClass : {"ipm.note", "IPM.Note.Secure", "IPM.Note.Secure.Sign"}) {
        EXPECT_EQ(Load(messageClass), S_OK) << messageClass;
        EXPECT_EQ(forms.alive, 1) << messageClass;
        forms.last->Close();
    }
    for (const char* messageClass : {"IPM", "IPM.Notes", "IPM.Task", ""}) {
        form.Reset();
        EXPECT_EQ(Load(messageClass), S_OK) << messageClass;
        EXPECT_EQ(forms.alive, 0) << messageClass;
    }
}

TEST_F(FormManagerTest, AnExactClassHasToBeRegisteredItself)
{
    test::RegisterTestForm("IPM.Note");

    EXPECT_EQ(Load("IPM.Note.Secure", MAPIFORM_EXACTMATCH), MAPI_E_NOT_FOUND);
    EXPECT_EQ(Load("IPM.Task", MAPIFORM_EXACTMATCH), MAPI_E_NOT_FOUND);
    EXPECT_FALSE(form);
    EXPECT_EQ(Load("IPM.Note", MAPIFORM_EXACTMATCH), S_OK);
    forms.last->Close();
}

TEST_F(FormManagerTest, AMailCannotNameAKeyOfItsChoice)
{
    test::RegisterTestForm("IPM\\Deeper");
    for (const std::string& messageClass : {std::string("IPM\\Deeper"), std::string("..\\Forms\\IPM\\Deeper"),
                                            std::string(300, 'x'), std::string("IPM\x01")}) {
        form.Reset();
        EXPECT_EQ(Load(messageClass.c_str()), S_OK);
        EXPECT_EQ(forms.alive, 0);
    }
}

TEST_F(FormManagerTest, WhatAFormAnswersIsTheAnswerAndNothingIsKept)
{
    test::RegisterTestForm("IPM.Note");
    forms.answer = [](TestForm&, const std::string& call) { return call == "Load 1 2" ? E_FAIL : S_OK; };
    EXPECT_EQ(Load("IPM.Note"), E_FAIL);
    EXPECT_FALSE(form);
    EXPECT_EQ(CountOf(*site.Get()), 1u);
    EXPECT_EQ(forms.alive, 0);

    forms.answer = {};
    EXPECT_EQ(manager->LoadForm(0, 0, "IPM.Note", 0, 0, nullptr, site.Get(), message.Get(), nullptr,
                                IID_IMAPITable, form.PutVoid()),
              E_NOINTERFACE);
    EXPECT_EQ(CountOf(*site.Get()), 1u);
}

TEST_F(FormManagerTest, ALibraryThatIsNotThereIsTheAnswer)
{
    test::RegisterTestForm("IPM.Note");
    Put("IPM.Note", "Library", (directory.Path() / "none.dll").string());

    EXPECT_EQ(Load("IPM.Note"), HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND));
}

TEST_F(FormManagerTest, AClassThatTheLibraryHasNotIsTheAnswer)
{
    test::RegisterTestForm("IPM.Note");
    Put("IPM.Note", "ClassID", "{00000000-0000-0000-0000-000000000001}");

    EXPECT_EQ(Load("IPM.Note"), CLASS_E_CLASSNOTAVAILABLE);
}

TEST_F(FormManagerTest, WrongArgumentsAreRefused)
{
    EXPECT_EQ(Load(nullptr), MAPI_E_INVALID_PARAMETER);
    EXPECT_EQ(Load("IPM.Note", 0x80000000), MAPI_E_UNKNOWN_FLAGS);
    EXPECT_EQ(manager->LoadForm(0, 0, "IPM", 0, 0, nullptr, nullptr, message.Get(), nullptr, IID_IMAPIForm,
                                form.PutVoid()),
              MAPI_E_INVALID_PARAMETER);
    EXPECT_EQ(manager->LoadForm(0, 0, "IPM", 0, 0, nullptr, site.Get(), nullptr, nullptr, IID_IMAPIForm,
                                form.PutVoid()),
              MAPI_E_INVALID_PARAMETER);
    EXPECT_EQ(manager->LoadForm(0, 0, "IPM", 0, 0, nullptr, site.Get(), message.Get(), nullptr, IID_IMAPIForm,
                                nullptr),
              MAPI_E_INVALID_PARAMETER);
}

TEST_F(FormManagerTest, NoListOfFormsIsOffered)
{
    auto* info = reinterpret_cast<LPMAPIFORMINFO>(this);
    LPSMAPIFORMINFOARRAY infos = nullptr;
    LPMAPIFORMPROPARRAY properties = nullptr;
    LPMAPIFORMCONTAINER container = nullptr;
    EXPECT_EQ(manager->ResolveMessageClass("IPM", 0, nullptr, &info), MAPI_E_NO_SUPPORT);
    EXPECT_EQ(info, nullptr);
    EXPECT_EQ(manager->ResolveMultipleMessageClasses(nullptr, 0, nullptr, &infos), MAPI_E_NO_SUPPORT);
    EXPECT_EQ(manager->CalcFormPropSet(nullptr, 0, &properties), MAPI_E_NO_SUPPORT);
    EXPECT_EQ(manager->CreateForm(0, 0, nullptr, IID_IMAPIForm, form.PutVoid()), MAPI_E_NO_SUPPORT);
    EXPECT_EQ(manager->SelectForm(0, 0, nullptr, nullptr, &info), MAPI_E_NO_SUPPORT);
    EXPECT_EQ(manager->SelectMultipleForms(0, 0, nullptr, nullptr, nullptr, &infos), MAPI_E_NO_SUPPORT);
    EXPECT_EQ(manager->SelectFormContainer(0, 0, &container), MAPI_E_NO_SUPPORT);
    EXPECT_EQ(manager->OpenFormContainer(0, nullptr, &container), MAPI_E_NO_SUPPORT);
    EXPECT_EQ(manager->PrepareForm(0, 0, nullptr), MAPI_E_NO_SUPPORT);
    EXPECT_EQ(manager->IsInConflict(0, 0, "IPM", nullptr), S_FALSE);
    EXPECT_EQ(manager->SelectForm(0, 0, nullptr, nullptr, nullptr), MAPI_E_INVALID_PARAMETER);
}

TEST_F(FormManagerTest, AViewerIsChosenByClassAndElseByDefault)
{
    FormChoice choice;
    ASSERT_EQ(FindForm("IPM.Note", false, choice), S_OK);
    EXPECT_EQ(choice.viewer, DefaultViewer());
    EXPECT_FALSE(choice.wait);

    Put("", "Viewer", "for all");
    Put("IPM.Task", "Viewer", "for tasks");
    ASSERT_EQ(FindForm("IPM.Note", false, choice), S_OK);
    EXPECT_EQ(choice.viewer, "for all");
    ASSERT_EQ(FindForm("IPM.Task.Old", false, choice), S_OK);
    EXPECT_EQ(choice.viewer, "for tasks");
}

TEST_F(FormManagerTest, AFormWithoutAUsableClassIdentifierIsNone)
{
    Put("IPM.Note", "Library", "x.dll");
    Put("IPM.Note", "ClassID", "no identifier");

    FormChoice choice;
    ASSERT_EQ(FindForm("IPM.Note", false, choice), S_OK);
    EXPECT_TRUE(choice.library.empty());
    EXPECT_EQ(choice.viewer, DefaultViewer());
}

TEST_F(FormManagerTest, TheViewerIsGivenTheMessageAndTheFormCloses)
{
    const std::string copy = directory.File("copy");
    test::SetVariable("QUORVANE_TEST_VIEWER_COPY", copy.c_str());
    Put("", "Viewer", test::TestViewer());
    RegistryKey key;
    ASSERT_EQ(key.Create(RegistryHive::CurrentUser, kFormsKey), S_OK);
    ASSERT_EQ(key.Set("Wait", RegistryValue::OfNumber(1)), S_OK);
    LoadAndListen("IPM.Note");

    EXPECT_EQ(Open(), S_OK);

    ExpectClosed();
    std::ifstream file(copy, std::ios::binary);
    std::string line;
    ASSERT_TRUE(std::getline(file, line));
    EXPECT_EQ(line, "Subject: Plan\r");
    EXPECT_EQ(ShownFiles().size(), 1u) << "who reads it is done with it at some time";
    test::SetVariable("QUORVANE_TEST_VIEWER_COPY", nullptr);
}

TEST_F(FormManagerTest, TextForATerminalIsWrittenAndTheFormCloses)
{
    Put("", "Viewer", "-");
    LoadAndListen("IPM.Note");

    ::testing::internal::CaptureStdout();
    const HRESULT hr = Open();
    const std::string output = ::testing::internal::GetCapturedStdout();

    EXPECT_EQ(hr, S_OK);
    EXPECT_EQ(output.substr(0, 13), "Subject: Plan");
    ExpectClosed();
    EXPECT_EQ(Open(), E_UNEXPECTED) << "it has no message any more";
    EXPECT_TRUE(ShownFiles().empty());
}

TEST_F(FormManagerTest, AViewerThatIsNotThereIsTheAnswerAndTheFormStaysOpen)
{
    Put("", "Viewer", "no-such-program-anywhere");
    LoadAndListen("IPM.Note");

    EXPECT_EQ(Open(), HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));

    EXPECT_EQ(listener->shutdowns, 0);
    EXPECT_EQ(form->ShutdownForm(SAVEOPTS_NOSAVE), S_OK);
    ExpectClosed();
}

TEST_F(FormManagerTest, TheViewersFormOnlyShows)
{
    ASSERT_EQ(Load("IPM.Note"), S_OK);
    ComPtr<IPersistMessage> persist;
    ASSERT_EQ(form.As(persist), S_OK);
    CLSID clsid = test::kTestFormClass;
    ComPtr<IMAPIViewContext> context;
    EXPECT_EQ(form->DoVerb(EXCHIVERB_OPEN + 1, nullptr, 0, nullptr), MAPI_E_NO_SUPPORT);
    EXPECT_EQ(form->GetViewContext(context.Put()), S_FALSE);
    EXPECT_EQ(form->Unadvise(5), MAPI_E_INVALID_PARAMETER);
    EXPECT_EQ(form->Advise(nullptr, nullptr), MAPI_E_INVALID_PARAMETER);
    EXPECT_EQ(persist->GetClassID(&clsid), S_OK);
    EXPECT_TRUE(IsEqualGUID(clsid, CLSID{}));
    EXPECT_EQ(persist->IsDirty(), S_FALSE);
    EXPECT_EQ(persist->InitNew(site.Get(), message.Get()), MAPI_E_NO_SUPPORT);
    EXPECT_EQ(persist->Save(message.Get(), TRUE), S_OK);
    EXPECT_EQ(persist->SaveCompleted(message.Get()), S_OK);
    EXPECT_EQ(persist->HandsOffMessage(), S_OK);
    EXPECT_EQ(Open(), E_UNEXPECTED);
}

TEST_F(FormManagerTest, FilesOfAnEarlierDayGoWithTheNext)
{
    std::string first;
    std::string second;
    ASSERT_EQ(WriteShownFile("one", first), S_OK);
    ASSERT_EQ(WriteShownFile("two", second), S_OK);
    const auto now = std::filesystem::file_time_type::clock::now();
    std::filesystem::last_write_time(first, now - std::chrono::hours(25));
    std::filesystem::last_write_time(second, now - std::chrono::hours(23));
    const auto other = std::filesystem::path(first).parent_path() / "notes.txt";
    std::ofstream(other) << "mine";
    std::filesystem::last_write_time(other, now - std::chrono::hours(25));

    std::string third;
    ASSERT_EQ(WriteShownFile("three", third), S_OK);

    EXPECT_FALSE(std::filesystem::exists(first));
    EXPECT_TRUE(std::filesystem::exists(second));
    EXPECT_TRUE(std::filesystem::exists(other));
    EXPECT_TRUE(third.ends_with(".eml"));
    EXPECT_EQ(ShownFiles().size(), 3u);
}

}  // namespace
}  // namespace quorvane
