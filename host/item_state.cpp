#include "host/item_state.h"

#include <algorithm>
#include <cstdio>

namespace quorvane::host {

ItemState::ItemState(const Mailbox& mailbox, Records& records)
    : records_(records), database_(mailbox.OpenSharingDatabase())
{}

std::optional<SharingRow> ItemState::FindRow(const char* sql, const std::string& key)
{
    const std::lock_guard lock(mutex_);
    Statement select(database_, sql);
    if (!select.Bind(1, key).Step())
        return std::nullopt;
    return SharingRow{select.Text(0), select.Text(1), select.Text(2), select.Real(3)};
}

std::optional<SharingRow> ItemState::RowOfEntry(const std::string& entryId)
{
    return FindRow("SELECT ID, EntryID, StoreID, LastModified FROM tblItem WHERE EntryID = ?", entryId);
}

std::optional<SharingRow> ItemState::RowOfId(const std::string& id)
{
    return FindRow("SELECT ID, EntryID, StoreID, LastModified FROM tblItem WHERE ID = ?", id);
}

bool ItemState::IsCurrent(const SharingRow& row, std::uint64_t modified)
{
    if (row.lastModified != RowTimeOf(modified))
        return false;
    const auto record = records_.FindItem(row.id);
    return record && (record->modified == 0 || record->modified == modified);
}

void ItemState::SetRowTime(const std::string& id, std::uint64_t modified)
{
    char number[64];
    std::snprintf(number, sizeof number, "%.17g", RowTimeOf(modified));
    const std::lock_guard lock(mutex_);
    Statement(database_, "UPDATE tblItem SET LastModified = CAST(? AS REAL), Version = 3.0 WHERE ID = ?")
        .Bind(1, number)
        .Bind(2, id)
        .Run();
}

void ItemState::NoteKept(const std::string& id)
{
    const std::lock_guard lock(mutex_);
    kept_.insert(id);
}

bool ItemState::WasKept(const std::string& id)
{
    const std::lock_guard lock(mutex_);
    return kept_.contains(id);
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

}  // namespace quorvane::host
