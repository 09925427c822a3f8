// UTF-16 and UTF-8.
#include <cstdint>

#include "platform/com/bstr.h"

namespace quorvane {

namespace {

constexpr char32_t kReplacement = 0xFFFD;

constexpr bool IsHighSurrogate(char32_t unit) noexcept
{
    return unit >= 0xD800 && unit < 0xDC00;
}
constexpr bool IsLowSurrogate(char32_t unit) noexcept
{
    return unit >= 0xDC00 && unit < 0xE000;
}

void AppendUtf8(std::string& out, char32_t c)
{
    if (c < 0x80) {
        out += static_cast<char>(c);
        return;
    }
    if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
    } else {
        if (c < 0x10000) {
            out += static_cast<char>(0xE0 | (c >> 12));
        } else {
            out += static_cast<char>(0xF0 | (c >> 18));
            out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        }
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    }
    out += static_cast<char>(0x80 | (c & 0x3F));
}

void AppendUtf16(OleString& out, char32_t c)
{
    if (c < 0x10000) {
        out += static_cast<OLECHAR>(c);
        return;
    }
    out += static_cast<OLECHAR>(0xD800 + ((c - 0x10000) >> 10));
    out += static_cast<OLECHAR>(0xDC00 + ((c - 0x10000) & 0x3FF));
}

// What a lead byte announces: how many bytes follow, and the least value that needs so many.
struct Lead {
    int following;
    char32_t bits;
    char32_t least;
};

constexpr Lead ReadLead(unsigned char byte) noexcept
{
    if (byte < 0x80)
        return {0, byte, 0};
    if (byte >= 0xC2 && byte < 0xE0)
        return {1, byte & 0x1Fu, 0x80};
    if (byte >= 0xE0 && byte < 0xF0)
        return {2, byte & 0x0Fu, 0x800};
    if (byte >= 0xF0 && byte < 0xF5)
        return {3, byte & 0x07u, 0x10000};
    return {-1, 0, 0};
}

// One character from `at` on, which moves behind it; behind one byte if that doesn't begin a character.
char32_t NextFromUtf8(std::string_view text, size_t& at) noexcept
{
    const Lead lead = ReadLead(static_cast<unsigned char>(text[at]));
    const size_t next = at + 1;
    ++at;
    if (lead.following < 0 || static_cast<size_t>(lead.following) > text.size() - next)
        return kReplacement;
    char32_t c = lead.bits;
    for (int i = 0; i < lead.following; ++i) {
        const auto byte = static_cast<unsigned char>(text[next + static_cast<size_t>(i)]);
        if ((byte & 0xC0) != 0x80)
            return kReplacement;
        c = (c << 6) | (byte & 0x3F);
    }
    if (c < lead.least || c > 0x10FFFF || IsHighSurrogate(c) || IsLowSurrogate(c))
        return kReplacement;
    at = next + static_cast<size_t>(lead.following);
    return c;
}

}  // namespace

std::string ToUtf8(OleStringView text)
{
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        char32_t c = static_cast<std::uint16_t>(text[i]);
        if (IsHighSurrogate(c) && i + 1 < text.size() &&
            IsLowSurrogate(static_cast<std::uint16_t>(text[i + 1]))) {
            const char32_t low = static_cast<std::uint16_t>(text[++i]);
            c = 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
        } else if (IsHighSurrogate(c) || IsLowSurrogate(c)) {
            c = kReplacement;
        }
        AppendUtf8(out, c);
    }
    return out;
}

OleString FromUtf8(std::string_view text)
{
    OleString out;
    out.reserve(text.size());
    for (size_t at = 0; at < text.size();)
        AppendUtf16(out, NextFromUtf8(text, at));
    return out;
}

}  // namespace quorvane
