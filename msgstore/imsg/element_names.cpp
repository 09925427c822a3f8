#include "msgstore/imsg/element_names.h"

namespace quorvane {
namespace {

constexpr std::size_t kDigits = 8;

void AppendHex(OleString& text, ULONG number)
{
    static constexpr OLECHAR kDigitText[] = OLESTR("0123456789ABCDEF");
    for (int shift = 28; shift >= 0; shift -= 4)
        text.push_back(kDigitText[(number >> shift) & 0xF]);
}

int DigitOf(OLECHAR unit) noexcept
{
    if (unit >= OLESTR('0') && unit <= OLESTR('9'))
        return unit - OLESTR('0');
    if (unit >= OLESTR('A') && unit <= OLESTR('F'))
        return unit - OLESTR('A') + 10;
    return unit >= OLESTR('a') && unit <= OLESTR('f') ? unit - OLESTR('a') + 10 : -1;
}

}  // namespace

OleString ValueName(ULONG tag)
{
    return NumberedName(kValuePrefix, tag);
}

OleString ItemName(ULONG tag, ULONG index)
{
    OleString name = ValueName(tag);
    name.push_back(OLESTR('-'));
    AppendHex(name, index);
    return name;
}

OleString NumberedName(OleStringView prefix, ULONG number)
{
    OleString name(prefix);
    AppendHex(name, number);
    return name;
}

bool ParseNumber(OleStringView name, OleStringView prefix, ULONG& number) noexcept
{
    if (name.size() != prefix.size() + kDigits || name.substr(0, prefix.size()) != prefix)
        return false;
    number = 0;
    for (const OLECHAR unit : name.substr(prefix.size())) {
        const int digit = DigitOf(unit);
        if (digit < 0)
            return false;
        number = number * 16 + static_cast<ULONG>(digit);
    }
    return true;
}

}  // namespace quorvane
