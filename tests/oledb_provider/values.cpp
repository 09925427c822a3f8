#include "tests/oledb_provider/values.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "platform/com/bstr.h"

namespace quorvane::test {
namespace {

struct Written {
    DBSTATUS status;
    DBLENGTH length;
};

std::string TextOf(const Value& value)
{
    if (const auto* const whole = std::get_if<std::int64_t>(&value))
        return std::to_string(*whole);
    if (const auto* const real = std::get_if<double>(&value))
        return std::to_string(*real);
    return Narrow(FromUtf8(std::get<std::string>(value)));
}

// A value as a number; nothing for a text that isn't one.
std::optional<double> NumberOf(const Value& value)
{
    if (const auto* const whole = std::get_if<std::int64_t>(&value))
        return static_cast<double>(*whole);
    if (const auto* const real = std::get_if<double>(&value))
        return *real;
    const std::string& text = std::get<std::string>(value);
    char* end = nullptr;
    const double number = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0')
        return std::nullopt;
    return number;
}

Written PutText(const Value& value, size_t room, BYTE* place)
{
    const std::string text = TextOf(value);
    if (room == 0)
        return {DBSTATUS_S_TRUNCATED, text.size()};
    const size_t fits = std::min(text.size(), room - 1);
    std::memcpy(place, text.data(), fits);
    place[fits] = 0;
    return {static_cast<DBSTATUS>(fits < text.size() ? DBSTATUS_S_TRUNCATED : DBSTATUS_S_OK), text.size()};
}

template <class Number>
Written PutNumber(const Value& value, BYTE* place)
{
    const auto number = NumberOf(value);
    if (!number)
        return {DBSTATUS_E_CANTCONVERTVALUE, 0};
    Number result{};
    if constexpr (std::is_integral_v<Number>) {
        // The true of a VARIANT_BOOL is the highest byte.
        const bool isTrue = std::is_unsigned_v<Number> && *number == VARIANT_TRUE;
        if (!isTrue &&
            !(*number >= std::numeric_limits<Number>::min() && *number <= std::numeric_limits<Number>::max()))
            return {DBSTATUS_E_DATAOVERFLOW, 0};
        result = static_cast<Number>(std::llround(*number));
    } else {
        result = *number;
    }
    std::memcpy(place, &result, sizeof(result));
    return {DBSTATUS_S_OK, sizeof(result)};
}

Written PutBound(const Value& value, const DBBINDING& binding, BYTE* place)
{
    if (std::holds_alternative<std::monostate>(value))
        return {DBSTATUS_S_ISNULL, 0};
    switch (binding.wType) {
        case DBTYPE_STR:
            return PutText(value, binding.cbMaxLen, place);
        case DBTYPE_R8:
            return PutNumber<double>(value, place);
        case DBTYPE_UI1:
            return PutNumber<BYTE>(value, place);
        default:
            return PutNumber<SHORT>(value, place);
    }
}

template <class Number>
Number NumberAt(const BYTE* place) noexcept
{
    Number number{};
    std::memcpy(&number, place, sizeof(number));
    return number;
}

int BindText(sqlite3_stmt* statement, int ordinal, const BYTE* place, size_t room)
{
    const auto* const text = reinterpret_cast<const char*>(place);
    const std::string utf8 = ToUtf8(Widen(std::string_view(text, strnlen(text, room))));
    return sqlite3_bind_text64(statement, ordinal, utf8.data(), utf8.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
}

}  // namespace

Value ValueOf(sqlite3_stmt* statement, int column)
{
    switch (sqlite3_column_type(statement, column)) {
        case SQLITE_NULL:
            return {};
        case SQLITE_INTEGER:
            return static_cast<std::int64_t>(sqlite3_column_int64(statement, column));
        case SQLITE_FLOAT:
            return sqlite3_column_double(statement, column);
        default: {
            const auto* const text = reinterpret_cast<const char*>(sqlite3_column_text(statement, column));
            if (!text)
                throw std::bad_alloc();
            return std::string(text, static_cast<size_t>(sqlite3_column_bytes(statement, column)));
        }
    }
}

std::optional<size_t> SizeOfBound(const DBBINDING& binding) noexcept
{
    switch (binding.wType) {
        case DBTYPE_STR:
            return binding.cbMaxLen;
        case DBTYPE_R8:
            return sizeof(double);
        case DBTYPE_UI1:
            return sizeof(BYTE);
        case DBTYPE_I2:
            return sizeof(SHORT);
        default:
            return std::nullopt;
    }
}

DBSTATUS PutValue(const Value& value, const DBBINDING& binding, BYTE* block)
{
    Written written{DBSTATUS_S_OK, 0};
    if (binding.dwPart & DBPART_VALUE)
        written = PutBound(value, binding, block + binding.obValue);
    if (binding.dwPart & DBPART_LENGTH)
        std::memcpy(block + binding.obLength, &written.length, sizeof(written.length));
    if (binding.dwPart & DBPART_STATUS)
        std::memcpy(block + binding.obStatus, &written.status, sizeof(written.status));
    return written.status;
}

int BindParameter(sqlite3_stmt* statement, const DBBINDING& binding, const BYTE* block)
{
    const int ordinal = static_cast<int>(binding.iOrdinal);
    const BYTE* const place = block + binding.obValue;
    switch (binding.wType) {
        case DBTYPE_STR:
            return BindText(statement, ordinal, place, binding.cbMaxLen);
        case DBTYPE_R8:
            return sqlite3_bind_double(statement, ordinal, NumberAt<double>(place));
        case DBTYPE_UI1:
            return sqlite3_bind_int(statement, ordinal, NumberAt<BYTE>(place));
        default:
            return sqlite3_bind_int(statement, ordinal, NumberAt<SHORT>(place));
    }
}

}  // namespace quorvane::test
