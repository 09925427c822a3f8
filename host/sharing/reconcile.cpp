#include "host/sharing/reconcile.h"

#include <unordered_set>

#include "host/store/folders.h"

namespace quorvane::host {

// Of what isn't here yet, a change waits for that.
bool Reconciler::IsDifferent(const Known& known, const SharingRow& row, std::uint64_t modified)
{
    const auto record = known.find(row.id);
    if (record == known.end())
        return true;
    return !ItemState::IsCurrent(row, record->second, modified) &&
           (record->second.isWhole || record->second.deleted);
}

// What was changed here and is in no package, though none is on its way: a power cut took the one that it was
// in. What was taken out of one is tried again by the next run.
std::set<std::string> Reconciler::FindLost(const Share& share)
{
    std::set<std::string> lost;
    if (!isPacking_ || isPacking_())
        return lost;
    for (const std::string& id : parts_.records.PendingItems(share.folderId))
        lost.insert(id);
    for (const UnsentItem& item : lost.empty() ? std::vector<UnsentItem>() : parts_.records.Unsent())
        lost.erase(item.id);
    return lost;
}

std::vector<Reconciler::Difference> Reconciler::FindDifferences(const Share& share)
{
    const ComPtr<IMAPIFolder> folder = OpenFolder(parts_.mail, share.entryId);
    if (!folder)
        Fail("read the folder", share.name, "it is gone");
    Known known;
    for (ItemRecord& record : parts_.records.AllItemsOf(share.folderId))
        known.emplace(record.id, std::move(record));
    const std::set<std::string> lost = FindLost(share);
    std::vector<Difference> differences;
    std::unordered_set<std::string> present;
    ForEachItem(*folder, [&](const ItemInfo& item) {
        present.insert(item.entryId);
        const auto row = parts_.state.RowOfEntry(item.entryId);
        if (!row || IsDifferent(known, *row, item.modified) || lost.contains(row->id))
            differences.push_back({item.entryId, {}, item.modified});
    });
    for (const auto& [id, record] : known) {
        const auto row = parts_.state.RowOfId(id);
        if (row ? !present.contains(row->entryId) : record.deleted && lost.contains(id))
            differences.push_back({{}, id, 0});
    }
    std::erase_if(differences,
                  [this](const Difference& difference) { return failed_.contains(difference.Key()); });
    return differences;
}

void Reconciler::Send(const Share& share, const Difference& difference)
try {
    if (difference.entryId.empty())
        sender_.SendDeletion(share, difference.id);
    else
        sender_.SendChange(share, difference.entryId);
} catch (const HostError& error) {
    if (!unsent_)
        throw;
    const auto row = parts_.state.RowOfEntry(difference.entryId);
    failed_.insert(difference.Key());
    unsent_(row ? row->id : difference.id, share.folderId, error.what());
}

void Reconciler::SendDifferences(const Share& share)
{
    const std::vector<Difference> differences = FindDifferences(share);
    if (group_ && differences.size() >= CommitGroup::kFew)
        group_->BeginSending();
    for (const Difference& difference : differences) {
        if (isStopAsked_())
            return;
        Send(share, difference);
    }
}

void Reconciler::TakeForSent(const Share& share)
{
    for (const Difference& difference : FindDifferences(share))
        if (!difference.entryId.empty())
            sender_.TakeForSent(share, difference.entryId);
}

bool Reconciler::CheckDifferences(const Share& share, std::chrono::milliseconds patience)
{
    const auto now = std::chrono::steady_clock::now();
    auto& before = firstSeen_[share.folderId];
    std::map<std::string, std::chrono::steady_clock::time_point> waiting;
    const std::vector<Difference> differences = FindDifferences(share);
    for (const Difference& difference : differences) {
        if (isStopAsked_())
            return false;
        const std::string key = difference.Key();
        const auto known = before.find(key);
        const auto first = known == before.end() ? now : known->second;
        if (now - first >= patience)
            Send(share, difference);
        else
            waiting.emplace(key, first);
    }
    before = std::move(waiting);
    return differences.empty();
}

}  // namespace quorvane::host
