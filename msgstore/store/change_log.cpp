#include "msgstore/store/change_log.h"

#include <algorithm>

namespace quorvane {
namespace {

// Old rows are dropped once in so many changes.
constexpr std::int64_t kPruneInterval = 1000;

Change ChangeOf(const SqliteRows& row)
{
    Change change;
    change.number = row.Int64(0);
    change.event = static_cast<ULONG>(row.Int64(1));
    change.kind = static_cast<ULONG>(row.Int64(2));
    change.objectId = row.Int64(3);
    const ByteView guid = row.Bytes(4);
    std::copy_n(guid.begin(), std::min(guid.size(), change.objectGuid.size()), change.objectGuid.begin());
    change.parentId = row.Int64(5);
    change.oldParentId = row.Int64(6);
    change.isAssociated = row.Int64(7) != 0;
    return change;
}

// Whether the rows right after number `after` are still there.
HRESULT AreChangesComplete(SqliteConnection& connection, std::int64_t after, bool& complete)
{
    SqliteRows rows = connection.Query("SELECT min(number) FROM change");
    complete = !rows.Next() || rows.IsNull(0) || rows.Int64(0) <= after + 1;
    return rows.Result();
}

}  // namespace

HRESULT AppendChange(SqliteConnection& connection, const Change& change)
{
    QV_RETURN_IF_FAILED(connection.Run(
        "INSERT INTO change (event, kind, object_id, object_guid, parent_id, old_parent_id, associated)"
        " VALUES (?, ?, ?, ?, ?, ?, ?)",
        change.event, change.kind, change.objectId, change.objectGuid, change.parentId, change.oldParentId,
        change.isAssociated));
    const std::int64_t number = connection.LastInsertId();
    if (number % kPruneInterval != 0)
        return S_OK;
    return connection.Run("DELETE FROM change WHERE number <= ?", number - kKeptChanges);
}

HRESULT ReadChanges(SqliteConnection& connection, std::int64_t after, std::size_t limit,
                    std::vector<Change>& changes)
{
    bool complete = false;
    QV_RETURN_IF_FAILED(AreChangesComplete(connection, after, complete));
    if (!complete)
        return S_FALSE;
    SqliteRows rows = connection.Query(
        "SELECT number, event, kind, object_id, object_guid, parent_id, old_parent_id, associated"
        " FROM change WHERE number > ? ORDER BY number LIMIT ?",
        after, static_cast<std::int64_t>(limit));
    while (rows.Next())
        changes.push_back(ChangeOf(rows));
    return rows.Result();
}

HRESULT ReadLastChange(SqliteConnection& connection, std::int64_t& number)
{
    SqliteRows rows = connection.Query("SELECT max(number) FROM change");
    number = rows.Next() ? rows.Int64(0) : 0;
    return rows.Result();
}

}  // namespace quorvane
