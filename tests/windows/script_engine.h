// tests/windows/script_engine.h: JScript in this process, as a program that runs scripts has it.
#ifndef QUORVANE_TESTS_WINDOWS_SCRIPT_ENGINE_H_
#define QUORVANE_TESTS_WINDOWS_SCRIPT_ENGINE_H_

#include <functional>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "quorvane3/com.h"

namespace quorvane::test {

// An object with methods for a script. Belongs to the script's thread.
class ScriptObject final : public ComObject<ScriptObject, IDispatch> {
public:
    // Arguments first to last; what is thrown makes the call fail.
    using Method = std::function<Variant(std::span<const VARIANT> arguments)>;

    void Add(const OleString& name, Method method) { methods_.emplace_back(name, std::move(method)); }

    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override;
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID, DISPID* ids) override;
    HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID, LCID, WORD, DISPPARAMS* params, VARIANT* result,
                                     EXCEPINFO*, UINT*) override;

private:
    std::vector<std::pair<OleString, Method>> methods_;
};

// A callback of the engine's whose operations are functions and properties of a script's object, found by
// name. What a function returns for an event about an item is its ignoreEvent, as scripts have no [in,out].
// Belongs to the script's thread.
class ScriptCallback final : public ComObject<ScriptCallback, IDispatch> {
public:
    ScriptCallback(REFIID iid, std::map<DISPID, OleString> names, ComPtr<IDispatch> script)
        : iid_(iid), names_(std::move(names)), script_(std::move(script))
    {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override;
    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override;
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override
    {
        return DISP_E_UNKNOWNNAME;
    }
    HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID, LCID, WORD flags, DISPPARAMS* params, VARIANT* result,
                                     EXCEPINFO*, UINT*) override;

private:
    const IID iid_;
    const std::map<DISPID, OleString> names_;
    const ComPtr<IDispatch> script_;
};

// Runs a script to its end, on this thread, which is an apartment.
//
// objects  what the script knows by name.
//
// Throws std::runtime_error: there is no JScript, or the script failed; with line and text.
void RunScript(const OleString& source, const std::map<OleString, ComPtr<IDispatch>>& objects);

// Calls a function of a script's without arguments.
Variant CallScript(IDispatch* function);

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_WINDOWS_SCRIPT_ENGINE_H_
