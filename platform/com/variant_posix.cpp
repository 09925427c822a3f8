// The life of a VARIANT: initialising, clearing, copying.
#include "platform/com/com.h"

namespace {

bool IsValidType(VARTYPE vt) noexcept
{
    const VARTYPE base = vt & VT_TYPEMASK;
    const bool modified = (vt & (VT_ARRAY | VT_BYREF)) != 0;
    if ((vt & ~(VT_TYPEMASK | VT_ARRAY | VT_BYREF)) != 0)
        return false;
    if (base <= VT_NULL)
        return !modified;
    if (base == VT_VARIANT)
        return modified;
    return base <= VT_DECIMAL || (base >= VT_I1 && base <= VT_UINT);
}

// Duplicates what `value` points at, for a VARIANT that was copied bit by bit.
HRESULT OwnContents(VARIANT& value) noexcept
{
    if (value.vt & VT_BYREF)
        return S_OK;
    if (value.vt & VT_ARRAY) {
        SAFEARRAY* const source = value.parray;
        value.parray = nullptr;
        return source ? SafeArrayCopy(source, &value.parray) : S_OK;
    }
    if (value.vt == VT_BSTR && value.bstrVal) {
        value.bstrVal =
            SysAllocStringByteLen(reinterpret_cast<LPCSTR>(value.bstrVal), SysStringByteLen(value.bstrVal));
        return value.bstrVal ? S_OK : E_OUTOFMEMORY;
    }
    if ((value.vt == VT_UNKNOWN || value.vt == VT_DISPATCH) && value.punkVal)
        value.punkVal->AddRef();
    return S_OK;
}

// The value behind a reference, not owned.
VARIANT ReferredValue(const VARIANT& reference) noexcept
{
    const VARTYPE type = static_cast<VARTYPE>(reference.vt & ~VT_BYREF);
    VARIANT value;
    VariantInit(&value);
    value.vt = type;
    if (type & VT_ARRAY) {
        value.parray = *reference.pparray;
        return value;
    }
    switch (type) {
        case VT_I1:
        case VT_UI1:
            value.bVal = *reference.pbVal;
            break;
        case VT_I2:
        case VT_UI2:
        case VT_BOOL:
            value.iVal = *reference.piVal;
            break;
        case VT_I4:
        case VT_UI4:
        case VT_INT:
        case VT_UINT:
        case VT_ERROR:
        case VT_R4:
            value.lVal = *reference.plVal;
            break;
        case VT_DECIMAL:
            value.decVal = *static_cast<DECIMAL*>(reference.byref);
            value.vt = VT_DECIMAL;
            break;
        default:
            value.llVal = *reference.pllVal;
            break;
    }
    return value;
}

}  // namespace

void VariantInit(VARIANTARG* variant)
{
    if (variant)
        *variant = VARIANT{};
}

HRESULT VariantClear(VARIANTARG* variant)
{
    if (!variant)
        return E_INVALIDARG;
    if (!IsValidType(variant->vt))
        return DISP_E_BADVARTYPE;
    if (!(variant->vt & VT_BYREF)) {
        if (variant->vt & VT_ARRAY) {
            const HRESULT hr = SafeArrayDestroy(variant->parray);
            if (FAILED(hr))
                return hr;
        } else if (variant->vt == VT_BSTR) {
            SysFreeString(variant->bstrVal);
        } else if ((variant->vt == VT_UNKNOWN || variant->vt == VT_DISPATCH) && variant->punkVal) {
            variant->punkVal->Release();
        }
    }
    VariantInit(variant);
    return S_OK;
}

HRESULT VariantCopy(VARIANTARG* target, const VARIANTARG* source)
{
    if (!target || !source)
        return E_INVALIDARG;
    if (target == source)
        return S_OK;
    if (!IsValidType(source->vt))
        return DISP_E_BADVARTYPE;
    VARIANT copy = *source;
    HRESULT hr = OwnContents(copy);
    if (FAILED(hr))
        return hr;
    hr = VariantClear(target);
    if (FAILED(hr)) {
        VariantClear(&copy);
        return hr;
    }
    *target = copy;
    return S_OK;
}

HRESULT VariantCopyInd(VARIANT* target, const VARIANTARG* source)
{
    if (!target || !source)
        return E_INVALIDARG;
    if (!(source->vt & VT_BYREF))
        return VariantCopy(target, source);
    if (!IsValidType(source->vt))
        return DISP_E_BADVARTYPE;
    if (!source->byref)
        return E_INVALIDARG;
    if (source->vt == (VT_BYREF | VT_VARIANT)) {
        const VARIANT& inner = *source->pvarVal;
        if (inner.vt == (VT_BYREF | VT_VARIANT))
            return E_INVALIDARG;
        return VariantCopyInd(target, &inner);
    }
    const VARIANT value = ReferredValue(*source);
    return VariantCopy(target, &value);
}
