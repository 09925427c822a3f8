#include "platform/registry/registry.h"

namespace quorvane {

std::string_view RegistryValue::Text() const noexcept
{
    if (type != RegistryType::Text && type != RegistryType::ExpandableText && type != RegistryType::MultiText)
        return {};
    const std::string_view all = bytes;
    return all.substr(0, all.find('\0'));
}

DWORD RegistryValue::Number() const noexcept
{
    if (type != RegistryType::Dword || bytes.size() < 4)
        return 0;
    DWORD number = 0;
    for (size_t i = 4; i > 0; --i)
        number = (number << 8) | static_cast<unsigned char>(bytes[i - 1]);
    return number;
}

RegistryValue RegistryValue::OfText(std::string_view text)
{
    RegistryValue value{RegistryType::Text, std::string(text)};
    value.bytes += '\0';
    return value;
}

RegistryValue RegistryValue::OfNumber(DWORD number)
{
    RegistryValue value{RegistryType::Dword, {}};
    for (int i = 0; i < 4; ++i)
        value.bytes += static_cast<char>(number >> (8 * i) & 0xFF);
    return value;
}

}  // namespace quorvane
