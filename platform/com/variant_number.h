// platform/com/variant_number.h: numbers on their way from one VARIANT type to another. Off Windows; a part
// of VariantChangeType.
#ifndef QUORVANE_PLATFORM_COM_VARIANT_NUMBER_H_
#define QUORVANE_PLATFORM_COM_VARIANT_NUMBER_H_

#include <cstdint>

#include "platform/com/bstr.h"

namespace quorvane::detail {

// A number as exact as its source: an integer of either sign, or a real.
class Number {
public:
    static Number OfSigned(std::int64_t value) noexcept;
    static Number OfUnsigned(std::uint64_t value) noexcept;
    static Number OfReal(double value) noexcept;
    // Of a text: blanks, a sign, digits with a point and an exponent. DISP_E_TYPEMISMATCH: it is no number.
    // DISP_E_OVERFLOW: no double can hold it.
    [[nodiscard]] static HRESULT Parse(OleStringView text, Number& number);

    // DISP_E_OVERFLOW: outside of the range. A real is rounded, a half to the even neighbour.
    [[nodiscard]] HRESULT ToSigned(std::int64_t least, std::int64_t most, std::int64_t& value) const noexcept;
    [[nodiscard]] HRESULT ToUnsigned(std::uint64_t most, std::uint64_t& value) const noexcept;
    double ToReal() const noexcept;
    bool IsZero() const noexcept;

private:
    bool isReal_ = false;
    bool isNegative_ = false;      // of an integer
    std::uint64_t magnitude_ = 0;  // of an integer
    double real_ = 0;
};

// Texts of numbers, independent of the locale: the shortest form with at most `digits` digits.
OleString RealText(double value, int digits);
OleString SignedText(std::int64_t value);
OleString UnsignedText(std::uint64_t value);
OleString CurrencyText(std::int64_t tenThousandths);

// A date as "2001-12-31", "23:59:59" for a time without a day, or both with a blank between; and back (also
// with a T for the blank, and without seconds). DISP_E_TYPEMISMATCH: it is no date.
[[nodiscard]] HRESULT DateText(DATE date, OleString& text);
[[nodiscard]] HRESULT ParseDate(OleStringView text, DATE& date) noexcept;

}  // namespace quorvane::detail

#endif  // QUORVANE_PLATFORM_COM_VARIANT_NUMBER_H_
