#include "engine/persist/hash_record.h"

#include "engine/persist/hash_text.h"

namespace quorvane {

void HashPeers::Add(HashNode& node)
{
    std::vector<HashNode*>& peers = bySize_[HashStringBytes(node.first)];
    peers.push_back(&node);
    node.second.peer = static_cast<std::uint32_t>(peers.size() - 1);
}

void HashPeers::Take(HashNode& node) noexcept
{
    const auto found = bySize_.find(HashStringBytes(node.first));
    if (found == bySize_.end())
        return;
    std::vector<HashNode*>& peers = found->second;
    peers[node.second.peer] = peers.back();
    peers[node.second.peer]->second.peer = node.second.peer;
    peers.pop_back();
    if (peers.empty())
        bySize_.erase(found);
}

HashNode* HashPeers::Draw(const std::string& key) noexcept
{
    const auto found = bySize_.find(HashStringBytes(key));
    if (found == bySize_.end() || found->second.empty())
        return nullptr;
    return found->second[random_() % found->second.size()];
}

}  // namespace quorvane
