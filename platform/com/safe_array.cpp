#include "platform/com/safe_array.h"

#include <cstring>
#include <limits>

namespace quorvane {

HRESULT SafeArray::Assign(SAFEARRAY* source) noexcept
{
    SafeArray copy;
    const HRESULT hr = source ? SafeArrayCopy(source, copy.Put()) : S_OK;
    if (SUCCEEDED(hr))
        std::swap(array_, copy.array_);
    return hr;
}

HRESULT SafeArray::CopyTo(SAFEARRAY** out) const noexcept
{
    if (!out)
        return E_POINTER;
    *out = nullptr;
    return array_ ? SafeArrayCopy(array_, out) : S_OK;
}

Variant SafeArray::DetachAsVariant() noexcept
{
    Variant result;
    VARTYPE type = VT_EMPTY;
    if (array_ && SUCCEEDED(SafeArrayGetVartype(array_, &type))) {
        result.Raw().vt = static_cast<VARTYPE>(VT_ARRAY | type);
        result.Raw().parray = Detach();
    }
    return result;
}

namespace detail {

HRESULT ArrayGrowth::Resize(ULONG capacity) noexcept
{
    if (!array_) {
        array_ = SafeArray::Attach(SafeArrayCreateVector(type_, 0, capacity));
        return array_ ? S_OK : E_OUTOFMEMORY;
    }
    SAFEARRAYBOUND bound{capacity, 0};
    return SafeArrayRedim(array_.Get(), &bound);
}

void* ArrayGrowth::NextPlace() noexcept
{
    constexpr ULONG kFirstCapacity = 16;
    if (count_ == capacity_) {
        if (capacity_ > std::numeric_limits<ULONG>::max() / 2)
            return nullptr;
        const ULONG wanted = capacity_ ? capacity_ * 2 : kFirstCapacity;
        if (FAILED(Resize(wanted)))
            return nullptr;
        capacity_ = wanted;
    }
    return static_cast<BYTE*>(array_.Get()->pvData) + static_cast<size_t>(count_) * array_.Get()->cbElements;
}

HRESULT ArrayGrowth::Take(SafeArray& result) noexcept
{
    const HRESULT hr = Resize(count_);
    if (FAILED(hr))
        return hr;
    result = std::move(array_);
    array_.Reset();
    count_ = 0;
    capacity_ = 0;
    return S_OK;
}

}  // namespace detail

HRESULT ArrayBuilder<ULONG>::Append(ULONG value) noexcept
{
    void* const place = growth_.NextPlace();
    if (!place)
        return E_OUTOFMEMORY;
    std::memcpy(place, &value, sizeof(value));
    growth_.Appended();
    return S_OK;
}

HRESULT ArrayBuilder<BYTE>::Append(BYTE value) noexcept
{
    void* const place = growth_.NextPlace();
    if (!place)
        return E_OUTOFMEMORY;
    *static_cast<BYTE*>(place) = value;
    growth_.Appended();
    return S_OK;
}

HRESULT ArrayBuilder<BSTR>::Append(BSTR value) noexcept
{
    void* const place = growth_.NextPlace();
    if (!place)
        return E_OUTOFMEMORY;
    BSTR copy = nullptr;
    if (value) {
        copy = SysAllocStringByteLen(reinterpret_cast<LPCSTR>(value), SysStringByteLen(value));
        if (!copy)
            return E_OUTOFMEMORY;
    }
    *static_cast<BSTR*>(place) = copy;
    growth_.Appended();
    return S_OK;
}

HRESULT ArrayBuilder<BSTR>::Append(OleStringView value) noexcept
{
    void* const place = growth_.NextPlace();
    if (!place || value.size() > std::numeric_limits<UINT>::max() / sizeof(OLECHAR))
        return E_OUTOFMEMORY;
    BSTR const copy = SysAllocStringLen(value.data(), static_cast<UINT>(value.size()));
    if (!copy)
        return E_OUTOFMEMORY;
    *static_cast<BSTR*>(place) = copy;
    growth_.Appended();
    return S_OK;
}

HRESULT ArrayBuilder<VARIANT>::Append(const VARIANT& value) noexcept
{
    void* const place = growth_.NextPlace();
    if (!place)
        return E_OUTOFMEMORY;
    auto* const element = static_cast<VARIANT*>(place);
    VariantInit(element);
    const HRESULT hr = VariantCopy(element, const_cast<VARIANT*>(&value));
    if (SUCCEEDED(hr))
        growth_.Appended();
    return hr;
}

namespace {

template <class Element>
constexpr VARTYPE kElementType = VT_EMPTY;
template <>
constexpr VARTYPE kElementType<BSTR> = VT_BSTR;
template <>
constexpr VARTYPE kElementType<ULONG> = VT_UI4;
template <>
constexpr VARTYPE kElementType<BYTE> = VT_UI1;
template <>
constexpr VARTYPE kElementType<VARIANT> = VT_VARIANT;

}  // namespace

template <class Element>
HRESULT ArrayView<Element>::Open(SAFEARRAY* array) noexcept
{
    Close();
    VARTYPE type = VT_EMPTY;
    if (!array || SafeArrayGetDim(array) != 1 || FAILED(SafeArrayGetVartype(array, &type)) ||
        type != kElementType<Element>)
        return DISP_E_TYPEMISMATCH;
    void* data = nullptr;
    const HRESULT hr = SafeArrayAccessData(array, &data);
    if (FAILED(hr))
        return hr;
    array_ = array;
    elements_ = std::span<Element>(static_cast<Element*>(data), array->rgsabound[0].cElements);
    return S_OK;
}

template <class Element>
HRESULT ArrayView<Element>::Open(const VARIANT& value) noexcept
{
    const VARIANT* held = &value;
    if (held->vt == (VT_BYREF | VT_VARIANT))
        held = held->pvarVal;
    if (!held || !(held->vt & VT_ARRAY)) {
        Close();
        return DISP_E_TYPEMISMATCH;
    }
    if (held->vt & VT_BYREF)
        return Open(held->pparray ? *held->pparray : nullptr);
    return Open(held->parray);
}

template <class Element>
void ArrayView<Element>::Close() noexcept
{
    elements_ = {};
    if (SAFEARRAY* const array = std::exchange(array_, nullptr))
        SafeArrayUnaccessData(array);
}

template class ArrayView<BSTR>;
template class ArrayView<ULONG>;
template class ArrayView<BYTE>;
template class ArrayView<VARIANT>;

}  // namespace quorvane
