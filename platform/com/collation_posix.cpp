// The platform's collation, for every locale: a total order in which only identical texts are equal.
//
// Texts are compared by levels; the first level that tells them apart decides:
//   1. letters and digits by their base, punctuation and blanks passed over: digits, then Latin letters, then
//   all
//      other characters by their code;
//   2. accents: none first;
//   3. case: small before capital;
//   4. length, then code: here punctuation and blanks count, and the text with fewer of them comes first.
#include <array>
#include <string_view>

#include "platform/com/bstr.h"

namespace {

using Unit = std::uint16_t;

constexpr ULONG kIgnoreCase = 1;  // NORM_IGNORECASE

struct Weights {
    std::uint32_t base = 0;  // 0: passed over at the first level
    std::uint16_t accent = 0;
    std::uint8_t isCapital = 0;
};

constexpr std::uint32_t kDigitBase = 0x100;
constexpr std::uint32_t kLatinBase = 0x200;
constexpr std::uint32_t kOtherBase = 0x10000;

// The Latin letter that each of U+00C0 to U+017F is a form of; '.' for those that are none.
constexpr char kLatinForms[] =
    "AAAAAAACEEEEIIII"
    "DNOOOOO.OUUUUYTs"
    "aaaaaaaceeeeiiii"
    "dnooooo.ouuuuyty"
    "AaAaAaCcCcCcCcDd"
    "DdEeEeEeEeEeGgGg"
    "GgGgHhHhIiIiIiIi"
    "IiIiJjKkkLlLlLlL"
    "lLlNnNnNnnNnOoOo"
    "OoOoRrRrRrSsSsSs"
    "SsTtTtTtUuUuUuUu"
    "UuUuWwYyYZzZzZzs";
static_assert(sizeof(kLatinForms) - 1 == 0x180 - 0xC0);

constexpr bool IsCapital(char letter) noexcept
{
    return letter >= 'A' && letter <= 'Z';
}

constexpr Weights LatinWeights(char letter, Unit accent) noexcept
{
    const bool capital = IsCapital(letter);
    const char small = capital ? static_cast<char>(letter - 'A' + 'a') : letter;
    return {kLatinBase + static_cast<std::uint32_t>(small - 'a'), accent, capital};
}

constexpr Weights AsciiWeights(Unit unit) noexcept
{
    const char c = static_cast<char>(unit);
    if (c >= '0' && c <= '9')
        return {kDigitBase + static_cast<std::uint32_t>(c - '0'), 0, 0};
    if (IsCapital(c) || (c >= 'a' && c <= 'z'))
        return LatinWeights(c, 0);
    return {};
}

// Greek and Cyrillic capitals stand at a fixed distance in front of the small letters.
constexpr Weights OtherWeights(Unit unit) noexcept
{
    if ((unit >= 0x391 && unit <= 0x3A9) || (unit >= 0x410 && unit <= 0x42F))
        return {kOtherBase + unit + 0x20u, 0, 1};
    if (unit >= 0x400 && unit <= 0x40F)
        return {kOtherBase + unit + 0x50u, 0, 1};
    const bool isPunctuation =
        unit < 0xC0 || (unit >= 0x2000 && unit <= 0x206F) || (unit >= 0x3000 && unit <= 0x303F);
    return {isPunctuation ? 0u : kOtherBase + unit, 0, 0};
}

constexpr Weights WeightsOf(Unit unit) noexcept
{
    if (unit < 0x80)
        return AsciiWeights(unit);
    if (unit >= 0xC0 && unit < 0x180 && kLatinForms[unit - 0xC0] != '.') {
        const char letter = kLatinForms[unit - 0xC0];
        // Both cases of a letter have one accent weight: the code of the small one.
        const Unit accent =
            unit < 0x100 ? static_cast<Unit>(unit | 0x20) : static_cast<Unit>(unit + IsCapital(letter));
        return LatinWeights(letter, accent);
    }
    return OtherWeights(unit);
}

// Walks over the characters that count at the first level.
class Walk {
public:
    explicit Walk(quorvane::OleStringView text) noexcept : text_(text) {}

    bool Next(Weights& weights) noexcept
    {
        while (at_ < text_.size()) {
            weights = WeightsOf(static_cast<Unit>(text_[at_++]));
            if (weights.base != 0)
                return true;
        }
        return false;
    }

private:
    quorvane::OleStringView text_;
    size_t at_ = 0;
};

int Sign(bool less) noexcept
{
    return less ? -1 : 1;
}

// The first three levels in one pass.
int CompareLetters(quorvane::OleStringView left, quorvane::OleStringView right, bool ignoreCase) noexcept
{
    Walk leftWalk(left);
    Walk rightWalk(right);
    int byAccent = 0;
    int byCase = 0;
    for (;;) {
        Weights l;
        Weights r;
        const bool leftGoesOn = leftWalk.Next(l);
        const bool rightGoesOn = rightWalk.Next(r);
        if (!leftGoesOn || !rightGoesOn) {
            if (leftGoesOn != rightGoesOn)
                return Sign(!leftGoesOn);
            break;
        }
        if (l.base != r.base)
            return Sign(l.base < r.base);
        if (byAccent == 0 && l.accent != r.accent)
            byAccent = Sign(l.accent < r.accent);
        if (byCase == 0 && l.isCapital != r.isCapital)
            byCase = Sign(l.isCapital < r.isCapital);
    }
    if (byAccent != 0 || ignoreCase)
        return byAccent;
    return byCase;
}

// The case-less form of a character, for the last level.
Unit Folded(Unit unit, bool ignoreCase) noexcept
{
    if (!ignoreCase)
        return unit;
    const Weights weights = WeightsOf(unit);
    if (weights.base >= kOtherBase)
        return static_cast<Unit>(weights.base - kOtherBase);
    if (weights.base >= kLatinBase && weights.accent == 0)
        return static_cast<Unit>('a' + (weights.base - kLatinBase));
    return weights.base >= kLatinBase ? weights.accent : unit;
}

int CompareCodes(quorvane::OleStringView left, quorvane::OleStringView right, bool ignoreCase) noexcept
{
    if (left.size() != right.size())
        return Sign(left.size() < right.size());
    for (size_t i = 0; i < left.size(); ++i) {
        const Unit l = Folded(static_cast<Unit>(left[i]), ignoreCase);
        const Unit r = Folded(static_cast<Unit>(right[i]), ignoreCase);
        if (l != r)
            return Sign(l < r);
    }
    return 0;
}

}  // namespace

HRESULT VarBstrCmp(BSTR left, BSTR right, LCID, ULONG flags)
{
    const auto leftText = quorvane::ViewOf(left);
    const auto rightText = quorvane::ViewOf(right);
    const bool ignoreCase = (flags & kIgnoreCase) != 0;
    int order = CompareLetters(leftText, rightText, ignoreCase);
    if (order == 0)
        order = CompareCodes(leftText, rightText, ignoreCase);
    if (order == 0)
        return VARCMP_EQ;
    return order < 0 ? VARCMP_LT : VARCMP_GT;
}
