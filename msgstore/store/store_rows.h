// msgstore/store/store_rows.h: the one row of the store itself.
#ifndef QUORVANE_MSGSTORE_STORE_STORE_ROWS_H_
#define QUORVANE_MSGSTORE_STORE_STORE_ROWS_H_

#include "msgstore/props/property_bag.h"
#include "msgstore/store/sqlite_connection.h"

namespace quorvane {

// Whether contents tables hand out short-term identifiers.
[[nodiscard]] HRESULT ReadShortTermIds(SqliteConnection& connection, bool& shortTermIds);

[[nodiscard]] HRESULT ReadStoreProperties(SqliteConnection& connection, PropertyBag& properties);

// Within a transaction that writes.
[[nodiscard]] HRESULT WriteShortTermIds(SqliteConnection& connection, bool shortTermIds);
[[nodiscard]] HRESULT WriteStoreProperties(SqliteConnection& connection, const PropertyBag& properties);
// Changes nothing that anyone sees, so that there is something to commit.
[[nodiscard]] HRESULT TouchStore(SqliteConnection& connection);

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_STORE_STORE_ROWS_H_
