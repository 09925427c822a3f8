// msgstore/store/folder_contents.h: what folders do to many messages at once.
#ifndef QUORVANE_MSGSTORE_STORE_FOLDER_CONTENTS_H_
#define QUORVANE_MSGSTORE_STORE_FOLDER_CONTENTS_H_

#include <functional>

#include "msgstore/store/folder_rows.h"
#include "msgstore/store/message_rows.h"
#include "msgstore/store/store_core.h"

namespace quorvane {

// All work within a transaction that writes.

// A folder right below another. MAPI_E_NOT_FOUND: there is none such there.
[[nodiscard]] HRESULT FindFolderBelow(SqliteConnection& connection, std::int64_t parentId, const EntryId& id,
                                      FolderRow& row);
// The same of one that may leave its place: MAPI_E_NO_ACCESS: it's one that every store has.
[[nodiscard]] HRESULT FindMovableFolder(SqliteConnection& connection, std::int64_t parentId,
                                        const EntryId& id, FolderRow& row);
// Whether a folder can take something in. MAPI_E_OBJECT_DELETED: there is no such folder; MAPI_E_NO_ACCESS:
// it's one that searches.
[[nodiscard]] HRESULT CheckTakesIn(SqliteConnection& connection, std::int64_t folderId);

// Puts a folder from below the one folder below the other, as `name`, or with an empty one as it is called.
//
// As FindMovableFolder; MAPI_E_OBJECT_DELETED: the other is gone; MAPI_E_COLLISION, MAPI_E_FOLDER_CYCLE as
// MoveFolderRow.
[[nodiscard]] HRESULT MoveFolderBelow(SqliteConnection& connection, std::int64_t fromFolder,
                                      const EntryId& id, std::int64_t toFolder, const std::string& name);

// Those below do a step of a long work (StoreCore::WriteInSteps). S_FALSE: there is more to do.

// Deletes all messages, also the associated ones if wanted, and all folders below, with what is in them.
[[nodiscard]] HRESULT EmptyFolderRows(SqliteConnection& connection, std::int64_t folderId,
                                      bool withAssociated, const StepTime& time);

// What is done to one message, by its number. The first failure of one ends the step.
using MessageWork = std::function<HRESULT(SqliteConnection&, std::int64_t)>;

// How far a work on listed messages has come.
struct ListProgress {
    ULONG next = 0;        // the first of the list that isn't done with
    bool partial = false;  // some aren't in the folder
};

// Does something to each of the listed messages that are in the folder.
[[nodiscard]] HRESULT WorkOnListed(SqliteConnection& connection, const ObjectGuid& store,
                                   std::int64_t folderId, const ENTRYLIST& list, const MessageWork& work,
                                   const StepTime& time, ListProgress& progress);
// The same to each ordinary or associated message of a folder, the oldest first.
//
// last  [in,out]  the number of the last one that is done with; 0 at first.
[[nodiscard]] HRESULT WorkOnAll(SqliteConnection& connection, std::int64_t folderId, bool associated,
                                const MessageWork& work, const StepTime& time, std::int64_t& last);

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
