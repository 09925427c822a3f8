#include "platform/cfb/draft.h"

#include <algorithm>

namespace quorvane::cfb {

bool Draft::IsInUse() const noexcept
{
    return open ||
           std::any_of(children.begin(), children.end(), [](const auto& child) { return child->IsInUse(); });
}

bool Draft::IsInFile() const noexcept
{
    return IsPlaced() || inSectors ||
           std::any_of(children.begin(), children.end(), [](const auto& child) { return child->IsInFile(); });
}

std::size_t Draft::Weight() const noexcept
{
    if (IsPlaced())
        return 0;
    std::size_t weight = kCost + bytes.size();
    for (const auto& child : children)
        weight += child->Weight();
    return weight;
}

Draft* Draft::Find(const ElementName& child) const noexcept
{
    const auto found = children.find(child);
    return found == children.end() ? nullptr : found->get();
}

}  // namespace quorvane::cfb
