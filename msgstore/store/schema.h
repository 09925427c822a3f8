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

// Settings of a connection that writes: write-ahead log, each commit on the disk before it returns, foreign
// keys enforced; in a file without tables also that space which becomes free can be given back.
[[nodiscard]] HRESULT ConfigureWriter(SqliteConnection& connection) noexcept;

// Makes the tables and the first folders in a file that has none yet; one that has them is brought up to this
// version. Processes that do it at once wait for each other.
//
// S_OK; MAPI_E_CORRUPT_STORE: the file is no database, or one of another kind; MAPI_E_VERSION: of a later
// version.
[[nodiscard]] HRESULT CreateSchema(SqliteConnection& connection) noexcept;

// S_OK: the file is a store of this version or of an earlier one. Else as CreateSchema.
[[nodiscard]] HRESULT CheckSchema(SqliteConnection& connection) noexcept;

// Brings a store up to this version, in one transaction; changes nothing in one that is. As CreateSchema.
[[nodiscard]] HRESULT UpgradeSchema(SqliteConnection& connection) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_STORE_SCHEMA_H_
