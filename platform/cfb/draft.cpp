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
    const auto found = Seek(child);
    return found == children.end() || (*found)->name.Compare(child) != 0 ? nullptr : found->get();
}

Draft::Children::iterator Draft::Seek(const ElementName& child) const noexcept
{
    if (children.empty() || (*children.rbegin())->name.Compare(child) < 0)
        return children.end();
    return children.lower_bound(child);
}

}  // namespace quorvane::cfb
