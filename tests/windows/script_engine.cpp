#include "tests/windows/script_engine.h"

#include <activscp.h>

#include <stdexcept>

#include "tests/support/test_directory.h"

QUORVANE_IID(IActiveScriptSite, __uuidof(IActiveScriptSite));
QUORVANE_IID(IActiveScript, __uuidof(IActiveScript));
QUORVANE_IID(IActiveScriptParse, __uuidof(IActiveScriptParse));

namespace quorvane::test {

namespace {

// {F414C260-6AC0-11CF-B6D1-00AA00BBBB58}
constexpr CLSID kJScript = {0xF414C260, 0x6AC0, 0x11CF, {0xB6, 0xD1, 0x00, 0xAA, 0x00, 0xBB, 0xBB, 0x58}};

using Objects = std::map<OleString, ComPtr<IDispatch>>;

class Site final : public ComObject<Site, IActiveScriptSite> {
public:
    explicit Site(const Objects& objects) : objects_(objects) {}

    const std::string& Error() const { return error_; }

    HRESULT STDMETHODCALLTYPE GetLCID(LCID* lcid) override
    {
        *lcid = LOCALE_USER_DEFAULT;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetItemInfo(LPCOLESTR name, DWORD mask, IUnknown** item,
                                          ITypeInfo** type) override
    {
        const auto found = objects_.find(name);
        if (found == objects_.end())
            return TYPE_E_ELEMENTNOTFOUND;
        if ((mask & SCRIPTINFO_IUNKNOWN) != 0)
            *item = ComPtr<IUnknown>(found->second).Detach();
        if ((mask & SCRIPTINFO_ITYPEINFO) != 0)
            *type = nullptr;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetDocVersionString(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE OnScriptTerminate(const VARIANT*, const EXCEPINFO*) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnStateChange(SCRIPTSTATE) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnScriptError(IActiveScriptError* error) override
    {
        DWORD context = 0;
        ULONG line = 0;
        LONG column = 0;
        EXCEPINFO what{};
        if (SUCCEEDED(error->GetSourcePosition(&context, &line, &column)) &&
            SUCCEEDED(error->GetExceptionInfo(&what)))
            error_ = "line " + std::to_string(line + 1) + ": " + ToUtf8(ViewOf(what.bstrDescription));
        SysFreeString(what.bstrSource);
        SysFreeString(what.bstrDescription);
        SysFreeString(what.bstrHelpFile);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE OnEnterScript() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnLeaveScript() override { return S_OK; }

private:
    const Objects& objects_;
    std::string error_;
};

std::vector<VARIANT> FirstToLast(const DISPPARAMS& params)
{
    return {std::reverse_iterator(params.rgvarg + params.cArgs), std::reverse_iterator(params.rgvarg)};
}

DISPID IdOf(IDispatch& object, const OleString& name)
{
    DISPID id = DISPID_UNKNOWN;
    LPOLESTR text = const_cast<LPOLESTR>(name.c_str());
    Check(object.GetIDsOfNames(IID_NULL, &text, 1, LOCALE_USER_DEFAULT, &id), "find a script's function");
    return id;
}

}  // namespace

HRESULT ScriptObject::GetTypeInfoCount(UINT* count)
{
    *count = 0;
    return S_OK;
}

HRESULT ScriptObject::GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID, DISPID* ids)
{
    for (size_t i = 0; count == 1 && i < methods_.size(); ++i) {
        if (methods_[i].first == names[0]) {
            ids[0] = static_cast<DISPID>(i + 1);
            return S_OK;
        }
    }
    return DISP_E_UNKNOWNNAME;
}

HRESULT ScriptObject::Invoke(DISPID id, REFIID, LCID, WORD, DISPPARAMS* params, VARIANT* result, EXCEPINFO*,
                             UINT*)
{
    if (id < 1 || static_cast<size_t>(id) > methods_.size())
        return DISP_E_MEMBERNOTFOUND;
    try {
        const std::vector<VARIANT> arguments = FirstToLast(*params);
        Variant answer = methods_[static_cast<size_t>(id) - 1].second(arguments);
        if (result)
            *result = answer.Detach();
        return S_OK;
    } catch (const std::exception&) {
        return E_FAIL;
    }
}

HRESULT ScriptCallback::QueryInterface(REFIID riid, void** object)
{
    if (!IsEqualIID(riid, iid_))
        return ComObject::QueryInterface(riid, object);
    AddRef();
    *object = static_cast<IDispatch*>(this);
    return S_OK;
}

HRESULT ScriptCallback::GetTypeInfoCount(UINT* count)
{
    *count = 0;
    return S_OK;
}

HRESULT ScriptCallback::Invoke(DISPID id, REFIID, LCID, WORD flags, DISPPARAMS* params, VARIANT* result,
                               EXCEPINFO*, UINT*)
{
    const auto name = names_.find(id);
    if (name == names_.end())
        return DISP_E_MEMBERNOTFOUND;
    try {
        std::vector<VARIANT> arguments = FirstToLast(*params);
        VARIANT_BOOL* ignore = nullptr;
        if (!arguments.empty() && arguments.back().vt == (VT_BYREF | VT_BOOL)) {
            ignore = arguments.back().pboolVal;
            arguments.pop_back();
        }
        std::vector<VARIANT> reversed(arguments.rbegin(), arguments.rend());
        DISPPARAMS passed{reversed.data(), nullptr, static_cast<UINT>(reversed.size()), 0};
        Variant answer;
        const HRESULT hr = script_->Invoke(IdOf(*script_.Get(), name->second), IID_NULL, LOCALE_USER_DEFAULT,
                                           flags, &passed, answer.Put(), nullptr, nullptr);
        if (SUCCEEDED(hr) && ignore)
            *ignore = SUCCEEDED(answer.ChangeType(VT_BOOL)) ? answer.Raw().boolVal : VARIANT_FALSE;
        else if (SUCCEEDED(hr) && result)
            *result = answer.Detach();
        return hr;
    } catch (const std::exception&) {
        return E_FAIL;
    }
}

void RunScript(const OleString& source, const Objects& objects)
{
    ComPtr<IActiveScript> engine;
    Check(
        CoCreateInstance(kJScript, nullptr, CLSCTX_INPROC_SERVER, __uuidof(IActiveScript), engine.PutVoid()),
        "start JScript");
    const auto site = MakeComObject<Site>(objects);
    ComPtr<IActiveScriptParse> parse;
    Check(engine.As(parse), "start JScript");
    Check(parse->InitNew(), "start JScript");
    Check(engine->SetScriptSite(site.Get()), "start JScript");
    for (const auto& object : objects)
        Check(engine->AddNamedItem(object.first.c_str(), SCRIPTITEM_ISVISIBLE), "name an object");
    Check(engine->SetScriptState(SCRIPTSTATE_STARTED), "start JScript");
    const HRESULT hr = parse->ParseScriptText(source.c_str(), nullptr, nullptr, nullptr, 0, 0,
                                              SCRIPTTEXT_ISVISIBLE, nullptr, nullptr);
    engine->Close();
    if (FAILED(hr) || !site->Error().empty())
        throw std::runtime_error("the script fails: " + site->Error());
}

Variant CallScript(IDispatch* function)
{
    Variant answer;
    DISPPARAMS none{};
    Check(function->Invoke(DISPID_VALUE, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &none, answer.Put(),
                           nullptr, nullptr),
          "call a script's function");
    return answer;
}

}  // namespace quorvane::test
