// msgstore/store/change_log.h: what happened to the store's objects, in order, written with the changes
// themselves.
//
// Every transaction that changes an object adds a row for it, so that each process that has the store open
// finds out exactly what changed, whoever did it. Old rows are dropped; whoever is that far behind reads all
// anew.
#ifndef QUORVANE_MSGSTORE_STORE_CHANGE_LOG_H_
#define QUORVANE_MSGSTORE_STORE_CHANGE_LOG_H_

#include "msgstore/store/entry_id.h"
#include "msgstore/store/sqlite_connection.h"

namespace quorvane {

// One change of one object.
struct Change {
    std::int64_t number = 0;  // ascending over the store's whole life
    ULONG event = 0;          // fnevObjectCreated, Deleted, Modified, Moved or Copied
    ULONG kind = 0;           // MAPI_FOLDER or MAPI_MESSAGE
    std::int64_t objectId = 0;
    ObjectGuid objectGuid{};
    std::int64_t parentId = 0;     // the folder that holds, or held, the object
    std::int64_t oldParentId = 0;  // of a moved or copied object the folder that it came from; else 0
    bool isAssociated = false;
};

// Rows that are kept at least.
inline constexpr std::int64_t kKeptChanges = 20000;

// Within a transaction that writes. `change.number` is ignored.
[[nodiscard]] HRESULT AppendChange(SqliteConnection& connection, const Change& change);

// Appends the changes after number `after`, in order, at most `limit` of them.
//
// S_OK; S_FALSE: some of the changes after `after` have been dropped already; nothing was appended.
[[nodiscard]] HRESULT ReadChanges(SqliteConnection& connection, std::int64_t after, std::size_t limit,
                                  std::vector<Change>& changes);

// The number of the last change; 0 when there was none.
[[nodiscard]] HRESULT ReadLastChange(SqliteConnection& connection, std::int64_t& number);

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_STORE_CHANGE_LOG_H_
