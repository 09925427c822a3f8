// msgstore/store/folder_contents.h: what folders do to many messages at once.
#ifndef QUORVANE_MSGSTORE_STORE_FOLDER_CONTENTS_H_
#define QUORVANE_MSGSTORE_STORE_FOLDER_CONTENTS_H_

#include "msgstore/store/folder_rows.h"
#include "msgstore/store/message_rows.h"
#include "msgstore/store/store_core.h"

namespace quorvane {

// All work within a transaction that writes.

// The rows of the listed messages that are in the folder. `partial` becomes true when some aren't, or an
// identifier is none of the store's.
[[nodiscard]] HRESULT FindListedMessages(SqliteConnection& connection, const ObjectGuid& store,
                                         std::int64_t folderId, const ENTRYLIST& list,
                                         std::vector<std::int64_t>& ids, bool& partial);

// The numbers of all messages of a folder.
[[nodiscard]] HRESULT ListMessages(SqliteConnection& connection, std::int64_t folderId, bool associated,
                                   std::vector<std::int64_t>& ids);

// Puts a folder from below the one folder below the other, as `name`, or with an empty one as it is called.
//
// MAPI_E_NOT_FOUND: there is none such right below the one, MAPI_E_OBJECT_DELETED: the other is gone;
// MAPI_E_NO_ACCESS: it's one that every store has; MAPI_E_COLLISION, MAPI_E_FOLDER_CYCLE as MoveFolderRow.
[[nodiscard]] HRESULT MoveFolderBelow(SqliteConnection& connection, std::int64_t fromFolder,
                                      const EntryId& id, std::int64_t toFolder, const std::string& name);

// Those below do a step of a long work (StoreCore::WriteInSteps). S_FALSE: there is more to do.

// Deletes all messages, also the associated ones if wanted, and all folders below, with what is in them.
[[nodiscard]] HRESULT EmptyFolderRows(SqliteConnection& connection, std::int64_t folderId,
                                      bool withAssociated, const StepTime& time);

// Deletes listed messages.
//
// next     [in,out]  the first of the list that isn't done with; 0 at first.
// partial  [in,out]  becomes true if some aren't in the folder.
[[nodiscard]] HRESULT DeleteListedMessages(SqliteConnection& connection, const ObjectGuid& store,
                                           std::int64_t folderId, const ENTRYLIST& list, const StepTime& time,
                                           ULONG& next, bool& partial);

// Deletes a folder below another.
//
// flags  DEL_MESSAGES, DEL_FOLDERS: what it may hold.
//
// MAPI_E_NOT_FOUND: there is none such right below; MAPI_E_NO_ACCESS: it's one that every store has;
// MAPI_E_HAS_MESSAGES, MAPI_E_HAS_FOLDERS.
[[nodiscard]] HRESULT DeleteFolderBelow(SqliteConnection& connection, std::int64_t parentId,
                                        const EntryId& id, ULONG flags, const StepTime& time);

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_STORE_FOLDER_CONTENTS_H_
