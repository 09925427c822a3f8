#include "msgstore/table/text_fold.h"

#include <algorithm>

#include "platform/com/bstr.h"

namespace quorvane {
namespace {

// The base letters of U+00C0 to U+017F; a full stop stands for one that isn't made of another letter.
constexpr char kBases[] =
    "AAAAAA.CEEEEIIII.NOOOOO.OUUUUY..aaaaaa.ceeeeiiii.nooooo.ouuuuy.y"
    "AaAaAaCcCcCcCcDdDdEeEeEeEeEeGgGgGgGgHhHhIiIiIiIiI...JjKk.LlLlLlL"
    "lLlNnNnNn...OoOoOo..RrRrRrSsSsSsSsTtTtTtUuUuUuUuUuUuWwYyYZzZzZz.";
static_assert(sizeof(kBases) == 0x180 - 0xC0 + 1);

bool IsCombiningMark(OLECHAR unit) noexcept
{
    return unit >= 0x0300 && unit < 0x0370;
}

OLECHAR FoldLatinExtended(OLECHAR unit) noexcept
{
    const bool odd = (unit & 1) != 0;
    if (unit == 0x0178)
        return 0x00FF;
    if (unit == 0x0130 || unit == 0x0131 || unit == 0x0138 || unit == 0x0149 || unit == 0x017F)
        return unit;
    const bool oddIsUpper = (unit >= 0x0139 && unit <= 0x0148) || (unit >= 0x0179 && unit <= 0x017E);
    return odd == oddIsUpper ? static_cast<OLECHAR>(unit + 1) : unit;
}

OLECHAR FoldGreek(OLECHAR unit) noexcept
{
    if (unit >= 0x0391 && unit <= 0x03AB && unit != 0x03A2)
        return static_cast<OLECHAR>(unit + 0x20);
    if (unit == 0x0386)
        return 0x03AC;
    if (unit >= 0x0388 && unit <= 0x038A)
        return static_cast<OLECHAR>(unit + 0x25);
    if (unit == 0x038C)
        return 0x03CC;
    return unit == 0x038E || unit == 0x038F ? static_cast<OLECHAR>(unit + 0x3F) : unit;
}

OLECHAR FoldCyrillic(OLECHAR unit) noexcept
{
    if (unit < 0x0410)
        return static_cast<OLECHAR>(unit + 0x50);
    if (unit < 0x0430)
        return static_cast<OLECHAR>(unit + 0x20);
    if ((unit >= 0x0460 && unit < 0x0482) || (unit >= 0x048A && unit < 0x04C0) || unit >= 0x04D0)
        return static_cast<OLECHAR>(unit | 1);
    return unit;
}

}  // namespace

OLECHAR FoldUnit(OLECHAR unit) noexcept
{
    if (unit < 0x80)
        return unit >= 'A' && unit <= 'Z' ? static_cast<OLECHAR>(unit + 0x20) : unit;
    if (unit >= 0x00C0 && unit <= 0x00DE && unit != 0x00D7)
        return static_cast<OLECHAR>(unit + 0x20);
    if (unit >= 0x0100 && unit < 0x0180)
        return FoldLatinExtended(unit);
    if (unit >= 0x0386 && unit < 0x03AC)
        return FoldGreek(unit);
    if (unit >= 0x0400 && unit < 0x0530)
        return FoldCyrillic(unit);
    return unit >= 0x0531 && unit <= 0x0556 ? static_cast<OLECHAR>(unit + 0x30) : unit;
}

OleString Fold(OleStringView text)
{
    OleString folded(text);
    std::transform(folded.begin(), folded.end(), folded.begin(), FoldUnit);
    return folded;
}

std::string FoldUtf8(std::string_view text)
{
    if (std::any_of(text.begin(), text.end(), [](char unit) { return (unit & 0x80) != 0; }))
        return ToUtf8(Fold(FromUtf8(text)));
    std::string folded(text);
    std::transform(folded.begin(), folded.end(), folded.begin(),
                   [](char unit) { return static_cast<char>(FoldUnit(static_cast<OLECHAR>(unit))); });
    return folded;
}

OleString WithoutMarks(OleStringView text)
{
    OleString plain;
    plain.reserve(text.size());
    for (const OLECHAR unit : text) {
        if (IsCombiningMark(unit))
            continue;
        const char base = unit >= 0x00C0 && unit < 0x0180 ? kBases[unit - 0x00C0] : '.';
        plain.push_back(base == '.' ? unit : static_cast<OLECHAR>(base));
    }
    return plain;
}

}  // namespace quorvane
