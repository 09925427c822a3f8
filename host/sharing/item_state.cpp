#include "host/sharing/item_state.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "host/base/path_text.h"

namespace quorvane::host {

namespace {

// A writer of the engine waits half a minute for the database.
constexpr auto kLongestEnd = std::chrono::seconds(30);

constexpr char kOfEntry[] = "SELECT ID, EntryID, StoreID, LastModified FROM tblItem WHERE EntryID = ?";

}  // namespace

ItemState::ItemState(const Mailbox& mailbox, Records& records)
    : records_(records), database_(mailbox.OpenSharingDatabase())
{}

ItemState::Rows ItemState::FindRows(const char* sql, const std::string& key)
{
    const std::lock_guard lock(mutex_);
    return FindRowsLocked(sql, key);
}

ItemState::Rows ItemState::FindRowsLocked(const char* sql, const std::string& key)
{
    Statement select(database_, sql);
    select.Bind(1, key);
    Rows rows;
    while (select.Step())
        rows.push_back({select.Text(0), select.Text(1), select.Text(2), select.Real(3)});
    return rows;
}

std::optional<SharingRow> ItemState::RowOfEntry(const std::string& entryId)
{
    return Choose(FindRows(kOfEntry, entryId));
}

std::vector<std::optional<SharingRow>> ItemState::RowsOf(const std::vector<std::string>& entryIds)
{
    std::vector<Rows> found;
    {
        const std::lock_guard lock(mutex_);
        const ReadTogether reading(database_);
        for (const std::string& entryId : entryIds)
            found.push_back(FindRowsLocked(kOfEntry, entryId));
    }
    std::vector<std::optional<SharingRow>> rows;
    for (const Rows& ofOne : found)
        rows.push_back(Choose(ofOne));
    return rows;
}

std::optional<SharingRow> ItemState::Choose(const Rows& rows)
{
    if (rows.empty())
        return std::nullopt;
    if (rows.size() == 1)
        return rows.front();
    const auto known = std::find_if(rows.begin(), rows.end(), [this](const SharingRow& row) {
        return records_.FindItem(row.id).has_value();
    });
    return known == rows.end() ? rows.front() : *known;
}

std::optional<SharingRow> ItemState::RowOfId(const std::string& id)
{
    const Rows rows = FindRows("SELECT ID, EntryID, StoreID, LastModified FROM tblItem WHERE ID = ?", id);
    return rows.empty() ? std::nullopt : std::optional(rows.front());
}

std::optional<SharingRow> ItemState::DropStrayRows(const std::string& entryId)
{
    const Rows rows = FindRows(kOfEntry, entryId);
    if (rows.size() < 2)
        return rows.empty() ? std::nullopt : std::optional(rows.front());
    const auto known = Choose(rows);
    if (!known || !records_.FindItem(known->id))
        return known;  // nothing tells which is the true one
    for (const SharingRow& row : rows) {
        if (row.id == known->id || records_.FindItem(row.id))
            continue;
        const std::lock_guard lock(mutex_);
        Statement(database_, "DELETE FROM tblItem WHERE ID = ?").Bind(1, row.id).Run();
    }
    return known;
}

void ItemState::DropStrayRows()
{
    std::vector<std::string> entries;
    {
        const std::lock_guard lock(mutex_);
        Statement select(database_, "SELECT EntryID FROM tblItem GROUP BY EntryID HAVING count(*) > 1");
        while (select.Step())
            entries.push_back(select.Text(0));
    }
    for (const std::string& entryId : entries)
        DropStrayRows(entryId);
}

bool ItemState::IsCurrent(const SharingRow& row, const std::string& folderId, std::uint64_t modified)
{
    const auto record = records_.FindItem(row.id);
    return record && record->folderId == folderId && IsCurrent(row, *record, modified);
}

bool ItemState::IsCurrent(const SharingRow& row, const ItemRecord& record, std::uint64_t modified) noexcept
{
    return row.lastModified == RowTimeOf(modified) && (record.modified == 0 || record.modified == modified);
}

void ItemState::SetRowTime(const std::string& id, std::uint64_t modified)
{
    const std::lock_guard lock(mutex_);
    Statement(database_, "UPDATE tblItem SET LastModified = CAST(? AS REAL), Version = 3.0 WHERE ID = ?")
        .Bind(1, RowTimeText(modified))
        .Bind(2, id)
        .Run();
}

void ItemState::WaitForDisk(bool waits)
{
    const std::lock_guard lock(mutex_);
    database_.Execute(waits ? "PRAGMA synchronous=FULL" : "PRAGMA synchronous=NORMAL");
}

std::vector<std::string> ItemState::UnfinishedPaths()
{
    const std::lock_guard lock(mutex_);
    Statement select(database_, "SELECT Path FROM tblUnfinishedReceiveJob");
    std::vector<std::string> paths;
    while (select.Step())
        paths.push_back(select.Text(0));
    return paths;
}

bool ItemState::IsUnfinished(const std::string& path)
{
    const std::vector<std::string> paths = UnfinishedPaths();
    return std::find(paths.begin(), paths.end(), path) != paths.end();
}

bool ItemState::IsReceiving(std::chrono::steady_clock::time_point now)
{
    const std::vector<std::string> paths = UnfinishedPaths();
    const std::lock_guard lock(mutex_);
    std::map<std::string, std::chrono::steady_clock::time_point> ending;
    bool isReceiving = false;
    for (const std::string& path : paths) {
        std::error_code error;
        if (std::filesystem::exists(PathOf(path), error)) {
            isReceiving = true;
            continue;
        }
        const auto known = ending_.find(path);
        const auto since = known == ending_.end() ? now : known->second;
        ending.emplace(path, since);
        isReceiving = isReceiving || now - since < kLongestEnd;
    }
    ending_ = std::move(ending);
    return isReceiving;
}

}  // namespace quorvane::host
