// msgstore/store/folder_copy.h: copies of folders with what is in them, and moves to another store.
#ifndef QUORVANE_MSGSTORE_STORE_FOLDER_COPY_H_
#define QUORVANE_MSGSTORE_STORE_FOLDER_COPY_H_

#include <string>

#include "msgstore/store/entry_id.h"
#include "msgstore/store/store_core.h"

namespace quorvane {

// Copies a folder from below the one folder below the other, with its messages, also the associated ones, as
// `name`, or with an empty one as it is called. Others write between the steps of it; one that fails or is
// killed leaves what it has copied, each message whole.
//
// MAPI_E_NOT_FOUND: there is no such folder right below the one, or the copy has gone; MAPI_E_OBJECT_DELETED:
// the other is gone; MAPI_E_NO_ACCESS: it's one that searches; MAPI_E_COLLISION: it has one of that name;
// MAPI_E_FOLDER_CYCLE: it lies in the folder.
[[nodiscard]] HRESULT CopyFolderWithin(StoreCore& core, std::int64_t fromFolder, const EntryId& id,
                                       std::int64_t toFolder, const std::string& name, bool subfolders);

struct FolderCopyOptions {
    bool subfolders = false;
    bool move = false;  // with all that is in it
};

// The same to a folder of any other store. A moved message goes when its copy is saved, and a moved folder
// when nothing is left in it: what comes meanwhile stays with it.
//
// S_OK; MAPI_W_PARTIAL_COMPLETION: something was not copied, and if it was to be moved it's still there. The
// first failure of the other store ends it and is returned.
[[nodiscard]] HRESULT CopyFolderTo(IMAPIFolder& from, const Bytes& id, IMAPIFolder& to, const OleString& name,
                                   const FolderCopyOptions& options);

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_STORE_FOLDER_COPY_H_
