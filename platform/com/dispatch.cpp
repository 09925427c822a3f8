#include "platform/com/dispatch.h"

#include <algorithm>
#include <new>

#include "platform/com/error_text.h"

namespace quorvane {

namespace detail {

namespace {

OLECHAR Folded(OLECHAR c) noexcept
{
    return c >= 'A' && c <= 'Z' ? static_cast<OLECHAR>(c - 'A' + 'a') : c;
}

bool IsSameName(const OLECHAR* left, const OLECHAR* right) noexcept
{
    while (*left && Folded(*left) == Folded(*right)) {
        ++left;
        ++right;
    }
    return Folded(*left) == Folded(*right);
}

const Operation* FindByName(std::span<const Operation> table, const OLECHAR* name) noexcept
{
    for (const Operation& operation : table) {
        if (IsSameName(operation.name, name))
            return &operation;
    }
    return nullptr;
}

DISPID FindArgument(const Operation& operation, const OLECHAR* name) noexcept
{
    for (size_t i = 0; i < operation.ArgumentCount(); ++i) {
        if (IsSameName(operation.arguments[i].name, name))
            return static_cast<DISPID>(i);
    }
    return DISPID_UNKNOWN;
}

// A property is put by reference in the same way as by value, where an object can be put.
bool IsOfKind(const Operation& operation, WORD flags) noexcept
{
    return (static_cast<WORD>(operation.kind) & flags) != 0 ||
           ((flags & DISPATCH_PROPERTYPUTREF) != 0 && operation.PutsObject());
}

const Operation* FindById(std::span<const Operation> table, DISPID id, WORD flags) noexcept
{
    for (const Operation& operation : table) {
        if (operation.id == id && IsOfKind(operation, flags))
            return &operation;
    }
    return nullptr;
}

// The explicit form of an absent argument.
bool IsMissing(const VARIANT& argument) noexcept
{
    return argument.vt == VT_ERROR && argument.scode == DISP_E_PARAMNOTFOUND;
}

// Sorts a call's arguments by parameter. Those given by name come first in the list, the others follow from
// the last to the first.
class ArgumentSorter {
public:
    ArgumentSorter(const Operation& operation, DISPPARAMS& params, DispatchFrame& frame,
                   UINT& faulty) noexcept
        : operation_(operation), params_(params), frame_(frame), faulty_(faulty)
    {}

    HRESULT Sort() noexcept
    {
        if (params_.cNamedArgs > params_.cArgs || params_.cArgs > operation_.ArgumentCount())
            return DISP_E_BADPARAMCOUNT;
        if ((params_.cArgs && !params_.rgvarg) || (params_.cNamedArgs && !params_.rgdispidNamedArgs))
            return E_INVALIDARG;
        if (operation_.kind == OperationKind::Put && params_.cArgs > 0 && !IsValueNamed())
            return DISP_E_PARAMNOTFOUND;
        const UINT unnamed = params_.cArgs - params_.cNamedArgs;
        for (UINT i = 0; i < unnamed; ++i) {
            const HRESULT hr = Take(i, params_.cArgs - 1 - i);
            if (FAILED(hr))
                return hr;
        }
        for (UINT place = 0; place < params_.cNamedArgs; ++place) {
            const HRESULT hr = TakeNamed(params_.rgdispidNamedArgs[place], place);
            if (FAILED(hr))
                return hr;
        }
        return CheckPresence();
    }

private:
    bool IsValueNamed() const noexcept
    {
        const DISPID* const names = params_.rgdispidNamedArgs;
        return std::find(names, names + params_.cNamedArgs, DISPID_PROPERTYPUT) != names + params_.cNamedArgs;
    }

    HRESULT TakeNamed(DISPID name, UINT place) noexcept
    {
        const auto count = static_cast<DISPID>(operation_.ArgumentCount());
        const bool isPut = operation_.kind == OperationKind::Put && name == DISPID_PROPERTYPUT;
        const DISPID parameter = isPut ? count - 1 : name;
        if (parameter < 0 || parameter >= count) {
            faulty_ = place;
            return DISP_E_PARAMNOTFOUND;
        }
        return Take(static_cast<size_t>(parameter), place);
    }

    HRESULT Take(size_t parameter, UINT place) noexcept
    {
        if (taken_[parameter])
            return DISP_E_BADPARAMCOUNT;
        taken_[parameter] = true;
        VARIANT& argument = params_.rgvarg[place];
        if (!IsMissing(argument))
            frame_.SetArgument(parameter, &argument, place);
        else
            faulty_ = place;
        return S_OK;
    }

    HRESULT CheckPresence() const noexcept
    {
        for (size_t i = 0; i < operation_.ArgumentCount(); ++i) {
            if (!frame_.Argument(i) && operation_.arguments[i].kind != ArgumentKind::Optional)
                return DISP_E_PARAMNOTOPTIONAL;
        }
        return S_OK;
    }

