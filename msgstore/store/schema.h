// msgstore/store/schema.h: the tables of a store's file (docs/message-store.md).
#ifndef QUORVANE_MSGSTORE_STORE_SCHEMA_H_
#define QUORVANE_MSGSTORE_STORE_SCHEMA_H_

#include "msgstore/store/entry_id.h"
#include "msgstore/store/sqlite_connection.h"

namespace quorvane {

// The folders that every store is made with, by the numbers that the file has for them.
enum class FolderRole : std::int64_t {
    None = 0,
    Root = 1,
    IpmSubtree = 2,
    Inbox = 3,
    Outbox = 4,
    SentItems = 5,
    DeletedItems = 6,
};

// Settings of a connection that writes: write-ahead log, and each commit on the disk before it returns.
[[nodiscard]] HRESULT ConfigureWriter(SqliteConnection& connection) noexcept;

// Makes the tables and the first folders in a file that has none yet; changes nothing in one that has them.
// Processes that do it at once wait for each other.
//
// S_OK; MAPI_E_CORRUPT_STORE: the file is no database, or one of another kind; MAPI_E_VERSION: of a later
// version.
[[nodiscard]] HRESULT CreateSchema(SqliteConnection& connection) noexcept;

// S_OK: the file is a store of this version. Else as CreateSchema.
[[nodiscard]] HRESULT CheckSchema(SqliteConnection& connection) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_STORE_SCHEMA_H_
