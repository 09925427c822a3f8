// msgstore/store/message_copy.h: the parts of a message, all at once.
#ifndef QUORVANE_MSGSTORE_STORE_MESSAGE_COPY_H_
#define QUORVANE_MSGSTORE_STORE_MESSAGE_COPY_H_

#include "msgstore/store/sqlite_connection.h"

namespace quorvane {

// Both work within a transaction that writes.

// Deletes the parts of a message, with their large values.
[[nodiscard]] HRESULT DeleteParts(SqliteConnection& connection, std::int64_t messageId);
// Deletes one part with the parts below it.
[[nodiscard]] HRESULT DeletePart(SqliteConnection& connection, std::int64_t partId);

// Copies the parts of a message, with their large values, to a message that has none yet.
[[nodiscard]] HRESULT CopyParts(SqliteConnection& connection, std::int64_t fromMessage,
                                std::int64_t toMessage);

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_STORE_MESSAGE_COPY_H_
