#include "platform/com/dispatch_arguments.h"

namespace quorvane::detail {

VARIANT& Dereferenced(VARIANT& argument) noexcept
{
    return argument.vt == (VT_BYREF | VT_VARIANT) && argument.pvarVal ? *argument.pvarVal : argument;
}

HRESULT ConvertArgument(const VARIANT& argument, VARTYPE type, Variant& value) noexcept
{
    const HRESULT hr =
        VariantChangeType(value.Put(), const_cast<VARIANT*>(&argument), VARIANT_ALPHABOOL, type);
    // A reference that leads nowhere is as wrong a type as any.
    return hr == E_INVALIDARG || hr == DISP_E_BADVARTYPE ? DISP_E_TYPEMISMATCH : hr;
}

HRESULT StoreByReference(VARIANT& argument, Variant& value) noexcept
{
    if (!(argument.vt & VT_BYREF) || !argument.byref)
        return S_OK;
    if (argument.vt == (VT_BYREF | VT_VARIANT)) {
        if (argument.pvarVal->vt & VT_BYREF)
            return StoreByReference(*argument.pvarVal, value);
        const HRESULT cleared = VariantClear(argument.pvarVal);
        if (SUCCEEDED(cleared))
            *argument.pvarVal = value.Detach();
        return cleared;
    }
    const auto type = static_cast<VARTYPE>(argument.vt & ~VT_BYREF);
    const HRESULT hr = value.ChangeType(type);
    if (FAILED(hr))
        return hr;
    switch (type) {
        case VT_BSTR:
            SysFreeString(std::exchange(*argument.pbstrVal, value.Detach().bstrVal));
            return S_OK;
        case VT_I1:
        case VT_UI1:
            *argument.pbVal = value.Raw().bVal;
            return S_OK;
        case VT_I2:
        case VT_UI2:
        case VT_BOOL:
            *argument.piVal = value.Raw().iVal;
            return S_OK;
        case VT_I4:
        case VT_UI4:
        case VT_INT:
        case VT_UINT:
            *argument.plVal = value.Raw().lVal;
            return S_OK;
        case VT_R4:
            *argument.pfltVal = value.Raw().fltVal;
            return S_OK;
        case VT_I8:
        case VT_UI8:
        case VT_R8:
        case VT_CY:
        case VT_DATE:
            *argument.pllVal = value.Raw().llVal;
            return S_OK;
        default:
            return DISP_E_TYPEMISMATCH;
    }
}

void* DirectReference(VARIANT& argument, VARTYPE type) noexcept
{
    VARIANT& held = Dereferenced(argument);
    return held.vt == (VT_BYREF | type) ? held.byref : nullptr;
}

HRESULT ConvertInterface(const VARIANT& argument, REFIID riid, void** object) noexcept
{
    *object = nullptr;
    const VARIANT* held = &Dereferenced(const_cast<VARIANT&>(argument));
    IUnknown* given = nullptr;
    if (held->vt == VT_DISPATCH || held->vt == VT_UNKNOWN)
        given = held->punkVal;
    else if ((held->vt == (VT_BYREF | VT_DISPATCH) || held->vt == (VT_BYREF | VT_UNKNOWN)) && held->ppunkVal)
        given = *held->ppunkVal;
    else
        return DISP_E_TYPEMISMATCH;
    if (!given)
        return S_OK;
    return FAILED(given->QueryInterface(riid, object)) ? DISP_E_TYPEMISMATCH : S_OK;
}

HRESULT ConvertArray(const VARIANT& argument, SAFEARRAY** array) noexcept
{
    const VARIANT& held = Dereferenced(const_cast<VARIANT&>(argument));
    if (held.vt == (VT_ARRAY | VT_VARIANT))
        *array = held.parray;
    else if (held.vt == (VT_BYREF | VT_ARRAY | VT_VARIANT) && held.pparray)
        *array = *held.pparray;
    else
        return DISP_E_TYPEMISMATCH;
    return S_OK;
}

HRESULT ParameterSlot<BSTR*>::Load(DispatchFrame& frame, size_t parameter, LONG) noexcept
{
    VARIANT* const argument = frame.Argument(parameter);
    if (!argument)
        return S_OK;
    direct = static_cast<BSTR*>(DirectReference(*argument, VT_BSTR));
    if (direct)
        return S_OK;
    Variant converted;
    const HRESULT hr = ConvertArgument(*argument, VT_BSTR, converted);
    if (FAILED(hr))
        return frame.Fault(parameter, hr);
    local = converted.Detach().bstrVal;
    return S_OK;
}

HRESULT ParameterSlot<BSTR*>::Store(DispatchFrame& frame, size_t parameter) noexcept
{
    Variant value;
    VARIANT* const argument = frame.Argument(parameter);
    if (direct || (!argument && !frame.IsResult(parameter)))
        return S_OK;
    value.Raw().vt = VT_BSTR;
    value.Raw().bstrVal = std::exchange(local, nullptr);
    if (argument)
        return StoreByReference(*argument, value);
    frame.SetResult(value.Detach());
    return S_OK;
}

HRESULT ParameterSlot<VARIANT*>::Load(DispatchFrame& frame, size_t parameter, LONG) noexcept
{
    VARIANT* const argument = frame.Argument(parameter);
    if (!argument)
        return S_OK;
    if (argument->vt == (VT_BYREF | VT_VARIANT) && argument->pvarVal) {
        direct = argument->pvarVal;
        return S_OK;
    }
    const HRESULT hr = local.Assign(*argument);
    return FAILED(hr) ? frame.Fault(parameter, DISP_E_TYPEMISMATCH) : S_OK;
}

HRESULT ParameterSlot<VARIANT*>::Store(DispatchFrame& frame, size_t parameter) noexcept
{
    if (frame.IsResult(parameter))
        frame.SetResult(local.Detach());
    return S_OK;
}

HRESULT ParameterSlot<SAFEARRAY**>::Load(DispatchFrame& frame, size_t parameter, LONG) noexcept
{
    VARIANT* const argument = frame.Argument(parameter);
    if (!argument)
        return S_OK;
    direct = static_cast<SAFEARRAY**>(DirectReference(*argument, VT_ARRAY | VT_VARIANT));
    if (direct)
        return S_OK;
    // The operation may put another array in its place, so it gets a copy of the caller's.
    SAFEARRAY* given = nullptr;
    HRESULT hr = ConvertArray(*argument, &given);
    if (SUCCEEDED(hr))
        hr = local.Assign(given);
    passed = local.Detach();
    return FAILED(hr) ? frame.Fault(parameter, hr) : S_OK;
}

HRESULT ParameterSlot<SAFEARRAY**>::Store(DispatchFrame& frame, size_t parameter) noexcept
{
    if (frame.IsResult(parameter)) {
        local = SafeArray::Attach(std::exchange(passed, nullptr));
        frame.SetResult(local.DetachAsVariant().Detach());
    }
    return S_OK;
}

ParameterSlot<SAFEARRAY**>::~ParameterSlot()
{
    if (passed)
        SafeArrayDestroy(passed);
}

}  // namespace quorvane::detail
