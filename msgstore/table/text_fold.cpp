#include "msgstore/table/text_fold.h"

#include <utf8proc.h>

#include <algorithm>
#include <array>
#include <cstdint>

#include "platform/com/bstr.h"

namespace quorvane {
namespace {

char AsciiFold(char unit) noexcept
{
    return unit >= 'A' && unit <= 'Z' ? static_cast<char>(unit + 0x20) : unit;
}

// By way of the upper case: so both forms of a small sigma are one letter.
char32_t FoldLetter(char32_t letter) noexcept
{
    if (letter < 0x80)
        return static_cast<unsigned char>(AsciiFold(static_cast<char>(letter)));
    if (letter == kInvalidCharacter)
        return kReplacement;
    return static_cast<char32_t>(utf8proc_tolower(utf8proc_toupper(static_cast<utf8proc_int32_t>(letter))));
}

// Letters with a stroke, which Unicode doesn't make of a letter and a mark.
char32_t WithoutStroke(char32_t letter) noexcept
{
    constexpr std::u32string_view kStruck = U"ØøĐđĦħŁłŦŧƵƶ";
    constexpr std::u32string_view kBases = U"OoDdHhLlTtZz";
    const std::size_t at = kStruck.find(letter);
    return at == std::u32string_view::npos ? letter : kBases[at];
}

// What stands above, below or across a letter. Signs that make another letter of it (a voicing of kana, a
// vowel of an Indic script or of Thai) are in classes of their own, below the others.
bool IsMark(utf8proc_int32_t character) noexcept
{
    const utf8proc_property_t& property = *utf8proc_get_property(character);
    return property.category == UTF8PROC_CATEGORY_MN &&
           (property.combining_class > 9 || (character >= 0x0300 && character < 0x0370));
}

void AppendWithoutMarks(OleString& text, char32_t character)
{
    // No character has more parts than four.
    std::array<utf8proc_int32_t, 8> parts{};
    int boundary = 0;
    const utf8proc_ssize_t count = utf8proc_decompose_char(
        static_cast<utf8proc_int32_t>(character), parts.data(), parts.size(), UTF8PROC_DECOMPOSE, &boundary);
    const bool marked = count > 1 && std::any_of(parts.begin() + 1, parts.begin() + count, IsMark);
    // What has other parts than marks, as a syllable of Hangul, stays in one piece.
    if (!marked && (count != 1 || !IsMark(parts[0])))
        AppendUtf16(text, WithoutStroke(character));
    for (utf8proc_ssize_t i = 0; marked && i < count; ++i)
        if (!IsMark(parts[static_cast<std::size_t>(i)]))
            AppendUtf16(text, WithoutStroke(static_cast<char32_t>(parts[static_cast<std::size_t>(i)])));
}

}  // namespace

OleString Fold(OleStringView text)
{
    OleString folded;
    folded.reserve(text.size());
    for (std::size_t at = 0; at < text.size();)
        AppendUtf16(folded, FoldLetter(NextUtf16(text, at)));
    return folded;
}

std::string FoldUtf8(std::string_view text)
{
    std::string folded(text);
    const auto plain =
        std::find_if(text.begin(), text.end(), [](char unit) { return (unit & 0x80) != 0; }) - text.begin();
    std::transform(folded.begin(), folded.begin() + plain, folded.begin(), AsciiFold);
    folded.resize(static_cast<std::size_t>(plain));
    for (auto at = static_cast<std::size_t>(plain); at < text.size();)
        AppendUtf8(folded, FoldLetter(NextUtf8(text, at)));
    return folded;
}

OleString WithoutMarks(OleStringView text)
{
    OleString plain;
    plain.reserve(text.size());
    for (std::size_t at = 0; at < text.size();) {
        const char32_t character = NextUtf16(text, at);
        if (character < 0x80)
            plain.push_back(static_cast<OLECHAR>(character));
        else
            AppendWithoutMarks(plain, character);
    }
    return plain;
}

}  // namespace quorvane
