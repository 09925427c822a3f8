#include "msgstore/store/folder_contents.h"

#include "msgstore/store/table_source.h"

namespace quorvane {
namespace {

// A damaged file may have folders within themselves.
constexpr int kDeepestFolder = 1000;

// The one after that number; 0 behind the last.
HRESULT NextMessage(SqliteConnection& connection, std::int64_t folderId, bool associated, std::int64_t& id)
{
    SqliteRows rows = connection.Query(
        "SELECT id FROM message WHERE folder_id=? AND associated=? AND id>? ORDER BY id LIMIT 1", folderId,
        associated, id);
    id = rows.Next() ? rows.Int64(0) : 0;
    return rows.Result();
}

HRESULT DeleteMessagesOf(SqliteConnection& connection, std::int64_t folderId, bool associated,
                         const StepTime& time)
{
    std::int64_t last = 0;
    return WorkOnAll(connection, folderId, associated, DeleteMessage, time, last);
}

HRESULT IsFirstFolder(SqliteConnection& connection, std::int64_t id, bool& isFirst)
{
    SqliteRows rows = connection.Query("SELECT role FROM folder WHERE id=?", id);
    isFirst = rows.Next() && rows.Int64(0) != static_cast<std::int64_t>(FolderRole::None);
    return rows.Result();
}

HRESULT HasAny(SqliteConnection& connection, std::string_view sql, std::int64_t folderId, bool& hasAny)
{
    SqliteRows rows = connection.Query(sql, folderId);
    hasAny = rows.Next();
    return rows.Result();
}

// Asked at each step: nothing is counted.
HRESULT CheckMayGo(SqliteConnection& connection, std::int64_t id, ULONG flags)
{
    bool isFirst = false;
    QV_RETURN_IF_FAILED(IsFirstFolder(connection, id, isFirst));
    if (isFirst)
        return MAPI_E_NO_ACCESS;
    bool hasMessages = false;
    bool hasFolders = false;
    QV_RETURN_IF_FAILED(HasAny(connection, "SELECT 1 FROM message WHERE folder_id=? AND associated=0 LIMIT 1",
                               id, hasMessages));
    QV_RETURN_IF_FAILED(HasAny(connection, "SELECT 1 FROM folder WHERE parent_id=? LIMIT 1", id, hasFolders));
    if (hasMessages && (flags & DEL_MESSAGES) == 0)
        return MAPI_E_HAS_MESSAGES;
    return hasFolders && (flags & DEL_FOLDERS) == 0 ? MAPI_E_HAS_FOLDERS : S_OK;
}

HRESULT EmptyAt(SqliteConnection& connection, std::int64_t folderId, bool withAssociated, int depth,
                const StepTime& time)
{
    if (depth > kDeepestFolder)
        return MAPI_E_CORRUPT_STORE;
    std::vector<std::int64_t> below;
    QV_RETURN_IF_FAILED(ListSubfolders(connection, folderId, below));
    for (const std::int64_t id : below) {
        QV_RETURN_IF_FAILED(CheckMayGo(connection, id, DEL_MESSAGES | DEL_FOLDERS));
        const HRESULT emptied = EmptyAt(connection, id, true, depth + 1, time);
        if (emptied != S_OK)
            return emptied;
        QV_RETURN_IF_FAILED(DeleteFolderRow(connection, id));
    }
    const HRESULT emptied = DeleteMessagesOf(connection, folderId, false, time);
    if (emptied != S_OK || !withAssociated)
        return emptied;
    return DeleteMessagesOf(connection, folderId, true, time);
}

// S_FALSE: it's no folder that finds the message.
HRESULT IsFound(SqliteConnection& connection, const ObjectGuid& store, std::int64_t folderId, std::int64_t id)
{
    FolderRow folder;
    const HRESULT there = FindFolder(connection, folderId, folder);
    if (FAILED(there) && there != MAPI_E_NOT_FOUND)
        return there;
    return folder.isSearch
               ? MakeContentsSource(store, folder, false, false)->MakeReader(connection)->MoveTo(id)
               : S_FALSE;
}

// S_FALSE: there is no such message in the folder.
HRESULT FindListed(SqliteConnection& connection, const ObjectGuid& store, std::int64_t folderId,
                   const SBinary& listed, std::int64_t& id)
{
    EntryId parsed;
    HRESULT found = ParseEntryId(listed.lpb, listed.cb, parsed);
    if (found == MAPI_E_INVALID_ENTRYID)
        return S_FALSE;
    QV_RETURN_IF_FAILED(found);
    if (parsed.kind != MAPI_MESSAGE || parsed.store != store)
        return S_FALSE;
    MessageRow row;
    found = FindMessage(connection, parsed, row);
    if (found == MAPI_E_NOT_FOUND)
        return S_FALSE;
    id = row.id;
    QV_RETURN_IF_FAILED(found);
    return row.folderId == folderId ? S_OK : IsFound(connection, store, folderId, id);
}

}  // namespace

HRESULT FindFolderBelow(SqliteConnection& connection, std::int64_t parentId, const EntryId& id,
                        FolderRow& row)
{
    QV_RETURN_IF_FAILED(FindFolder(connection, id, row));
    return row.parentId == parentId ? S_OK : MAPI_E_NOT_FOUND;
}

HRESULT FindMovableFolder(SqliteConnection& connection, std::int64_t parentId, const EntryId& id,
                          FolderRow& row)
{
    QV_RETURN_IF_FAILED(FindFolderBelow(connection, parentId, id, row));
    bool isFirst = false;
    QV_RETURN_IF_FAILED(IsFirstFolder(connection, row.id, isFirst));
    return isFirst ? MAPI_E_NO_ACCESS : S_OK;
}

HRESULT CheckTakesIn(SqliteConnection& connection, std::int64_t folderId)
{
    FolderRow row;
    const HRESULT found = FindFolder(connection, folderId, row);
    if (found == MAPI_E_NOT_FOUND)
        return MAPI_E_OBJECT_DELETED;
    QV_RETURN_IF_FAILED(found);
    return row.isSearch ? MAPI_E_NO_ACCESS : S_OK;
}

HRESULT WorkOnListed(SqliteConnection& connection, const ObjectGuid& store, std::int64_t folderId,
                     const ENTRYLIST& list, const MessageWork& work, const StepTime& time,
                     ListProgress& progress)
{
    while (progress.next < list.cValues) {
        std::int64_t id = 0;
        const HRESULT found = FindListed(connection, store, folderId, list.lpbin[progress.next], id);
        QV_RETURN_IF_FAILED(found);
        if (found == S_OK)
            QV_RETURN_IF_FAILED(work(connection, id));
        else
            progress.partial = true;
        if (++progress.next < list.cValues && time.IsOver())
            return S_FALSE;
    }
    return S_OK;
}

HRESULT WorkOnAll(SqliteConnection& connection, std::int64_t folderId, bool associated,
                  const MessageWork& work, const StepTime& time, std::int64_t& last)
{
    for (;;) {
        QV_RETURN_IF_FAILED(NextMessage(connection, folderId, associated, last));
        if (last == 0)
            return S_OK;
        QV_RETURN_IF_FAILED(work(connection, last));
        if (time.IsOver())
            return S_FALSE;
    }
}

HRESULT EmptyFolderRows(SqliteConnection& connection, std::int64_t folderId, bool withAssociated,
                        const StepTime& time)
{
    return EmptyAt(connection, folderId, withAssociated, 0, time);
}

HRESULT MoveFolderBelow(SqliteConnection& connection, std::int64_t fromFolder, const EntryId& id,
                        std::int64_t toFolder, const std::string& name)
{
    QV_RETURN_IF_FAILED(CheckTakesIn(connection, toFolder));
    FolderRow row;
    QV_RETURN_IF_FAILED(FindMovableFolder(connection, fromFolder, id, row));
    return MoveFolderRow(connection, row.id, toFolder, name.empty() ? row.name : name);
}

HRESULT DeleteFolderBelow(SqliteConnection& connection, std::int64_t parentId, const EntryId& id, ULONG flags,
                          const StepTime& time)
{
    FolderRow row;
    QV_RETURN_IF_FAILED(FindFolderBelow(connection, parentId, id, row));
    QV_RETURN_IF_FAILED(CheckMayGo(connection, row.id, flags));
    const HRESULT emptied = EmptyFolderRows(connection, row.id, true, time);
    if (emptied != S_OK)
        return emptied;
    return DeleteFolderRow(connection, row.id);
}

}  // namespace quorvane
