#include "msgstore/form/mime_encoding.h"

#include <algorithm>

namespace quorvane {
namespace {

constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

bool IsPlain(char c) noexcept
{
    return c >= ' ' && c <= '~';
}

bool IsContinuation(char c) noexcept
{
    return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

std::string Base64(std::string_view bytes)
{
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        const std::size_t count = std::min<std::size_t>(3, bytes.size() - i);
        unsigned group = 0;
        for (std::size_t k = 0; k < 3; ++k)
            group = group << 8 | (k < count ? static_cast<unsigned char>(bytes[i + k]) : 0u);
        for (std::size_t k = 0; k < 4; ++k)
            text += k <= count ? kDigits[group >> (18 - 6 * k) & 63] : '=';
    }
    return text;
}

// How many bytes of the text go into one encoded word: whole characters, where they are such.
std::size_t WordLength(std::string_view text) noexcept
{
    constexpr std::size_t kMost = 42;  // 56 characters of base64 and 12 around them
    if (text.size() <= kMost)
        return text.size();
    std::size_t length = kMost;
    while (length > kMost - 4 && IsContinuation(text[length]))
        --length;
    return length;
}

// The number of the character that begins the text, and its length; 0xFFFD and 1 for a byte that begins none.
char32_t FirstCharacter(std::string_view text, std::size_t& length) noexcept
{
    const auto first = static_cast<unsigned char>(text[0]);
    length = first < 0x80 ? 1 : first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first >= 0x80 && first < 0xC0)
        length = text.size() + 1;
    char32_t character = first < 0x80 ? first : first & (0x7F >> length);
    for (std::size_t i = 1; i < length && length <= text.size(); ++i) {
        if (!IsContinuation(text[i]))
            length = text.size() + 1;
        else
            character = character << 6 | (static_cast<unsigned char>(text[i]) & 0x3F);
    }
    if (length <= text.size())
        return character;
    length = 1;
    return 0xFFFD;
}

bool Steers(char32_t c) noexcept
{
    return c < 0x20 || (c >= 0x7F && c < 0xA0) || c == 0x061C || (c >= 0x200E && c <= 0x200F) ||
           (c >= 0x2028 && c <= 0x202E) || (c >= 0x2066 && c <= 0x2069);
}

}  // namespace

std::string Base64Lines(std::string_view bytes)
{
    constexpr std::size_t kLine = 57;
    std::string lines;
    lines.reserve(bytes.size() / kLine * 78 + 80);
    for (std::size_t i = 0; i < bytes.size(); i += kLine)
        lines.append(Base64(bytes.substr(i, kLine))).append("\r\n");
    return lines;
}

std::string HeaderText(std::string_view text)
{
    constexpr std::size_t kShort = 60;
    const bool plain = text.size() <= kShort && text.find("=?") == std::string_view::npos &&
                       std::all_of(text.begin(), text.end(), IsPlain);
    if (plain)
        return std::string(text);
    const std::string harmless = Harmless(text, false);
    std::string words;
    for (std::string_view rest = harmless; !rest.empty();) {
        const std::size_t length = WordLength(rest);
        if (!words.empty())
            words += "\r\n ";
        words.append("=?utf-8?B?").append(Base64(rest.substr(0, length))).append("?=");
        rest.remove_prefix(length);
    }
    return words;
}

std::string Parameter(std::string_view name, std::string_view value)
{
    constexpr std::string_view kHex = "0123456789ABCDEF";
    constexpr std::size_t kShort = 50;
    const bool plain = value.size() <= kShort && std::all_of(value.begin(), value.end(), [](char c) {
                           return IsPlain(c) && c != '"' && c != '\\';
                       });
    std::string text = ";\r\n ";
    text.append(name);
    if (plain)
        return text.append("=\"").append(value).append("\"");
    text += "*=utf-8''";
    for (const char c : value) {
        const bool isName = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
        if (isName || c == '.' || c == '-' || c == '_')
            text += c;
        else
            (text += '%').append({kHex[static_cast<unsigned char>(c) >> 4], kHex[c & 15]});
    }
    return text;
}

std::string Harmless(std::string_view text, bool lines)
{
    std::string result;
    result.reserve(text.size());
    for (std::size_t length = 0; !text.empty(); text.remove_prefix(length)) {
        const char32_t character = FirstCharacter(text, length);
        if (lines && (character == '\n' || character == '\t'))
            result += text[0];
        else if (character == 0xFFFD)
            result += "\xEF\xBF\xBD";
        else if (!Steers(character))
            result.append(text.substr(0, length));
        else if (!lines)
            result += ' ';
    }
    return result;
}

}  // namespace quorvane