    const Operation& operation_;
    DISPPARAMS& params_;
    DispatchFrame& frame_;
    UINT& faulty_;
    std::array<bool, Operation::kMaxArguments> taken_{};
};

// The operation's failure becomes the exception, with the texts that it left on the thread, if the caller
// wants one.
HRESULT ReportFailure(HRESULT hr, EXCEPINFO* exception) noexcept
{
    if (!exception)
        return hr;
    *exception = EXCEPINFO{};
    exception->scode = hr;
    ComPtr<IErrorInfo> info;
    if (GetErrorInfo(0, info.Put()) == S_OK) {
        info->GetSource(&exception->bstrSource);
        info->GetDescription(&exception->bstrDescription);
        info->GetHelpFile(&exception->bstrHelpFile);
        info->GetHelpContext(&exception->dwHelpContext);
    }
    return DISP_E_EXCEPTION;
}

HRESULT CallOperation(const Operation& operation, void* object, DispatchFrame& frame) noexcept
{
    try {
        return operation.call(object, operation, frame);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    } catch (...) {
        return E_UNEXPECTED;
    }
}

}  // namespace

HRESULT FindDispatchIds(std::span<const Operation> table, REFIID riid, LPOLESTR* names, UINT count,
                        DISPID* ids) noexcept
{
    if (!IsEqualIID(riid, IID_NULL))
        return DISP_E_UNKNOWNINTERFACE;
    if (!names || !ids || count == 0 || std::find(names, names + count, nullptr) != names + count)
        return E_INVALIDARG;
    const Operation* const operation = FindByName(table, names[0]);
    ids[0] = operation ? operation->id : DISPID_UNKNOWN;
    bool allFound = operation != nullptr;
    for (UINT i = 1; i < count; ++i) {
        ids[i] = operation ? FindArgument(*operation, names[i]) : DISPID_UNKNOWN;
        allFound = allFound && ids[i] != DISPID_UNKNOWN;
    }
    return allFound ? S_OK : DISP_E_UNKNOWNNAME;
}

HRESULT InvokeOperation(std::span<const Operation> table, void* object, DISPID id, REFIID riid, WORD flags,
                        DISPPARAMS* params, VARIANT* result, EXCEPINFO* exception,
                        UINT* argumentError) noexcept
{
    if (!IsEqualIID(riid, IID_NULL))
        return DISP_E_UNKNOWNINTERFACE;
    if (!params)
        return E_INVALIDARG;
    if (result)
        VariantInit(result);
    const Operation* const operation = FindById(table, id, flags);
    if (!operation)
        return DISP_E_MEMBERNOTFOUND;

    DispatchFrame frame;
    UINT faulty = 0;
    HRESULT hr = ArgumentSorter(*operation, *params, frame, faulty).Sort();
    if (SUCCEEDED(hr)) {
        if (operation->HasResult())
            frame.SetResultParameter(operation->parameterCount - 1);
        ClearErrorInfo();
        hr = CallOperation(*operation, object, frame);
        if (frame.OperationFailed())
            return ReportFailure(hr, exception);
        faulty = frame.FaultyPlace();
    }
    if (FAILED(hr)) {
        if (argumentError)
            *argumentError = faulty;
        return hr;
    }
    if (result)
        *result = frame.TheResult().Detach();
    return hr;
}

}  // namespace detail

namespace {

void FreeTexts(EXCEPINFO& exception) noexcept
{
    SysFreeString(exception.bstrSource);
    SysFreeString(exception.bstrDescription);
    SysFreeString(exception.bstrHelpFile);
}

HRESULT CodeOf(EXCEPINFO& exception) noexcept
{
    if (exception.pfnDeferredFillIn)
        exception.pfnDeferredFillIn(&exception);
    return FAILED(exception.scode) ? exception.scode : E_FAIL;
}

}  // namespace

HRESULT InvokeById(IDispatch* object, DISPID id, WORD flags, std::span<const VARIANT> arguments,
                   Variant* result) noexcept
{
    if (!object)
        return E_POINTER;
    if (arguments.size() > Operation::kMaxArguments)
        return E_INVALIDARG;
    std::array<VARIANT, Operation::kMaxArguments> reversed{};
    for (size_t i = 0; i < arguments.size(); ++i)
        reversed[arguments.size() - 1 - i] = arguments[i];
    DISPID put = DISPID_PROPERTYPUT;
    DISPPARAMS params{};
    params.rgvarg = reversed.data();
    params.cArgs = static_cast<UINT>(arguments.size());
    if (flags & (DISPATCH_PROPERTYPUT | DISPATCH_PROPERTYPUTREF)) {
        params.rgdispidNamedArgs = &put;
        params.cNamedArgs = 1;
    }
    EXCEPINFO exception{};
    Variant answer;
    HRESULT hr =
        object->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, flags, &params, &answer.Raw(), &exception, nullptr);
    if (hr == DISP_E_EXCEPTION)
        hr = CodeOf(exception);
    FreeTexts(exception);
    if (result)
        *result = FAILED(hr) ? Variant() : std::move(answer);
    return hr;
}

}  // namespace quorvane
