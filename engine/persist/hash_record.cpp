#include "engine/persist/hash_record.h"

#include "engine/persist/hash_text.h"

namespace quorvane {

void RecordsBySize::Add(HashNode& node)
{
    std::vector<HashNode*>& same = bySize_[HashStringBytes(node.first.View())];
    same.push_back(&node);
    node.second.place = static_cast<std::uint32_t>(same.size() - 1);
}

void RecordsBySize::Remove(HashNode& node) noexcept
{
    const auto found = bySize_.find(HashStringBytes(node.first.View()));
    if (found == bySize_.end())
        return;
    std::vector<HashNode*>& same = found->second;
    same[node.second.place] = same.back();
    same[node.second.place]->second.place = node.second.place;
    same.pop_back();
    if (same.empty())
        bySize_.erase(found);
}

HashNode* RecordsBySize::PickAny(std::string_view key) noexcept
{
    const auto found = bySize_.find(HashStringBytes(key));
    if (found == bySize_.end() || found->second.empty())
        return nullptr;
    return found->second[random_() % found->second.size()];
}

}  // namespace quorvane
