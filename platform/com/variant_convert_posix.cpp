// VariantChangeType.
#include <cmath>
#include <limits>
#include <new>

#include "platform/com/variant.h"
#include "platform/com/variant_number.h"

namespace {

using quorvane::OleString;
using quorvane::OleStringView;
using quorvane::Variant;
using quorvane::ViewOf;
using quorvane::detail::Number;

constexpr double kFirstDate = -657434.0;
constexpr double kBehindLastDate = 2958466.0;
constexpr std::int64_t kCurrencyUnits = 10000;

bool EqualsIgnoringAsciiCase(OleStringView text, OleStringView small) noexcept
{
    if (text.size() != small.size())
        return false;
    for (size_t i = 0; i < text.size(); ++i) {
        const OLECHAR c =
            text[i] >= 'A' && text[i] <= 'Z' ? static_cast<OLECHAR>(text[i] - 'A' + 'a') : text[i];
        if (c != small[i])
            return false;
    }
    return true;
}

HRESULT NumberOfText(OleStringView text, Number& number)
{
    const HRESULT hr = Number::Parse(text, number);
    if (hr != DISP_E_TYPEMISMATCH)
        return hr;
    const bool isTrue = EqualsIgnoringAsciiCase(text, OLESTR("true"));
    if (!isTrue && !EqualsIgnoringAsciiCase(text, OLESTR("false")))
        return hr;
    number = Number::OfSigned(isTrue ? VARIANT_TRUE : VARIANT_FALSE);
    return S_OK;
}

HRESULT NumberOf(const VARIANT& value, Number& number)
{
    switch (value.vt) {
        case VT_EMPTY:
            number = Number::OfSigned(0);
            return S_OK;
        case VT_I1:
            number = Number::OfSigned(static_cast<signed char>(value.cVal));
            return S_OK;
        case VT_I2:
        case VT_BOOL:
            number = Number::OfSigned(value.iVal);
            return S_OK;
        case VT_I4:
        case VT_INT:
            number = Number::OfSigned(value.lVal);
            return S_OK;
        case VT_I8:
            number = Number::OfSigned(value.llVal);
            return S_OK;
        case VT_UI1:
            number = Number::OfUnsigned(value.bVal);
            return S_OK;
        case VT_UI2:
            number = Number::OfUnsigned(value.uiVal);
            return S_OK;
        case VT_UI4:
        case VT_UINT:
            number = Number::OfUnsigned(value.ulVal);
            return S_OK;
        case VT_UI8:
            number = Number::OfUnsigned(value.ullVal);
            return S_OK;
        case VT_R4:
            number = Number::OfReal(value.fltVal);
            return S_OK;
        case VT_R8:
        case VT_DATE:
            number = Number::OfReal(value.dblVal);
            return S_OK;
        case VT_CY:
            number = value.cyVal.int64 % kCurrencyUnits == 0
                         ? Number::OfSigned(value.cyVal.int64 / kCurrencyUnits)
                         : Number::OfReal(static_cast<double>(value.cyVal.int64) / kCurrencyUnits);
            return S_OK;
        case VT_BSTR:
            return NumberOfText(ViewOf(value.bstrVal), number);
        default:
            return DISP_E_TYPEMISMATCH;
    }
}

template <class T>
HRESULT StoreSigned(const Number& number, T& place) noexcept
{
    std::int64_t value = 0;
    using Limits = std::numeric_limits<T>;
    const HRESULT hr = number.ToSigned(Limits::min(), Limits::max(), value);
    if (SUCCEEDED(hr))
        place = static_cast<T>(value);
    return hr;
}

// "True" in an unsigned type has all bits set, as in a signed one.
template <class T>
HRESULT StoreUnsigned(const Number& number, bool isBool, T& place) noexcept
{
    if (isBool) {
        place = number.IsZero() ? T{0} : std::numeric_limits<T>::max();
        return S_OK;
    }
    std::uint64_t value = 0;
    const HRESULT hr = number.ToUnsigned(std::numeric_limits<T>::max(), value);
    if (SUCCEEDED(hr))
        place = static_cast<T>(value);
    return hr;
}

HRESULT StoreFloat(double value, FLOAT& place) noexcept
{
    if (std::isfinite(value) && std::fabs(value) > std::numeric_limits<FLOAT>::max())
        return DISP_E_OVERFLOW;
    place = static_cast<FLOAT>(value);
    return S_OK;
}

HRESULT StoreDate(double value, DATE& place) noexcept
{
    if (!(value >= kFirstDate) || !(value < kBehindLastDate))
        return DISP_E_OVERFLOW;
    place = value;
    return S_OK;
}

HRESULT StoreCurrency(const VARIANT& source, const Number& number, CY& place) noexcept
{
    if (source.vt == VT_CY) {
        place = source.cyVal;
        return S_OK;
    }
    constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max() / kCurrencyUnits;
    std::int64_t whole = 0;
    if (FAILED(number.ToSigned(-kMost, kMost, whole)))
        return DISP_E_OVERFLOW;
    const double real = number.ToReal();
    const bool isWhole = static_cast<double>(whole) == real;
    place.int64 = isWhole ? whole * kCurrencyUnits : std::llrint(real * static_cast<double>(kCurrencyUnits));
    return S_OK;
}

HRESULT StoreNumber(const VARIANT& source, const Number& number, VARIANT& target) noexcept
{
    const bool isBool = source.vt == VT_BOOL;
    switch (target.vt) {
        case VT_I1: {
            signed char value = 0;
            const HRESULT hr = StoreSigned(number, value);
            target.cVal = static_cast<CHAR>(value);
            return hr;
        }
        case VT_I2:
            return StoreSigned(number, target.iVal);
        case VT_I4:
        case VT_INT:
            return StoreSigned(number, target.lVal);
        case VT_I8:
            return StoreSigned(number, target.llVal);
        case VT_UI1:
            return StoreUnsigned(number, isBool, target.bVal);
        case VT_UI2:
            return StoreUnsigned(number, isBool, target.uiVal);
        case VT_UI4:
        case VT_UINT:
            return StoreUnsigned(number, isBool, target.ulVal);
        case VT_UI8:
            return StoreUnsigned(number, isBool, target.ullVal);
        case VT_R4:
            return StoreFloat(number.ToReal(), target.fltVal);
        case VT_R8:
            target.dblVal = number.ToReal();
            return S_OK;
        case VT_DATE:
            return StoreDate(number.ToReal(), target.date);
        case VT_CY:
            return StoreCurrency(source, number, target.cyVal);
        case VT_BOOL:
            target.boolVal = number.IsZero() ? VARIANT_FALSE : VARIANT_TRUE;
            return S_OK;
        default:
            return DISP_E_TYPEMISMATCH;
    }
}

HRESULT ToNumber(const VARIANT& source, VARIANT& target)
{
    if (source.vt == VT_BSTR && target.vt == VT_DATE &&
        SUCCEEDED(quorvane::detail::ParseDate(ViewOf(source.bstrVal), target.date)))
        return S_OK;
    Number number;
    const HRESULT hr = NumberOf(source, number);
    return FAILED(hr) ? hr : StoreNumber(source, number, target);
}

HRESULT TextOf(const VARIANT& source, USHORT flags, OleString& text)
{
    using namespace quorvane::detail;
    constexpr int kFloatDigits = 7;
    constexpr int kDoubleDigits = 15;
    switch (source.vt) {
        case VT_EMPTY:
            return S_OK;
        case VT_BOOL:
            if (flags & VARIANT_ALPHABOOL)
                text = source.boolVal ? OLESTR("True") : OLESTR("False");
            else
                text = source.boolVal ? OLESTR("-1") : OLESTR("0");
            return S_OK;
        case VT_R4:
            text = RealText(source.fltVal, kFloatDigits);
            return S_OK;
        case VT_R8:
            text = RealText(source.dblVal, kDoubleDigits);
            return S_OK;
        case VT_CY:
            text = CurrencyText(source.cyVal.int64);
            return S_OK;
        case VT_DATE:
            return DateText(source.date, text);
        case VT_UI8:
            text = UnsignedText(source.ullVal);
            return S_OK;
        default:
            break;
    }
    Number number;
    std::int64_t value = 0;
    HRESULT hr = NumberOf(source, number);
    if (SUCCEEDED(hr))
        hr = number.ToSigned(std::numeric_limits<std::int64_t>::min(),
                             std::numeric_limits<std::int64_t>::max(), value);
    if (SUCCEEDED(hr))
        text = SignedText(value);
    return hr;
}

HRESULT ToText(const VARIANT& source, USHORT flags, VARIANT& target)
{
    OleString text;
    const HRESULT hr = TextOf(source, flags, text);
    if (SUCCEEDED(hr))
        target.bstrVal = quorvane::Bstr(text).Detach();
    return hr;
}

HRESULT ToObject(const VARIANT& source, VARIANT& target) noexcept
{
    if (source.vt != VT_UNKNOWN && source.vt != VT_DISPATCH)
        return DISP_E_TYPEMISMATCH;
    if (!source.punkVal)
        return S_OK;
    const IID& riid = target.vt == VT_DISPATCH ? IID_IDispatch : IID_IUnknown;
    return source.punkVal->QueryInterface(riid, reinterpret_cast<void**>(&target.punkVal));
}

// The object's default property stands for it.
HRESULT DefaultValue(const VARIANT& source, Variant& value) noexcept
{
    if (!source.pdispVal)
        return DISP_E_TYPEMISMATCH;
    DISPPARAMS none{};
    const HRESULT hr = source.pdispVal->Invoke(DISPID_VALUE, IID_NULL, LOCALE_USER_DEFAULT,
                                               DISPATCH_PROPERTYGET, &none, value.Put(), nullptr, nullptr);
    return FAILED(hr) || value.Is(VT_DISPATCH) || value.Is(VT_UNKNOWN) ? DISP_E_TYPEMISMATCH : S_OK;
}

HRESULT Convert(const VARIANT& source, USHORT flags, VARIANT& target)
{
    if (target.vt == VT_UNKNOWN || target.vt == VT_DISPATCH)
        return ToObject(source, target);
    if (source.vt == VT_DISPATCH && !(flags & VARIANT_NOVALUEPROP)) {
        Variant value;
        const HRESULT hr = DefaultValue(source, value);
        return FAILED(hr) ? hr : VariantChangeType(&target, &value.Raw(), flags, target.vt);
    }
    if (target.vt == VT_EMPTY || target.vt == VT_NULL)
        return source.vt == VT_EMPTY || source.vt == VT_NULL ? S_OK : DISP_E_TYPEMISMATCH;
    return target.vt == VT_BSTR ? ToText(source, flags, target) : ToNumber(source, target);
}

}  // namespace

HRESULT VariantChangeType(VARIANTARG* target, const VARIANTARG* source, USHORT flags, VARTYPE type)
{
    if (!target || !source)
        return E_INVALIDARG;
    try {
        Variant value;
        HRESULT hr = value.Assign(*source);
        if (FAILED(hr))
            return hr;
        if (!value.Is(type)) {
            if (type & (VT_ARRAY | VT_BYREF) || value.Type() & VT_ARRAY)
                return DISP_E_TYPEMISMATCH;
            Variant converted;
            converted.Raw().vt = type;
            hr = Convert(value.Raw(), flags, converted.Raw());
            if (FAILED(hr)) {
                // The value is not set; the type alone must not be cleared as if it were.
                VariantInit(&converted.Raw());
                return hr;
            }
            value = std::move(converted);
        }
        hr = VariantClear(target);
        if (SUCCEEDED(hr))
            *target = value.Detach();
        return hr;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}
