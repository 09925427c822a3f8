#include "msgstore/props/property_bag.h"

#include <algorithm>
#include <numeric>

namespace quorvane {
namespace {

bool TypeFits(ULONG kept, ULONG asked) noexcept
{
    if (asked == PT_UNSPECIFIED || kept == asked)
        return true;
    return IsTextType(kept) && IsTextType(asked) && (kept & MV_FLAG) == (asked & MV_FLAG);
}

bool IdBelow(const PropertyValue& value, ULONG id) noexcept
{
    return value.id() < id;
}

}  // namespace

const PropertyValue* PropertyBag::FindId(ULONG id) const noexcept
{
    const auto found = std::lower_bound(values_.begin(), values_.end(), id, IdBelow);
    return found != values_.end() && found->id() == id ? &*found : nullptr;
}

const PropertyValue* PropertyBag::Find(ULONG tag) const noexcept
{
    const PropertyValue* const value = FindId(PROP_ID(tag));
    return value && TypeFits(value->type(), PROP_TYPE(tag)) ? value : nullptr;
}

void PropertyBag::Put(PropertyValue value)
{
    const auto place = std::lower_bound(values_.begin(), values_.end(), value.id(), IdBelow);
    if (place != values_.end() && place->id() == value.id())
        *place = std::move(value);
    else
        values_.insert(place, std::move(value));
}

bool PropertyBag::Erase(ULONG id) noexcept
{
    const auto place = std::lower_bound(values_.begin(), values_.end(), id, IdBelow);
    if (place == values_.end() || place->id() != id)
        return false;
    values_.erase(place);
    return true;
}

std::uint64_t PropertyBag::ByteSize() const noexcept
{
    return std::accumulate(
        values_.begin(), values_.end(), std::uint64_t{0},
        [](std::uint64_t sum, const PropertyValue& value) { return sum + value.ByteSize(); });
}

}  // namespace quorvane
