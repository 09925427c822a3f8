// msgstore/store/message_rows.h: the rows of messages, as wholes.
#ifndef QUORVANE_MSGSTORE_STORE_MESSAGE_ROWS_H_
#define QUORVANE_MSGSTORE_STORE_MESSAGE_ROWS_H_

#include "msgstore/props/property_bag.h"
#include "msgstore/store/entry_id.h"
#include "msgstore/store/sqlite_connection.h"

namespace quorvane {

// A message's row, but for what only tables show.
struct MessageRow {
    std::int64_t id = 0;  // 0: not in the store yet
    ObjectGuid guid{};
    std::int64_t folderId = 0;
    ObjectGuid folderGuid{};
    bool isAssociated = false;
    std::int64_t version = 0;   // grows with each save, not with changes of the read state
    std::int64_t created = 0;   // FILETIME ticks
    std::int64_t modified = 0;  // likewise
    std::int64_t flags = 0;     // PR_MESSAGE_FLAGS
    std::int64_t status = 0;    // of IMAPIFolder::GetMessageStatus
    std::int64_t size = 0;      // bytes
};

// MAPI_E_NOT_FOUND: there is no such message.
[[nodiscard]] HRESULT FindMessage(SqliteConnection& connection, const EntryId& id, MessageRow& row);
[[nodiscard]] HRESULT FindMessage(SqliteConnection& connection, std::int64_t id, MessageRow& row);

// Those below work within a transaction that writes and log the change.

// Adds the row of a new message to the folder that `row` names, or brings that of an old one up to date:
// times and version of `row` are set, flags and size are taken from it. The columns that tables show come
// from the bags.
[[nodiscard]] HRESULT InsertMessageRow(SqliteConnection& connection, const PropertyBag& properties,
                                       const PropertyBag& computed, MessageRow& row);
[[nodiscard]] HRESULT UpdateMessageRow(SqliteConnection& connection, const PropertyBag& properties,
                                       const PropertyBag& computed, MessageRow& row);

// Deletes a message with all its parts. MAPI_E_NOT_FOUND.
[[nodiscard]] HRESULT DeleteMessage(SqliteConnection& connection, std::int64_t id);

// Puts a message into another folder; it keeps its identifiers and times. Its own folder: nothing happens.
[[nodiscard]] HRESULT MoveMessage(SqliteConnection& connection, std::int64_t id, std::int64_t folderId);

// Makes a copy of a message, with all its parts and its search key, in any folder.
[[nodiscard]] HRESULT CopyMessage(SqliteConnection& connection, std::int64_t id, std::int64_t folderId);

// Sets or clears MSGFLAG_READ, with a new modification time, if it isn't so already. `row` is brought up to
// date.
[[nodiscard]] HRESULT SetMessageRead(SqliteConnection& connection, std::int64_t id, bool read,
                                     MessageRow& row);

// Replaces the bits of `mask` in the message's status. `row` is as before the change.
[[nodiscard]] HRESULT SetMessageStatus(SqliteConnection& connection, std::int64_t id, ULONG status,
                                       ULONG mask, MessageRow& row);

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_STORE_MESSAGE_ROWS_H_
