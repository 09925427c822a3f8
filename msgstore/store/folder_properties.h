// msgstore/store/folder_properties.h: all properties of a folder, stored and made.
#ifndef QUORVANE_MSGSTORE_STORE_FOLDER_PROPERTIES_H_
#define QUORVANE_MSGSTORE_STORE_FOLDER_PROPERTIES_H_

#include "msgstore/store/folder_rows.h"

namespace quorvane {

// MAPI_ACCESS_* bits of a folder.
inline constexpr LONG kFolderAccess = MAPI_ACCESS_MODIFY | MAPI_ACCESS_READ | MAPI_ACCESS_DELETE |
                                      MAPI_ACCESS_CREATE_HIERARCHY | MAPI_ACCESS_CREATE_CONTENTS |
                                      MAPI_ACCESS_CREATE_ASSOCIATED;

// What identifies it, and its access: no caller can write those. Throws std::bad_alloc.
void PutFixedFolderProperties(const ObjectGuid& store, const FolderRow& row, PropertyBag& bag);

// What lies in it, which no caller can write either. Takes the longer, the more messages there are.
[[nodiscard]] HRESULT PutFolderCounts(SqliteConnection& connection, const ObjectGuid& store,
                                      const FolderRow& row, PropertyBag& bag);
[[nodiscard]] bool IsFolderCount(ULONG id) noexcept;

// Those that the folder keeps: its bag and its name.
[[nodiscard]] HRESULT PutKeptFolderProperties(SqliteConnection& connection, const FolderRow& row,
                                              PropertyBag& bag);

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_STORE_FOLDER_PROPERTIES_H_
