#include "host/mail/unicode.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

namespace quorvane {
namespace {

constexpr char32_t kInvalid = 0xFFFFFFFF;
constexpr std::size_t kLongestCharacter = 4;  // in UTF-8

// Reads one character at `at` and moves behind it; on an invalid sequence moves one byte and gives kInvalid.
char32_t NextUtf8(std::string_view bytes, std::size_t& at) noexcept
{
    struct Form {
        unsigned char mask, lead;
        std::size_t trailing;
        char32_t least;
    };
    static constexpr std::array<Form, 4> kForms = {
        {{0x80, 0x00, 0, 0}, {0xE0, 0xC0, 1, 0x80}, {0xF0, 0xE0, 2, 0x800}, {0xF8, 0xF0, 3, 0x10000}}};

    const auto first = static_cast<unsigned char>(bytes[at++]);
    for (const Form& form : kForms) {
        if ((first & form.mask) != form.lead)
            continue;
        if (bytes.size() - at < form.trailing)
            return kInvalid;
        char32_t character = first & static_cast<unsigned char>(~form.mask);
        for (std::size_t i = 0; i < form.trailing; ++i) {
            const auto next = static_cast<unsigned char>(bytes[at + i]);
            if ((next & 0xC0) != 0x80)
                return kInvalid;
            character = (character << 6) | (next & 0x3F);
        }
        if (character < form.least || character > 0x10FFFF || (character >= 0xD800 && character < 0xE000))
            return kInvalid;
        at += form.trailing;
        return character;
    }
    return kInvalid;
}

// How many characters from `at` on are ASCII and no zeros: most of most mails.
std::size_t PlainRun(std::string_view bytes, std::size_t at) noexcept
{
    constexpr std::uint64_t kOnes = 0x0101010101010101;
    constexpr std::uint64_t kTops = 0x8080808080808080;
    std::size_t end = at;
    // Eight at once: none has its top bit, and none borrows one for the subtraction as only a zero does.
    for (std::uint64_t eight = 0; bytes.size() - end >= sizeof eight; end += sizeof eight) {
        std::memcpy(&eight, bytes.data() + end, sizeof eight);
        if (((eight | (eight - kOnes)) & kTops) != 0)
            break;
    }
    while (end < bytes.size() && static_cast<unsigned char>(bytes[end] - 1) < 0x7F)
        ++end;
    return end - at;
}

char AsciiLower(char c) noexcept
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}
char AsciiUpper(char c) noexcept
{
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - ('a' - 'A')) : c;
}

}  // namespace

void AppendUtf8(std::string& text, char32_t character)
{
    if (character > 0x10FFFF || (character >= 0xD800 && character < 0xE000))
        character = kReplacement;
    const auto put = [&text](char32_t byte) { text.push_back(static_cast<char>(byte)); };
    if (character < 0x80) {
        put(character);
    } else if (character < 0x800) {
        put(0xC0 | (character >> 6));
        put(0x80 | (character & 0x3F));
    } else if (character < 0x10000) {
        put(0xE0 | (character >> 12));
        put(0x80 | ((character >> 6) & 0x3F));
        put(0x80 | (character & 0x3F));
    } else {
        put(0xF0 | (character >> 18));
        put(0x80 | ((character >> 12) & 0x3F));
        put(0x80 | ((character >> 6) & 0x3F));
        put(0x80 | (character & 0x3F));
    }
}

bool IsUtf8(std::string_view bytes) noexcept
{
    for (std::size_t at = PlainRun(bytes, 0); at < bytes.size(); at += PlainRun(bytes, at)) {
        if (NextUtf8(bytes, at) == kInvalid)
            return false;
    }
    return true;
}

std::string CleanUtf8(std::string_view bytes)
{
    std::string clean;
    clean.reserve(bytes.size());
    for (std::size_t at = 0;;) {
        const std::size_t plain = PlainRun(bytes, at);
        clean.append(bytes, at, plain);
        at += plain;
        if (at == bytes.size())
            return clean;
        const char32_t character = NextUtf8(bytes, at);
        AppendUtf8(clean, character == kInvalid || character == 0 ? kReplacement : character);
    }
}

void Utf8Cleaner::Put(std::string_view piece, std::string& clean)
{
    held_.append(piece);
    std::size_t at = 0;
    for (;;) {
        const std::size_t plain = PlainRun(held_, at);
        clean.append(held_, at, plain);
        at += plain;
        if (held_.size() - at < kLongestCharacter)
            break;
        const char32_t character = NextUtf8(held_, at);
        AppendUtf8(clean, character == kInvalid || character == 0 ? kReplacement : character);
    }
    held_.erase(0, at);
}

void Utf8Cleaner::End(std::string& clean)
{
    clean += CleanUtf8(held_);
    held_.clear();
}

void Utf8Check::Put(std::string_view piece)
{
    if (!valid_)
        return;
    held_.append(piece);
    std::size_t at = PlainRun(held_, 0);
    for (; valid_ && held_.size() - at >= kLongestCharacter; at += PlainRun(held_, at))
        valid_ = NextUtf8(held_, at) != kInvalid;
    held_.erase(0, at);
}

OleString WideFromUtf8(std::string_view text)
{
    OleString wide;
    wide.reserve(text.size());
    for (std::size_t at = 0;;) {
        const std::size_t plain = PlainRun(text, at);
        wide.append(text.begin() + static_cast<std::ptrdiff_t>(at),
                    text.begin() + static_cast<std::ptrdiff_t>(at + plain));
        at += plain;
        if (at == text.size())
            return wide;
        char32_t character = NextUtf8(text, at);
        if (character == kInvalid || character == 0)
            character = kReplacement;
        if (character < 0x10000) {
            wide.push_back(static_cast<OLECHAR>(character));
        } else {
            wide.push_back(static_cast<OLECHAR>(0xD800 + ((character - 0x10000) >> 10)));
            wide.push_back(static_cast<OLECHAR>(0xDC00 + ((character - 0x10000) & 0x3FF)));
        }
    }
}

std::string Utf8FromWide(OleStringView text)
{
    std::string narrow;
    narrow.reserve(text.size());
    for (std::size_t at = 0; at < text.size(); ++at) {
        const char32_t unit = text[at];
        const bool paired = unit >= 0xD800 && unit < 0xDC00 && at + 1 < text.size() &&
                            text[at + 1] >= 0xDC00 && text[at + 1] < 0xE000;
        if (paired) {
            AppendUtf8(narrow, 0x10000 + ((unit - 0xD800) << 10) + (char32_t{text[at + 1]} - 0xDC00));
            ++at;
        } else if (unit < 0x80) {
            narrow.push_back(static_cast<char>(unit));
        } else {
            AppendUtf8(narrow, unit);
        }
    }
    return narrow;
}

std::string LowerAscii(std::string_view text)
{
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), AsciiLower);
    return lower;
}

std::string UpperAscii(std::string_view text)
{
    std::string upper(text);
    std::transform(upper.begin(), upper.end(), upper.begin(), AsciiUpper);
    return upper;
}

bool EqualNoCase(std::string_view a, std::string_view b) noexcept
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char x, char y) { return AsciiLower(x) == AsciiLower(y); });
}

}  // namespace quorvane
