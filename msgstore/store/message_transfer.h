// msgstore/store/message_transfer.h: copies and moves messages from a folder to another.
#ifndef QUORVANE_MSGSTORE_STORE_MESSAGE_TRANSFER_H_
#define QUORVANE_MSGSTORE_STORE_MESSAGE_TRANSFER_H_

#include "msgstore/store/store_core.h"

namespace quorvane {

// Both give MAPI_W_PARTIAL_COMPLETION when some of the listed messages aren't in the folder; the others are
// done.

// Within one store, in steps in between which others write. A moved message keeps its identifiers.
// MAPI_E_OBJECT_DELETED: the target folder is gone; MAPI_E_NO_ACCESS: it's one that searches.
[[nodiscard]] HRESULT TransferWithin(StoreCore& core, std::int64_t fromFolder, std::int64_t toFolder,
                                     const ENTRYLIST& messages, bool move);

// To a folder of any other store, message by message: a copy is saved before its original is deleted. The
// first failure ends it and is returned.
[[nodiscard]] HRESULT TransferTo(IMAPIFolder& from, IMAPIFolder& to, const ENTRYLIST& messages, bool move);

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_STORE_MESSAGE_TRANSFER_H_
