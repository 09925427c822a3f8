// platform/com/safe_array.h: one-dimensional SAFEARRAYs: building them, owning them, reading them.
#ifndef QUORVANE_PLATFORM_COM_SAFE_ARRAY_H_
#define QUORVANE_PLATFORM_COM_SAFE_ARRAY_H_

#include <span>
#include <utility>

#include "platform/com/bstr.h"
#include "platform/com/variant.h"

namespace quorvane {

// Owns a SAFEARRAY or none.
class SafeArray {
public:
    SafeArray() noexcept = default;
    SafeArray(SafeArray&& other) noexcept : array_(std::exchange(other.array_, nullptr)) {}
    SafeArray(const SafeArray&) = delete;
    ~SafeArray() { Reset(); }

    SafeArray& operator=(SafeArray&& other) noexcept
    {
        std::swap(array_, other.array_);
        return *this;
    }

    // Takes over an array that the caller owns.
    static SafeArray Attach(SAFEARRAY* owned) noexcept
    {
        SafeArray result;
        result.array_ = owned;
        return result;
    }
    // A deep copy of a caller's array, none for null. E_OUTOFMEMORY: what was held stays.
    [[nodiscard]] HRESULT Assign(SAFEARRAY* source) noexcept;
    // Gives a caller a deep copy, null when none is held. E_POINTER, E_OUTOFMEMORY.
    [[nodiscard]] HRESULT CopyTo(SAFEARRAY** out) const noexcept;

    void Reset() noexcept
    {
        if (SAFEARRAY* const old = std::exchange(array_, nullptr))
            SafeArrayDestroy(old);
    }
    SAFEARRAY* Get() const noexcept { return array_; }
    SAFEARRAY** Put() noexcept
    {
        Reset();
        return &array_;
    }
    SAFEARRAY* Detach() noexcept { return std::exchange(array_, nullptr); }
    explicit operator bool() const noexcept { return array_ != nullptr; }

    // Hands the array over as VT_ARRAY of its element type; VT_EMPTY when none is held.
    Variant DetachAsVariant() noexcept;

private:
    SAFEARRAY* array_ = nullptr;
};

// Builds an array by appending; the lower bound is 0. An array that nothing was appended to has no elements.
template <class Element>
class ArrayBuilder;

namespace detail {

// Grows by doubling; the array is cut to its length when it is taken.
class ArrayGrowth {
public:
    explicit ArrayGrowth(VARTYPE type) noexcept : type_(type) {}

    ULONG Count() const noexcept { return count_; }
    // The place for one more element, zeroed; null when memory is short.
    void* NextPlace() noexcept;
    void Appended() noexcept { ++count_; }
    HRESULT Take(SafeArray& result) noexcept;

private:
    HRESULT Resize(ULONG capacity) noexcept;

    VARTYPE type_;
    ULONG count_ = 0;
    ULONG capacity_ = 0;
    SafeArray array_;
};

}  // namespace detail

// VT_UI4.
template <>
class ArrayBuilder<ULONG> {
public:
    [[nodiscard]] HRESULT Append(ULONG value) noexcept;
    ULONG Count() const noexcept { return growth_.Count(); }
    // The array; the builder is empty afterwards. E_OUTOFMEMORY.
    [[nodiscard]] HRESULT Take(SafeArray& result) noexcept { return growth_.Take(result); }

private:
    detail::ArrayGrowth growth_{VT_UI4};
};

// VT_UI1.
template <>
class ArrayBuilder<BYTE> {
public:
    [[nodiscard]] HRESULT Append(BYTE value) noexcept;
    ULONG Count() const noexcept { return growth_.Count(); }
    [[nodiscard]] HRESULT Take(SafeArray& result) noexcept { return growth_.Take(result); }

private:
    detail::ArrayGrowth growth_{VT_UI1};
};

// VT_BSTR; copies each text. A null text stays null.
template <>
class ArrayBuilder<BSTR> {
public:
    [[nodiscard]] HRESULT Append(BSTR value) noexcept;
    [[nodiscard]] HRESULT Append(OleStringView value) noexcept;
    ULONG Count() const noexcept { return growth_.Count(); }
    [[nodiscard]] HRESULT Take(SafeArray& result) noexcept { return growth_.Take(result); }

private:
    detail::ArrayGrowth growth_{VT_BSTR};
};

// VT_VARIANT; copies each value.
template <>
class ArrayBuilder<VARIANT> {
public:
    [[nodiscard]] HRESULT Append(const VARIANT& value) noexcept;
    ULONG Count() const noexcept { return growth_.Count(); }
    [[nodiscard]] HRESULT Take(SafeArray& result) noexcept { return growth_.Take(result); }

private:
    detail::ArrayGrowth growth_{VT_VARIANT};
};

using BstrArrayBuilder = ArrayBuilder<BSTR>;
using ULongArrayBuilder = ArrayBuilder<ULONG>;
using ByteArrayBuilder = ArrayBuilder<BYTE>;
using VariantArrayBuilder = ArrayBuilder<VARIANT>;

// Reads a one-dimensional array of one element type, which it keeps locked. The array outlives the view.
// Elements are the array's own: a BSTR or VARIANT read here is not the reader's to free.
template <class Element>
class ArrayView {
public:
    ArrayView() noexcept = default;
    ArrayView(const ArrayView&) = delete;
    ArrayView& operator=(const ArrayView&) = delete;
    ~ArrayView() { Close(); }

    // DISP_E_TYPEMISMATCH: null, more than one dimension, or of another element type.
    [[nodiscard]] HRESULT Open(SAFEARRAY* array) noexcept;
    // Of a VARIANT that holds the array or a reference to it. DISP_E_TYPEMISMATCH as above.
    [[nodiscard]] HRESULT Open(const VARIANT& value) noexcept;
    void Close() noexcept;

    ULONG Count() const noexcept { return static_cast<ULONG>(elements_.size()); }
    std::span<Element> Elements() const noexcept { return elements_; }
    auto begin() const noexcept { return elements_.begin(); }
    auto end() const noexcept { return elements_.end(); }
    // The element at a 0-based place, whatever the lower bound. DISP_E_BADINDEX: there is none.
    [[nodiscard]] HRESULT At(ULONG index, Element& element) const noexcept
    {
        if (index >= elements_.size())
            return DISP_E_BADINDEX;
        element = elements_[index];
        return S_OK;
    }

private:
    SAFEARRAY* array_ = nullptr;
    std::span<Element> elements_;
};

extern template class ArrayView<BSTR>;
extern template class ArrayView<ULONG>;
extern template class ArrayView<BYTE>;
extern template class ArrayView<VARIANT>;

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_COM_SAFE_ARRAY_H_
