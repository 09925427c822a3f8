#include "platform/com/utf8.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

namespace quorvane {
namespace {

constexpr std::size_t kLongestUtf8 = 4;

constexpr bool IsHighSurrogate(char32_t unit) noexcept
{
    return unit >= 0xD800 && unit < 0xDC00;
}
constexpr bool IsLowSurrogate(char32_t unit) noexcept
{
    return unit >= 0xDC00 && unit < 0xE000;
}
constexpr bool IsCharacter(char32_t value) noexcept
{
    return value <= 0x10FFFF && !IsHighSurrogate(value) && !IsLowSurrogate(value);
}

// How many characters from `at` on are ASCII and no zeros: most of most texts.
std::size_t PlainRun(std::string_view text, std::size_t at) noexcept
{
    constexpr std::uint64_t kOnes = 0x0101010101010101;
    constexpr std::uint64_t kTops = 0x8080808080808080;
    std::size_t end = at;
    // Eight at once: none has its top bit, and none borrows one for the subtraction as only a zero does.
    for (std::uint64_t eight = 0; text.size() - end >= sizeof eight; end += sizeof eight) {
        std::memcpy(&eight, text.data() + end, sizeof eight);
        if (((eight | (eight - kOnes)) & kTops) != 0)
            break;
    }
    while (end < text.size() && static_cast<unsigned char>(text[end] - 1) < 0x7F)
        ++end;
    return end - at;
}

char32_t CleanCharacter(char32_t character) noexcept
{
    return character == kInvalidCharacter || character == 0 ? kReplacement : character;
}

}  // namespace

char32_t NextUtf8(std::string_view text, std::size_t& at) noexcept
{
    struct Form {
        unsigned char mask, lead;
        std::size_t trailing;
        char32_t least;
    };
    static constexpr std::array<Form, kLongestUtf8> kForms = {
        {{0x80, 0x00, 0, 0}, {0xE0, 0xC0, 1, 0x80}, {0xF0, 0xE0, 2, 0x800}, {0xF8, 0xF0, 3, 0x10000}}};

    const auto first = static_cast<unsigned char>(text[at++]);
    for (const Form& form : kForms) {
        if ((first & form.mask) != form.lead)
            continue;
        if (text.size() - at < form.trailing)
            return kInvalidCharacter;
        char32_t character = first & static_cast<unsigned char>(~form.mask);
        for (std::size_t i = 0; i < form.trailing; ++i) {
            const auto next = static_cast<unsigned char>(text[at + i]);
            if ((next & 0xC0) != 0x80)
                return kInvalidCharacter;
            character = (character << 6) | (next & 0x3F);
        }
        if (character < form.least || !IsCharacter(character))
            return kInvalidCharacter;
        at += form.trailing;
        return character;
    }
    return kInvalidCharacter;
}

char32_t NextUtf16(OleStringView text, std::size_t& at) noexcept
{
    const char32_t unit = static_cast<std::uint16_t>(text[at++]);
    if (IsHighSurrogate(unit) && at < text.size()) {
        const char32_t low = static_cast<std::uint16_t>(text[at]);
        if (IsLowSurrogate(low)) {
            ++at;
            return 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
        }
    }
    return IsCharacter(unit) ? unit : kInvalidCharacter;
}

void AppendUtf8(std::string& text, char32_t character)
{
    if (!IsCharacter(character))
        character = kReplacement;
    const auto put = [&text](char32_t byte) { text.push_back(static_cast<char>(byte)); };
    if (character < 0x80) {
        put(character);
        return;
    }
    if (character < 0x800) {
        put(0xC0 | (character >> 6));
    } else {
        if (character < 0x10000) {
            put(0xE0 | (character >> 12));
        } else {
            put(0xF0 | (character >> 18));
            put(0x80 | ((character >> 12) & 0x3F));
        }
        put(0x80 | ((character >> 6) & 0x3F));
    }
    put(0x80 | (character & 0x3F));
}

void AppendUtf16(OleString& text, char32_t character)
{
    if (!IsCharacter(character))
        character = kReplacement;
    if (character < 0x10000) {
        text.push_back(static_cast<OLECHAR>(character));
        return;
    }
    text.push_back(static_cast<OLECHAR>(0xD800 + ((character - 0x10000) >> 10)));
    text.push_back(static_cast<OLECHAR>(0xDC00 + ((character - 0x10000) & 0x3FF)));
}

std::string ToUtf8(OleStringView text)
{
    std::string narrow;
    narrow.reserve(text.size());
    for (std::size_t at = 0; at < text.size();) {
        if (static_cast<std::uint16_t>(text[at]) < 0x80)
            narrow.push_back(static_cast<char>(text[at++]));
        else
            AppendUtf8(narrow, NextUtf16(text, at));
    }
    return narrow;
}

OleString FromUtf8(std::string_view text)
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
        AppendUtf16(wide, NextUtf8(text, at));
    }
}

bool IsUtf8(std::string_view text) noexcept
{
    for (std::size_t at = PlainRun(text, 0); at < text.size(); at += PlainRun(text, at)) {
        if (NextUtf8(text, at) == kInvalidCharacter)
            return false;
    }
    return true;
}

std::string CleanUtf8(std::string_view text)
{
    std::string clean;
    clean.reserve(text.size());
    for (std::size_t at = 0;;) {
        const std::size_t plain = PlainRun(text, at);
        clean.append(text, at, plain);
        at += plain;
        if (at == text.size())
            return clean;
        AppendUtf8(clean, CleanCharacter(NextUtf8(text, at)));
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
        if (held_.size() - at < kLongestUtf8)
            break;
        AppendUtf8(clean, CleanCharacter(NextUtf8(held_, at)));
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
    for (; valid_ && held_.size() - at >= kLongestUtf8; at += PlainRun(held_, at))
        valid_ = NextUtf8(held_, at) != kInvalidCharacter;
    held_.erase(0, at);
}

}  // namespace quorvane
