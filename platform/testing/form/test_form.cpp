#include "platform/testing/form/test_form.h"

#include <cstdlib>
#include <fstream>
#include <stdexcept>

#include "platform/module/module.h"
#include "platform/testing/surroundings.h"

namespace quorvane::test {

const CLSID kTestFormClass = {0x9C8D3C2B, 0x51F4, 0x4E0A, {0xB6, 0x0F, 0x37, 0x5A, 0x1E, 0xD2, 0x84, 0x6C}};

TestForm::TestForm(TestForms& forms) : forms_(forms)
{
    forms_.last = this;
    ++forms_.alive;
}

TestForm::~TestForm()
{
    if (forms_.last == this)
        forms_.last = nullptr;
    --forms_.alive;
}

HRESULT TestForm::Note(const std::string& call)
{
    forms_.calls.push_back(call);
    if (const char* const log = std::getenv("QUORVANE_TEST_FORM_LOG"))
        std::ofstream(log, std::ios::app) << call << '\n';
    return forms_.answer ? forms_.answer(*this, call) : S_OK;
}

void TestForm::Close()
{
    const ComPtr<TestForm> self(this);
    const auto told = sinks;
    for (const auto& [connection, sink] : told)
        static_cast<void>(sink->OnShutdown());  // whatever a viewer says, the form closes
    sinks.clear();
    site.Reset();
    message.Reset();
    context.Reset();
}

ULONG TestForm::Count() noexcept
{
    AddRef();
    return Release();
}

HRESULT TestForm::GetLastError(HRESULT, ULONG, LPMAPIERROR* error)
{
    *error = nullptr;
    return S_OK;
}

HRESULT TestForm::SetViewContext(LPMAPIVIEWCONTEXT view)
{
    const HRESULT hr = Note("SetViewContext");
    if (SUCCEEDED(hr))
        context = view;
    return hr;
}

HRESULT TestForm::GetViewContext(LPMAPIVIEWCONTEXT* view)
{
    return context.CopyTo(view);
}

HRESULT TestForm::ShutdownForm(ULONG saveOptions)
{
    const HRESULT hr = Note("ShutdownForm " + std::to_string(saveOptions));
    if (SUCCEEDED(hr))
        Close();
    return hr;
}

HRESULT TestForm::DoVerb(LONG verb, LPMAPIVIEWCONTEXT view, ULONG_PTR parent, LPCRECT position)
{
    const HRESULT hr =
        Note("DoVerb " + std::to_string(verb) + (view || parent || position ? " with more" : ""));
    if (SUCCEEDED(hr) && std::getenv("QUORVANE_TEST_FORM_CLOSES"))
        Close();
    return hr;
}

HRESULT TestForm::Advise(LPMAPIVIEWADVISESINK sink, ULONG_PTR* connection)
{
    const HRESULT hr = Note("Advise");
    if (FAILED(hr))
        return hr;
    *connection = nextConnection_++;
    sinks[*connection] = sink;
    return S_OK;
}

HRESULT TestForm::Unadvise(ULONG_PTR connection)
{
    const HRESULT hr = Note("Unadvise");
    if (FAILED(hr))
        return hr;
    return sinks.erase(connection) == 1 ? S_OK : E_INVALIDARG;
}

HRESULT TestForm::GetClassID(CLSID* clsid)
{
    *clsid = kTestFormClass;
    return S_OK;
}

HRESULT TestForm::IsDirty()
{
    return S_FALSE;
}

HRESULT TestForm::InitNew(LPMAPIMESSAGESITE place, LPMESSAGE text)
{
    const HRESULT hr = Note("InitNew");
    site = place;
    message = text;
    return hr;
}

HRESULT TestForm::Load(LPMAPIMESSAGESITE place, LPMESSAGE text, ULONG messageStatus, ULONG messageFlags)
{
    const HRESULT hr = Note("Load " + std::to_string(messageStatus) + " " + std::to_string(messageFlags));
    site = place;
    message = text;
    return hr;
}

HRESULT TestForm::Save(LPMESSAGE text, ULONG sameAsLoad)
{
    return Note("Save " + std::to_string(sameAsLoad) + (text == message.Get() ? "" : " into another"));
}

HRESULT TestForm::SaveCompleted(LPMESSAGE)
{
    return Note("SaveCompleted");
}

HRESULT TestForm::HandsOffMessage()
{
    const HRESULT hr = Note("HandsOffMessage");
    message.Reset();
    return hr;
}

TestForms& FormsOfLibrary()
{
    Module library;
    if (FAILED(library.Load(QUORVANE_TEST_FORM)))
        throw std::runtime_error("can't load " QUORVANE_TEST_FORM);
    return *library.Find<TestForms* (*)()>("TestFormsHere")();
}

std::string TestViewer()
{
    return QUORVANE_TEST_VIEWER;
}

void RegisterTestForm(const std::string& messageClass)
{
    OLECHAR text[40] = {};
    StringFromGUID2(kTestFormClass, text, 40);
    const std::string key = "Software\\Brindlemoor\\Quorvane\\Message Store\\Forms\\" + messageClass;
    PutUserSetting(key, "Library", QUORVANE_TEST_FORM);
    PutUserSetting(key, "ClassID", std::string(text, text + 38));
}

}  // namespace quorvane::test
