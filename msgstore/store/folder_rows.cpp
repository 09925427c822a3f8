#include "msgstore/store/folder_rows.h"

#include <algorithm>

#include "msgstore/store/change_log.h"
#include "msgstore/store/property_rows.h"
#include "platform/clock/clock.h"

namespace quorvane {
namespace {

constexpr std::string_view kSelectFolder =
    "SELECT f.id, f.guid, f.parent_id, p.guid, f.name, f.created, f.modified, f.search IS NOT NULL"
    " FROM folder AS f LEFT JOIN folder AS p ON p.id = f.parent_id WHERE ";

HRESULT ReadOne(SqliteRows rows, FolderRow& row)
{
    if (!rows.Next())
        return FAILED(rows.Result()) ? rows.Result() : MAPI_E_NOT_FOUND;
    row.id = rows.Int64(0);
    row.guid = ObjectGuidOf(rows.Bytes(1));
    row.parentId = rows.Int64(2);
    row.parentGuid = rows.IsNull(3) ? row.guid : ObjectGuidOf(rows.Bytes(3));
    row.name = rows.Text(4);
    row.created = rows.Int64(5);
    row.modified = rows.Int64(6);
    row.isSearch = rows.Int64(7) != 0;
    return S_OK;
}

SqliteRows QueryWhere(SqliteConnection& connection, std::string_view condition, const auto&... values)
{
    return connection.Query(std::string(kSelectFolder).append(condition), values...);
}

HRESULT LogFolder(SqliteConnection& connection, ULONG event, const FolderRow& row,
                  std::int64_t oldParentId = 0)
{
    Change change;
    change.event = event;
    change.kind = MAPI_FOLDER;
    change.objectId = row.id;
    change.objectGuid = row.guid;
    change.parentId = row.parentId;
    change.oldParentId = oldParentId;
    return AppendChange(connection, change);
}

}  // namespace

HRESULT FindFolder(SqliteConnection& connection, const EntryId& id, FolderRow& row)
{
    return id.isShortTerm ? FindFolder(connection, id.row, row)
                          : ReadOne(QueryWhere(connection, "f.guid=?", id.object), row);
}

HRESULT FindFolder(SqliteConnection& connection, std::int64_t id, FolderRow& row)
{
    return ReadOne(QueryWhere(connection, "f.id=?", id), row);
}

HRESULT FindFolder(SqliteConnection& connection, std::int64_t parentId, std::string_view name, FolderRow& row)
{
    return ReadOne(QueryWhere(connection, "f.parent_id=? AND f.name=?", parentId, name), row);
}

HRESULT CountFolder(SqliteConnection& connection, std::int64_t id, FolderCounts& counts)
{
    SqliteRows rows = connection.Query(
        "SELECT count(*), coalesce(sum(flags & 1 = 0), 0) FROM message WHERE folder_id=? AND associated=0",
        id);
    if (rows.Next()) {
        counts.messages = rows.Int64(0);
        counts.unread = rows.Int64(1);
    }
    QV_RETURN_IF_FAILED(rows.Result());
    SqliteRows below = connection.Query("SELECT count(*) FROM folder WHERE parent_id=?", id);
    if (below.Next())
        counts.subfolders = below.Int64(0);
    return below.Result();
}

HRESULT ReadFolderProperties(SqliteConnection& connection, std::int64_t id, PropertyBag& properties)
{
    SqliteRows rows = connection.Query("SELECT properties FROM folder WHERE id=?", id);
    if (!rows.Next())
        return FAILED(rows.Result()) ? rows.Result() : MAPI_E_OBJECT_DELETED;
    return DecodeProperties(rows.Bytes(0).data(), rows.Bytes(0).size(), properties);
}

HRESULT InsertFolder(SqliteConnection& connection, std::int64_t parentId, std::string_view name,
                     bool isSearch, FolderRow& row)
{
    const auto now = static_cast<std::int64_t>(ToTicks(FileTimeNow()));
    QV_RETURN_IF_FAILED(
        connection.Run("INSERT INTO folder (guid, parent_id, name, created, modified, search)"
                       " VALUES (?, ?, ?, ?4, ?4, iif(?, x'', NULL))",
                       MakeObjectGuid(), parentId, name, now, isSearch));
    QV_RETURN_IF_FAILED(FindFolder(connection, connection.LastInsertId(), row));
    return LogFolder(connection, fnevObjectCreated, row);
}

HRESULT CopyFolderRow(SqliteConnection& connection, const FolderRow& original, std::int64_t parentId,
                      std::string_view name, FolderRow& row)
{
    const auto now = static_cast<std::int64_t>(ToTicks(FileTimeNow()));
    QV_RETURN_IF_FAILED(
        connection.Run("INSERT INTO folder (guid, parent_id, name, created, modified, properties, search)"
                       " SELECT ?, ?, ?, ?4, ?4, properties, search FROM folder WHERE id=?5",
                       MakeObjectGuid(), parentId, name, now, original.id));
    QV_RETURN_IF_FAILED(FindFolder(connection, connection.LastInsertId(), row));
    return LogFolder(connection, fnevObjectCopied, row, original.parentId);
}

HRESULT UpdateFolder(SqliteConnection& connection, std::int64_t id, std::string_view name,
                     const PropertyBag& properties)
{
    Bytes bytes;
    QV_RETURN_IF_FAILED(EncodeWhole(properties, bytes));
    const auto now = static_cast<std::int64_t>(ToTicks(FileTimeNow()));
    QV_RETURN_IF_FAILED(
        connection.Run("UPDATE folder SET name=?, properties=?, modified=max(?, modified + 1) WHERE id=?",
                       name, bytes, now, id));
    return LogFolderModified(connection, id);
}

HRESULT LogFolderModified(SqliteConnection& connection, std::int64_t id)
{
    FolderRow row;
    const HRESULT found = FindFolder(connection, id, row);
    if (found == MAPI_E_NOT_FOUND)
        return MAPI_E_OBJECT_DELETED;
    QV_RETURN_IF_FAILED(found);
    return LogFolder(connection, fnevObjectModified, row);
}

// How deep the folders in it lie is another value of theirs now.
HRESULT MoveFolderRow(SqliteConnection& connection, std::int64_t id, std::int64_t parentId,
                      std::string_view name)
{
    FolderRow row;
    QV_RETURN_IF_FAILED(FindFolder(connection, id, row));
    std::vector<std::int64_t> tree;
    QV_RETURN_IF_FAILED(ListTree(connection, id, tree));
    if (std::find(tree.begin(), tree.end(), parentId) != tree.end())
        return MAPI_E_FOLDER_CYCLE;
    const std::int64_t oldParentId = row.parentId;
    const auto now = static_cast<std::int64_t>(ToTicks(FileTimeNow()));
    QV_RETURN_IF_FAILED(
        connection.Run("UPDATE folder SET parent_id=?, name=?, modified=max(?, modified + 1) WHERE id=?",
                       parentId, name, now, id));
    for (const std::int64_t moved : tree) {
        QV_RETURN_IF_FAILED(FindFolder(connection, moved, row));
        QV_RETURN_IF_FAILED(moved == id ? LogFolder(connection, fnevObjectMoved, row, oldParentId)
                                        : LogFolder(connection, fnevObjectModified, row));
    }
    return S_OK;
}

HRESULT DeleteFolderRow(SqliteConnection& connection, std::int64_t id)
{
    FolderRow row;
    QV_RETURN_IF_FAILED(FindFolder(connection, id, row));
    QV_RETURN_IF_FAILED(connection.Run("DELETE FROM folder WHERE id=?", id));
    return LogFolder(connection, fnevObjectDeleted, row);
}

HRESULT ListTree(SqliteConnection& connection, std::int64_t id, std::vector<std::int64_t>& ids)
{
    SqliteRows rows = connection.Query(
        "WITH RECURSIVE below (id) AS (SELECT ? UNION SELECT f.id FROM below AS b JOIN folder AS f"
        " ON f.parent_id = b.id) SELECT id FROM below",
        id);
    while (rows.Next())
        ids.push_back(rows.Int64(0));
    return rows.Result();
}

HRESULT ListSubfolders(SqliteConnection& connection, std::int64_t parentId, std::vector<std::int64_t>& ids)
{
    SqliteRows rows = connection.Query("SELECT id FROM folder WHERE parent_id=? ORDER BY name", parentId);
    while (rows.Next())
        ids.push_back(rows.Int64(0));
    return rows.Result();
}

}  // namespace quorvane
