// platform/com/variant.h: Variant, the owner of one VARIANT.
#ifndef QUORVANE_PLATFORM_COM_VARIANT_H_
#define QUORVANE_PLATFORM_COM_VARIANT_H_

#include <utility>

#include "platform/com/bstr.h"
#include "platform/com/com_ptr.h"

namespace quorvane {

// Owns what its VARIANT holds. Starts as VT_EMPTY.
class Variant {
public:
    Variant() noexcept { VariantInit(&value_); }
    Variant(Variant&& other) noexcept : value_(other.value_) { VariantInit(&other.value_); }
    Variant(const Variant&) = delete;
    ~Variant() { VariantClear(&value_); }

    Variant& operator=(Variant&& other) noexcept
    {
        std::swap(value_, other.value_);
        return *this;
    }

    // Throws std::bad_alloc.
    static Variant Text(OleStringView text);
    static Variant Long(LONG value) noexcept;
    static Variant ULong(ULONG value) noexcept;
    static Variant Double(double value) noexcept;
    static Variant Bool(bool value) noexcept;
    // VT_ERROR with DISP_E_PARAMNOTFOUND: an optional argument that the caller left out.
    static Variant Missing() noexcept;
    // Adds a reference; null makes a VT_DISPATCH or VT_UNKNOWN that holds null.
    static Variant Dispatch(IDispatch* object) noexcept;
    static Variant Unknown(IUnknown* object) noexcept;

    VARTYPE Type() const noexcept { return value_.vt; }
    bool Is(VARTYPE type) const noexcept { return value_.vt == type; }
    VARIANT& Raw() noexcept { return value_; }
    const VARIANT& Raw() const noexcept { return value_; }

    // The place for an out-parameter; what was held is cleared first.
    VARIANT* Put() noexcept
    {
        VariantClear(&value_);
        return &value_;
    }

    // A copy of a caller's value, references followed (VariantCopyInd); a null text stays one.
    [[nodiscard]] HRESULT Assign(const VARIANT& source) noexcept;
    // Changes the type in place (VariantChangeType); the value is as it was after a failure.
    [[nodiscard]] HRESULT ChangeType(VARTYPE type) noexcept;
    // Gives a caller a copy of its own. E_POINTER, E_OUTOFMEMORY.
    [[nodiscard]] HRESULT CopyTo(VARIANT* out) const noexcept;
    // Hands the value over; VT_EMPTY is left.
    VARIANT Detach() noexcept;

private:
    VARIANT value_;
};

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_COM_VARIANT_H_
