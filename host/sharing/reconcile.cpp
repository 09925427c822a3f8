#include "host/sharing/reconcile.h"

#include <functional>

#include "host/store/folders.h"
#include "host/store/properties.h"

namespace quorvane::host {

namespace {

// Of so many messages the rows are asked for at once.
constexpr std::size_t kFewMessages = 200;

struct Messages {
    std::vector<std::string> entryIds;
    std::vector<std::uint64_t> modified;  // of each
};

void ForEachFewMessages(IMAPIFolder& folder, const std::function<void(const Messages&)>& visit)
{
    SizedSPropTagArray(2, columns) = {2, {PR_ENTRYID, PR_LAST_MODIFICATION_TIME}};
    Messages messages;
    ForEachItemRow(folder, reinterpret_cast<LPSPropTagArray>(&columns), [&](const SRow& row) {
        messages.entryIds.push_back(HexOf(row, PR_ENTRYID));
        messages.modified.push_back(TimeOf(row, PR_LAST_MODIFICATION_TIME));
        if (messages.entryIds.size() < kFewMessages)
            return;
        visit(messages);
        messages = {};
    });
    if (!messages.entryIds.empty())
        visit(messages);
}

}  // namespace

// Of what isn't here yet, a change waits for that.
bool Reconciler::IsDifferent(const SharingRow& row, const std::optional<ItemRecord>& record,
                             std::uint64_t modified)
{
    return !record || (!ItemState::IsCurrent(row, *record, modified) && (record->isWhole || record->deleted));
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

// Of the messages of a folder; `seen` gets them, and the items that they are.
void Reconciler::FindChanges(const Share& share, const std::set<std::string>& lost, Seen& seen,
                             std::vector<Difference>& differences)
{
    const ComPtr<IMAPIFolder> folder = OpenFolder(parts_.mail, share.entryId);
    if (!folder)
        Fail("read the folder", share.name, "it is gone");
    ForEachFewMessages(*folder, [&](const Messages& messages) {
        const auto rows = parts_.state.RowsOf(messages.entryIds);
        const auto records = RecordsOf(share, rows);
        for (std::size_t i = 0; i < rows.size(); ++i) {
            seen.messages.Add(messages.entryIds[i]);
            if (rows[i])
                seen.items.Add(rows[i]->id);
            if (!rows[i] || IsDifferent(*rows[i], records[i], messages.modified[i]) ||
                lost.contains(rows[i]->id))
                differences.push_back({messages.entryIds[i], {}, messages.modified[i]});
        }
    });
}

// In the order of the rows; null where there is no row, or no item of this folder.
std::vector<std::optional<ItemRecord>> Reconciler::RecordsOf(
    const Share& share, const std::vector<std::optional<SharingRow>>& rows)
{
    std::vector<std::string> ids;
    for (const auto& row : rows)
        ids.push_back(row ? row->id : std::string());
    auto records = parts_.records.FindItems(ids);
    for (auto& record : records)
        if (record && record->folderId != share.folderId)
            record.reset();
    return records;
}

std::vector<Reconciler::Difference> Reconciler::FindDifferences(const Share& share)
{
    const std::set<std::string> lost = FindLost(share);
    std::vector<Difference> differences;
    Seen seen;
    FindChanges(share, lost, seen, differences);
    parts_.records.ForEachItem(share.folderId, Records::Deleted::kIncluded, [&](const ItemRecord& item) {
        if (seen.items.Has(item.id))
            return;
        const auto row = parts_.state.RowOfId(item.id);
        if (row ? !seen.messages.Has(row->entryId) : item.deleted && lost.contains(item.id))
            differences.push_back({{}, item.id, 0});
    });
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

bool Reconciler::SendDifferences(const Share& share)
{
    const std::vector<Difference> differences = FindDifferences(share);
    if (group_ && differences.size() >= CommitGroup::kFew)
        group_->BeginSending();
    for (const Difference& difference : differences) {
        if (isStopAsked_())
            return false;
        Send(share, difference);
    }
    return differences.empty();
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
