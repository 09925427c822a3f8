#include "host/reconcile.h"

#include <filesystem>
#include <unordered_set>

#include "host/compound_file.h"
#include "host/folders.h"
#include "host/msg_file.h"
#include "host/properties.h"

namespace quorvane::host {

void Reconciler::MatchUnfinished()
{
    for (const std::string& path : parts_.state.UnfinishedPaths()) {
        std::error_code error;
        if (!std::filesystem::exists(path, error))
            continue;  // worked off; only its row was left
        try {
            const ComPtr<IStorage> root = OpenCompoundFile(path);
            ReadPackage(*root, path, [&](const PackageRecord& record, IStorage& storage) {
                MsgFile file;
                if (!parts_.state.RowOfId(record.id) && SUCCEEDED(file.OpenOn(storage)))
                    MatchItem(record.id, record.folderId, HexOf(file.Message(), PR_SEARCH_KEY));
            });
        } catch (const HostError&) {
            // A damaged package matches nothing; the engine removes it.
        }
    }
}

void Reconciler::MatchItem(const std::string& id, const std::string& folderId, const std::string& searchKey)
{
    const auto share = parts_.records.FindShare(folderId);
    const ComPtr<IMAPIFolder> folder =
        share && !searchKey.empty() ? OpenFolder(parts_.mail, share->entryId) : nullptr;
    if (!folder)
        return;
    std::string match;
    ForEachItem(*folder, [&](const ItemInfo& item) {
        if (match.empty() && item.searchKey == searchKey && !parts_.state.RowOfEntry(item.entryId))
            match = item.entryId;
    });
    if (!match.empty())
        Check(
            engine_.Session().ImportItem(BstrOf(id).Get(), BstrOf(match).Get(), BstrOf(share->storeId).Get()),
            "note an item of", share->name);
}

std::vector<Reconciler::Difference> Reconciler::FindDifferences(const Share& share)
{
    const ComPtr<IMAPIFolder> folder = OpenFolder(parts_.mail, share.entryId);
    if (!folder)
        Fail("read the folder", share.name, "it is gone");
    const auto rows = ReadSharingRows(parts_.mailbox);
    std::vector<Difference> differences;
    std::unordered_set<std::string> present;
    ForEachItem(*folder, [&](const ItemInfo& item) {
        present.insert(item.entryId);
        const auto row = rows.find(item.entryId);
        if (row == rows.end() || !parts_.state.IsCurrent(row->second, item.modified))
            differences.push_back({item.entryId, {}});
    });
    for (const auto& [entryId, row] : rows) {
        if (present.contains(entryId))
            continue;
        const auto record = parts_.records.FindItem(row.id);
        if (record && record->folderId == share.folderId)
            differences.push_back({{}, row.id});
    }
    return differences;
}

void Reconciler::Send(const Share& share, const Difference& difference)
{
    if (difference.entryId.empty())
        sender_.SendDeletion(share, difference.id);
    else
        sender_.SendItem(share, difference.entryId, share.entryId);
}

void Reconciler::SendDifferences(const Share& share)
{
    for (const Difference& difference : FindDifferences(share))
        Send(share, difference);
}

bool Reconciler::CheckDifferences(const Share& share, std::chrono::milliseconds patience)
{
    const auto now = std::chrono::steady_clock::now();
    auto& before = firstSeen_[share.folderId];
    std::map<std::string, std::chrono::steady_clock::time_point> waiting;
    const std::vector<Difference> differences = FindDifferences(share);
    for (const Difference& difference : differences) {
        const std::string key = difference.entryId + difference.id;
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
