#include "platform/cfb/element_name.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace quorvane::cfb {
namespace {

// Units that a name can't have, and the one that ends it, in a table of the units up to the greatest of them.
constexpr auto kNotInNames = [] {
    std::array<bool, '\\' + 1> table{};
    for (const char unit : {'\0', '!', '/', ':', '\\'})
        table[static_cast<std::size_t>(unit)] = true;
    return table;
}();

// How many units at the begin of two names are the same, by fours: a quick look, since most names of a
// storage begin alike.
std::size_t CommonUnits(const void* a, const void* b, std::size_t length) noexcept
{
    std::size_t common = 0;
    const auto at = [&](const void* units) { return static_cast<const char*>(units) + 2 * common; };
    while (common + 4 <= length && std::memcmp(at(a), at(b), 8) == 0)
        common += 4;
    return common;
}

}  // namespace

HRESULT ElementName::Assign(LPCOLESTR text) noexcept
{
    if (!text)
        return STG_E_INVALIDPOINTER;
    std::size_t length = 0;
    while (length <= kMaxName && (text[length] >= kNotInNames.size() || !kNotInNames[text[length]]))
        ++length;
    if (length == 0 || length > kMaxName || text[length] != 0)
        return STG_E_INVALIDNAME;
    std::copy_n(text, length + 1, text_);
    length_ = length;
    return S_OK;
}

void ElementName::AssignRaw(const BYTE* units, std::size_t count) noexcept
{
    length_ = std::min(count, kMaxName);
    LoadUnits(text_, units, length_);
    text_[length_] = 0;
}

void ElementName::AssignNarrow(const BYTE* units, std::size_t count) noexcept
{
    length_ = std::min(count, kMaxName);
    std::copy_n(units, length_, text_);
    text_[length_] = 0;
}

int ElementName::Compare(const ElementName& other) const noexcept
{
    if (length_ != other.length_)
        return length_ < other.length_ ? -1 : 1;
    return CompareUnits(CommonUnits(text_, other.text_, length_),
                        [&](std::size_t i) { return other.text_[i]; });
}

int ElementName::CompareRaw(const BYTE* units, std::size_t count) const noexcept
{
    if (length_ != count)
        return length_ < count ? -1 : 1;
    return CompareUnits(kLittleEndian ? CommonUnits(text_, units, length_) : 0,
                        [&](std::size_t i) { return static_cast<OLECHAR>(LoadU16(units + 2 * i)); });
}

int ElementName::CompareNarrow(const BYTE* units, std::size_t count) const noexcept
{
    if (length_ != count)
        return length_ < count ? -1 : 1;
    return CompareUnits(0, [&](std::size_t i) { return static_cast<OLECHAR>(units[i]); });
}

// The same with a name of this length, whose units are the same before `from`.
template <class UnitAt>
int ElementName::CompareUnits(std::size_t from, const UnitAt& unitAt) const noexcept
{
    for (std::size_t i = from; i < length_; ++i) {
        const OLECHAR unit = unitAt(i);
        if (unit == text_[i])
            continue;
        const OLECHAR upper = UpperUnit(text_[i]);
        const OLECHAR other = UpperUnit(unit);
        if (upper != other)
            return upper < other ? -1 : 1;
    }
    return 0;
}

}  // namespace quorvane::cfb
