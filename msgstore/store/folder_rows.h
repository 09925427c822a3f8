// msgstore/store/folder_rows.h: the rows of folders.
#ifndef QUORVANE_MSGSTORE_STORE_FOLDER_ROWS_H_
#define QUORVANE_MSGSTORE_STORE_FOLDER_ROWS_H_

#include <string>
#include <vector>

#include "msgstore/props/property_bag.h"
#include "msgstore/store/entry_id.h"
#include "msgstore/store/schema.h"

namespace quorvane {

// A folder's row, but for its properties.
struct FolderRow {
    std::int64_t id = 0;
    ObjectGuid guid{};
    std::int64_t parentId = 0;  // 0: the root
    ObjectGuid parentGuid{};    // the root's is its own
    std::string name;           // UTF-8
    std::int64_t created = 0;   // FILETIME ticks
    std::int64_t modified = 0;
    bool isSearch = false;  // it shows what it finds elsewhere, and holds nothing
};

// Find a row. MAPI_E_NOT_FOUND: there is no such folder.
[[nodiscard]] HRESULT FindFolder(SqliteConnection& connection, const EntryId& id, FolderRow& row);
[[nodiscard]] HRESULT FindFolder(SqliteConnection& connection, std::int64_t id, FolderRow& row);
[[nodiscard]] HRESULT FindFolder(SqliteConnection& connection, std::int64_t parentId, std::string_view name,
                                 FolderRow& row);

// What a folder's table columns show beside its row. Of a folder that searches: what is in itself, which is
// nothing.
struct FolderCounts {
    std::int64_t messages = 0;  // not associated
    std::int64_t unread = 0;    // of them
    std::int64_t subfolders = 0;
};
[[nodiscard]] HRESULT CountFolder(SqliteConnection& connection, std::int64_t id, FolderCounts& counts);

// The folder's stored properties.
[[nodiscard]] HRESULT ReadFolderProperties(SqliteConnection& connection, std::int64_t id,
                                           PropertyBag& properties);

// Those below work within a transaction that writes and log the change.

// Makes a folder. MAPI_E_COLLISION: the parent has one of that name.
[[nodiscard]] HRESULT InsertFolder(SqliteConnection& connection, std::int64_t parentId, std::string_view name,
                                   bool isSearch, FolderRow& row);
// Writes name and properties. MAPI_E_COLLISION; MAPI_E_OBJECT_DELETED: the folder is gone.
[[nodiscard]] HRESULT UpdateFolder(SqliteConnection& connection, std::int64_t id, std::string_view name,
                                   const PropertyBag& properties);
// Tells of a change of the folder that was made by other means. MAPI_E_OBJECT_DELETED: it's gone.
[[nodiscard]] HRESULT LogFolderModified(SqliteConnection& connection, std::int64_t id);
// Makes a copy of a folder, with its properties and nothing that is in it. As InsertFolder.
[[nodiscard]] HRESULT CopyFolderRow(SqliteConnection& connection, const FolderRow& original,
                                    std::int64_t parentId, std::string_view name, FolderRow& row);
// Puts a folder below another one, under a name. MAPI_E_COLLISION; MAPI_E_FOLDER_CYCLE: the other one is the
// folder itself, or lies in it.
[[nodiscard]] HRESULT MoveFolderRow(SqliteConnection& connection, std::int64_t id, std::int64_t parentId,
                                    std::string_view name);
// Deletes a folder that holds nothing any more.
[[nodiscard]] HRESULT DeleteFolderRow(SqliteConnection& connection, std::int64_t id);

// The folder itself and all below it, at any depth; each stands behind the one that holds it.
[[nodiscard]] HRESULT ListTree(SqliteConnection& connection, std::int64_t id, std::vector<std::int64_t>& ids);
// The folders right below, by name.
[[nodiscard]] HRESULT ListSubfolders(SqliteConnection& connection, std::int64_t parentId,
                                     std::vector<std::int64_t>& ids);

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_STORE_FOLDER_ROWS_H_
