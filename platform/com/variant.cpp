#include "platform/com/variant.h"

namespace quorvane {

namespace {

// Whether a value is a text that isn't there, or refers to one.
bool IsNullText(const VARIANT& value) noexcept
{
    switch (value.vt) {
        case VT_BSTR:
            return !value.bstrVal;
        case VT_BYREF | VT_BSTR:
            return !*value.pbstrVal;
        case VT_BYREF | VT_VARIANT:
            return IsNullText(*value.pvarVal);
        default:
            return false;
    }
}

}  // namespace

Variant Variant::Text(OleStringView text)
{
    Variant result;
    result.value_.bstrVal = Bstr(text).Detach();
    result.value_.vt = VT_BSTR;
    return result;
}

Variant Variant::Long(LONG value) noexcept
{
    Variant result;
    result.value_.vt = VT_I4;
    result.value_.lVal = value;
    return result;
}

Variant Variant::ULong(ULONG value) noexcept
{
    Variant result;
    result.value_.vt = VT_UI4;
    result.value_.ulVal = value;
    return result;
}

Variant Variant::Double(double value) noexcept
{
    Variant result;
    result.value_.vt = VT_R8;
    result.value_.dblVal = value;
    return result;
}

Variant Variant::Bool(bool value) noexcept
{
    Variant result;
    result.value_.vt = VT_BOOL;
    result.value_.boolVal = value ? VARIANT_TRUE : VARIANT_FALSE;
    return result;
}

Variant Variant::Missing() noexcept
{
    Variant result;
    result.value_.vt = VT_ERROR;
    result.value_.scode = DISP_E_PARAMNOTFOUND;
    return result;
}

Variant Variant::Dispatch(IDispatch* object) noexcept
{
    Variant result;
    result.value_.vt = VT_DISPATCH;
    result.value_.pdispVal = ComPtr<IDispatch>(object).Detach();
    return result;
}

Variant Variant::Unknown(IUnknown* object) noexcept
{
    Variant result;
    result.value_.vt = VT_UNKNOWN;
    result.value_.punkVal = ComPtr<IUnknown>(object).Detach();
    return result;
}

HRESULT Variant::Assign(const VARIANT& source) noexcept
{
    Variant copy;
    const HRESULT hr = VariantCopyInd(&copy.value_, const_cast<VARIANT*>(&source));
    if (FAILED(hr))
        return hr;
    // Windows copies a null text as an empty one.
    if (IsNullText(source))
        SysFreeString(std::exchange(copy.value_.bstrVal, nullptr));
    std::swap(value_, copy.value_);
    return hr;
}

HRESULT Variant::ChangeType(VARTYPE type) noexcept
{
    return VariantChangeType(&value_, &value_, 0, type);
}

HRESULT Variant::CopyTo(VARIANT* out) const noexcept
{
    if (!out)
        return E_POINTER;
    VariantInit(out);
    return VariantCopy(out, const_cast<VARIANT*>(&value_));
}

VARIANT Variant::Detach() noexcept
{
    const VARIANT result = value_;
    VariantInit(&value_);
    return result;
}

}  // namespace quorvane
