#include "platform/com/variant_number.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <limits>

namespace quorvane::detail {

namespace {

constexpr double kTwoTo64 = 18446744073709551616.0;

bool IsBlank(OLECHAR c) noexcept
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

OleStringView Trimmed(OleStringView text) noexcept
{
    while (!text.empty() && IsBlank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && IsBlank(text.back()))
        text.remove_suffix(1);
    return text;
}

OleString FromAscii(std::string_view text)
{
    return OleString(text.begin(), text.end());
}

// Only what stands in a number; letters such as those of "inf" and "nan" are refused.
bool AsciiOfNumber(OleStringView text, std::string& ascii)
{
    for (const OLECHAR c : text) {
        const bool known = (c >= '0' && c <= '9') || c == '+' || c == '-' || c == '.' || c == 'e' || c == 'E';
        if (!known)
            return false;
        ascii += static_cast<char>(c);
    }
    return !ascii.empty();
}

}  // namespace

Number Number::OfSigned(std::int64_t value) noexcept
{
    Number number;
    number.isNegative_ = value < 0;
    number.magnitude_ = value < 0 ? 0 - static_cast<std::uint64_t>(value) : static_cast<std::uint64_t>(value);
    return number;
}

Number Number::OfUnsigned(std::uint64_t value) noexcept
{
    Number number;
    number.magnitude_ = value;
    return number;
}

Number Number::OfReal(double value) noexcept
{
    Number number;
    number.isReal_ = true;
    number.real_ = value;
    return number;
}

HRESULT Number::Parse(OleStringView text, Number& number)
{
    std::string ascii;
    if (!AsciiOfNumber(Trimmed(text), ascii))
        return DISP_E_TYPEMISMATCH;
    const bool negative = ascii.front() == '-';
    const char* const first = ascii.data() + (negative || ascii.front() == '+' ? 1 : 0);
    const char* const last = ascii.data() + ascii.size();
    if (first == last || *first == '-' || *first == '+')
        return DISP_E_TYPEMISMATCH;
    std::uint64_t magnitude = 0;
    const auto whole = std::from_chars(first, last, magnitude);
    if (whole.ptr == last && whole.ec == std::errc()) {
        number = OfUnsigned(magnitude);
        number.isNegative_ = negative && magnitude != 0;
        return S_OK;
    }
    double real = 0;
    const auto parsed = std::from_chars(first, last, real);
    if (parsed.ptr != last || parsed.ec == std::errc::invalid_argument)
        return DISP_E_TYPEMISMATCH;
    if (parsed.ec != std::errc())
        return DISP_E_OVERFLOW;
    number = OfReal(negative ? -real : real);
    return S_OK;
}

HRESULT Number::ToSigned(std::int64_t least, std::int64_t most, std::int64_t& value) const noexcept
{
    if (isReal_) {
        const double rounded = std::nearbyint(real_);
        if (!(rounded >= -kTwoTo64 / 2) || !(rounded < kTwoTo64 / 2))
            return DISP_E_OVERFLOW;
        value = static_cast<std::int64_t>(rounded);
    } else {
        constexpr std::uint64_t kMost = std::numeric_limits<std::int64_t>::max();
        if (magnitude_ > kMost + (isNegative_ ? 1 : 0))
            return DISP_E_OVERFLOW;
        value = static_cast<std::int64_t>(isNegative_ ? 0 - magnitude_ : magnitude_);
    }
    return value < least || value > most ? DISP_E_OVERFLOW : S_OK;
}

HRESULT Number::ToUnsigned(std::uint64_t most, std::uint64_t& value) const noexcept
{
    if (isReal_) {
        const double rounded = std::nearbyint(real_);
        if (!(rounded >= 0) || !(rounded < kTwoTo64))
            return DISP_E_OVERFLOW;
        value = static_cast<std::uint64_t>(rounded);
    } else {
        if (isNegative_)
            return DISP_E_OVERFLOW;
        value = magnitude_;
    }
    return value > most ? DISP_E_OVERFLOW : S_OK;
}

double Number::ToReal() const noexcept
{
    if (isReal_)
        return real_;
    const auto magnitude = static_cast<double>(magnitude_);
    return isNegative_ ? -magnitude : magnitude;
}

bool Number::IsZero() const noexcept
{
    return isReal_ ? real_ == 0 : magnitude_ == 0;
}

OleString RealText(double value, int digits)
{
    char buffer[64];
    const int length = std::snprintf(buffer, sizeof(buffer), "%.*G", digits, value);
    std::string text(buffer, static_cast<size_t>(length));
    // The C library writes the point of its locale.
    for (char& c : text)
        c = c == ',' ? '.' : c;
    return FromAscii(text);
}

OleString SignedText(std::int64_t value)
{
    return FromAscii(std::to_string(value));
}

OleString UnsignedText(std::uint64_t value)
{
    return FromAscii(std::to_string(value));
}

OleString CurrencyText(std::int64_t tenThousandths)
{
    const bool negative = tenThousandths < 0;
    const std::uint64_t magnitude = negative ? 0 - static_cast<std::uint64_t>(tenThousandths)
                                             : static_cast<std::uint64_t>(tenThousandths);
    std::string text = (negative ? "-" : "") + std::to_string(magnitude / 10000);
    if (magnitude % 10000 != 0) {
        std::string fraction = std::to_string(10000 + magnitude % 10000);
        fraction[0] = '.';
        text += fraction.substr(0, fraction.find_last_not_of('0') + 1);
    }
    return FromAscii(text);
}

HRESULT DateText(DATE date, OleString& text)
{
    SYSTEMTIME time{};
    if (!VariantTimeToSystemTime(date, &time))
        return DISP_E_TYPEMISMATCH;
    const bool hasDay = std::fabs(date) >= 1;
    const bool hasTime = time.wHour || time.wMinute || time.wSecond;
    char day[32] = "";
    char clock[32] = "";
    if (hasDay)
        std::snprintf(day, sizeof(day), "%04u-%02u-%02u", time.wYear, time.wMonth, time.wDay);
    if (hasTime || !hasDay)
        std::snprintf(clock, sizeof(clock), "%02u:%02u:%02u", time.wHour, time.wMinute, time.wSecond);
    text = FromAscii(std::string(day) + (*day && *clock ? " " : "") + clock);
    return S_OK;
}

namespace {

// Reads a run of digits into a number.
bool TakeNumber(OleStringView& text, size_t mostDigits, WORD& number) noexcept
{
    unsigned value = 0;
    size_t digits = 0;
    while (digits < mostDigits && digits < text.size() && text[digits] >= '0' && text[digits] <= '9')
        value = value * 10 + static_cast<unsigned>(text[digits++] - '0');
    text.remove_prefix(digits);
    number = static_cast<WORD>(value);
    return digits > 0;
}

bool TakeCharacter(OleStringView& text, char c) noexcept
{
    if (text.empty() || text.front() != static_cast<OLECHAR>(c))
        return false;
    text.remove_prefix(1);
    return true;
}

bool TakeDay(OleStringView& text, SYSTEMTIME& time) noexcept
{
    return TakeNumber(text, 4, time.wYear) && TakeCharacter(text, '-') && TakeNumber(text, 2, time.wMonth) &&
           TakeCharacter(text, '-') && TakeNumber(text, 2, time.wDay);
}

bool TakeTime(OleStringView& text, SYSTEMTIME& time) noexcept
{
    if (!TakeNumber(text, 2, time.wHour) || !TakeCharacter(text, ':') || !TakeNumber(text, 2, time.wMinute))
        return false;
    return !TakeCharacter(text, ':') || TakeNumber(text, 2, time.wSecond);
}

}  // namespace

HRESULT ParseDate(OleStringView text, DATE& date) noexcept
{
    SYSTEMTIME time{};
    time.wYear = 1899;
    time.wMonth = 12;
    time.wDay = 30;
    OleStringView rest = Trimmed(text);
    const size_t dash = rest.find(OLESTR('-'));
    if (dash != OleStringView::npos && !TakeDay(rest, time))
        return DISP_E_TYPEMISMATCH;
    const bool timeFollows =
        dash == OleStringView::npos || TakeCharacter(rest, 'T') || TakeCharacter(rest, ' ');
    if ((timeFollows && !TakeTime(rest, time)) || !rest.empty())
        return DISP_E_TYPEMISMATCH;
    double result = 0;
    if (!SystemTimeToVariantTime(&time, &result))
        return DISP_E_TYPEMISMATCH;
    date = result;
    return S_OK;
}

}  // namespace quorvane::detail
