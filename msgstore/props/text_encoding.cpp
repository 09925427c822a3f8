#include "msgstore/props/text_encoding.h"

#include <array>

#include "platform/com/bstr.h"
#include "platform/mapi/more_tags.h"

namespace quorvane {
namespace {

// Windows-1252 differs from ISO 8859-1 in the 32 places from 0x80 on; unassigned ones keep their number.
constexpr std::array<OLECHAR, 32> kWindows1252 = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

constexpr ULONG kUtf8CodePage = 65001;

OleString DecodeWindows1252(std::string_view text)
{
    OleString result;
    result.reserve(text.size());
    for (const char c : text) {
        const auto byte = static_cast<BYTE>(c);
        result.push_back(byte >= 0x80 && byte < 0xA0 ? kWindows1252[byte - 0x80]
                                                     : static_cast<OLECHAR>(byte));
    }
    return result;
}

// Bytes that follow a UTF-8 lead byte, or -1 for a byte that can't lead.
int FollowersOf(BYTE lead) noexcept
{
    if (lead < 0x80)
        return 0;
    if (lead >= 0xC2 && lead < 0xE0)
        return 1;
    if (lead >= 0xE0 && lead < 0xF0)
        return 2;
    return lead >= 0xF0 && lead < 0xF5 ? 3 : -1;
}

bool IsScalar(ULONG lead, ULONG value) noexcept
{
    if (lead == 0xE0 && value < 0x800)
        return false;
    if (lead == 0xF0 && value < 0x10000)
        return false;
    return value <= 0x10FFFF && (value < 0xD800 || value > 0xDFFF);
}

}  // namespace

bool IsWellFormedUtf8(std::string_view text) noexcept
{
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto lead = static_cast<BYTE>(text[i]);
        const int followers = FollowersOf(lead);
        if (followers < 0 || text.size() - i <= static_cast<std::size_t>(followers))
            return false;
        ULONG value = followers == 0 ? lead : lead & (0x3Fu >> followers);
        for (int k = 0; k < followers; ++k) {
            const auto next = static_cast<BYTE>(text[++i]);
            if ((next & 0xC0) != 0x80)
                return false;
            value = (value << 6) | (next & 0x3Fu);
        }
        if (followers > 0 && !IsScalar(lead, value))
            return false;
    }
    return true;
}

OleString Decode8Bit(std::string_view text, ULONG codePage)
{
    if (IsWellFormedUtf8(text))
        return FromUtf8(text);
    OleString result;
    if (codePage != 0 && codePage != kUtf8CodePage && DecodeCodePage(text, codePage, result))
        return result;
    return DecodeWindows1252(text);
}

std::string Encode8Bit(OleStringView text)
{
    return ToUtf8(text);
}

ULONG StatedCodePage(const PropertyBag& properties) noexcept
{
    for (const ULONG tag : {kPrMessageCodepage, kPrInternetCpid}) {
        const PropertyValue* const page = properties.Find(tag);
        if (page && page->AsInteger() > 0)
            return static_cast<ULONG>(page->AsInteger());
    }
    return 0;
}

}  // namespace quorvane
