#include "msgstore/store/store_rows.h"

#include "msgstore/store/property_rows.h"

namespace quorvane {

HRESULT ReadShortTermIds(SqliteConnection& connection, bool& shortTermIds)
{
    SqliteRows rows = connection.Query("SELECT short_term_ids FROM store");
    shortTermIds = rows.Next() && rows.Int64(0) != 0;
    return rows.Result();
}

HRESULT ReadStoreProperties(SqliteConnection& connection, PropertyBag& properties)
{
    SqliteRows rows = connection.Query("SELECT properties FROM store");
    if (!rows.Next())
        return FAILED(rows.Result()) ? rows.Result() : MAPI_E_CORRUPT_STORE;
    return DecodeProperties(rows.Bytes(0).data(), rows.Bytes(0).size(), properties);
}

HRESULT WriteShortTermIds(SqliteConnection& connection, bool shortTermIds)
{
    return connection.Run("UPDATE store SET short_term_ids=?", shortTermIds);
}

HRESULT WriteStoreProperties(SqliteConnection& connection, const PropertyBag& properties)
{
    Bytes bytes;
    QV_RETURN_IF_FAILED(EncodeWhole(properties, bytes));
    return connection.Run("UPDATE store SET properties=?", bytes);
}

HRESULT TouchStore(SqliteConnection& connection)
{
    return connection.Run("UPDATE store SET flushes=flushes+1");
}

}  // namespace quorvane
