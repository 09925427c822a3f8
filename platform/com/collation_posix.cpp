// The platform's collation, for every locale, ordered as Windows orders words.
//
// Texts are compared by levels; the first level that tells them apart decides:
//   1. blanks, punctuation, digits and letters by their base; hyphens and apostrophes are passed over;
//   2. accents: none first;
//   3. case: small before capital;
//   4. hyphens, apostrophes and control characters: a text without them first, and of two with them the one
//      that has its first further to the end.
// Texts may be equal without being the same: a ligature counts as its two letters, an accent may be a mark of
// its own, and what isn't seen at all (a soft hyphen, a mark of direction) doesn't count.
#include <utility>

#include "platform/com/bstr.h"
#include "platform/com/collation_weights_posix.h"

namespace quorvane {

namespace {

constexpr ULONG kIgnoreCase = 1;  // NORM_IGNORECASE

int OrderOf(std::uint32_t left, std::uint32_t right) noexcept
{
    if (left == right)
        return 0;
    return left < right ? -1 : 1;
}

CollationWeights WeightsAt(OleStringView text, size_t at) noexcept
{
    return CollationWeightsOf(static_cast<std::uint16_t>(text[at]));
}

bool IsMark(const CollationWeights& weights) noexcept
{
    return weights.base == 0 && weights.accent != 0;
}

// Walks over the characters that count on the first three levels.
class LetterWalk {
public:
    explicit LetterWalk(OleStringView text) noexcept : text_(text) {}

    // False at the end, with all weights 0.
    bool Next(CollationWeights& weights) noexcept
    {
        weights = {};
        if (secondBase_ != 0) {
            weights.base = std::exchange(secondBase_, 0);
            weights.letterCase = case_;
            AddMarks(weights);
            return true;
        }
        while (at_ < text_.size() && weights.base == 0)
            weights = WeightsAt(text_, at_++);
        if (weights.base == 0) {
            weights = {};
            return false;
        }
        secondBase_ = weights.secondBase;
        case_ = weights.letterCase;
        if (secondBase_ == 0)
            AddMarks(weights);
        return true;
    }

private:
    void AddMarks(CollationWeights& weights) noexcept
    {
        for (; at_ < text_.size(); ++at_) {
            const CollationWeights mark = WeightsAt(text_, at_);
            if (!IsMark(mark))
                return;
            weights.accent = static_cast<std::uint8_t>(weights.accent + mark.accent);
        }
    }

    OleStringView text_;
    size_t at_ = 0;
    std::uint32_t secondBase_ = 0;
    std::uint8_t case_ = 0;
};

// The first three levels in one pass.
int CompareLetters(OleStringView left, OleStringView right, bool ignoreCase) noexcept
{
    LetterWalk leftWalk(left);
    LetterWalk rightWalk(right);
    int byAccent = 0;
    int byCase = 0;
    for (;;) {
        CollationWeights l;
        CollationWeights r;
        const bool leftGoesOn = leftWalk.Next(l);
        const bool rightGoesOn = rightWalk.Next(r);
        if (l.base != r.base)
            return OrderOf(l.base, r.base);
        if (!leftGoesOn && !rightGoesOn)
            break;
        if (byAccent == 0)
            byAccent = OrderOf(l.accent, r.accent);
        if (byCase == 0 && !ignoreCase)
            byCase = OrderOf(l.letterCase, r.letterCase);
    }
    return byAccent != 0 ? byAccent : byCase;
}

// Walks over the characters that count on the last level alone.
class SpecialWalk {
public:
    explicit SpecialWalk(OleStringView text) noexcept : text_(text) {}

    // False at the end. lettersBefore: how many letters there are in front.
    bool Next(std::uint8_t& special, std::uint32_t& lettersBefore) noexcept
    {
        while (at_ < text_.size()) {
            const CollationWeights weights = WeightsAt(text_, at_++);
            letters_ += (weights.base != 0 ? 1u : 0u) + (weights.secondBase != 0 ? 1u : 0u);
            if (weights.special != 0) {
                special = weights.special;
                lettersBefore = letters_;
                return true;
            }
        }
        return false;
    }

private:
    OleStringView text_;
    size_t at_ = 0;
    std::uint32_t letters_ = 0;
};

int CompareSpecials(OleStringView left, OleStringView right) noexcept
{
    SpecialWalk leftWalk(left);
    SpecialWalk rightWalk(right);
    for (;;) {
        std::uint8_t l = 0;
        std::uint8_t r = 0;
        std::uint32_t leftLetters = 0;
        std::uint32_t rightLetters = 0;
        const bool leftGoesOn = leftWalk.Next(l, leftLetters);
        const bool rightGoesOn = rightWalk.Next(r, rightLetters);
        if (!leftGoesOn || !rightGoesOn)
            return OrderOf(leftGoesOn, rightGoesOn);
        if (leftLetters != rightLetters)
            return OrderOf(rightLetters, leftLetters);
        if (l != r)
            return OrderOf(l, r);
    }
}

}  // namespace

}  // namespace quorvane

HRESULT VarBstrCmp(BSTR left, BSTR right, LCID, ULONG flags)
{
    const auto leftText = quorvane::ViewOf(left);
    const auto rightText = quorvane::ViewOf(right);
    int order = quorvane::CompareLetters(leftText, rightText, (flags & quorvane::kIgnoreCase) != 0);
    if (order == 0)
        order = quorvane::CompareSpecials(leftText, rightText);
    if (order == 0)
        return VARCMP_EQ;
    return order < 0 ? VARCMP_LT : VARCMP_GT;
}
