#include "msgstore/store/message_copy.h"

#include <map>
#include <vector>

#include "msgstore/store/property_rows.h"

namespace quorvane {
namespace {

HRESULT CopyLargeValues(SqliteConnection& connection, std::int64_t fromPart, std::int64_t toPart)
{
    std::vector<std::pair<std::int64_t, ULONG>> values;
    {
        SqliteRows rows = connection.Query("SELECT id, tag FROM large_value WHERE part_id=?", fromPart);
        while (rows.Next())
            values.emplace_back(rows.Int64(0), static_cast<ULONG>(rows.Int64(1)));
        QV_RETURN_IF_FAILED(rows.Result());
    }
    for (const auto& [value, tag] : values)
        QV_RETURN_IF_FAILED(CopyLargeValue(connection, value, toPart, tag));
    return S_OK;
}

// The parts of a message with those above them; a part's row is older than those below it.
HRESULT ListParts(SqliteConnection& connection, std::int64_t messageId,
                  std::vector<std::pair<std::int64_t, std::int64_t>>& parts)
{
    SqliteRows rows =
        connection.Query("SELECT id, parent_id FROM part WHERE message_id=? ORDER BY id", messageId);
    while (rows.Next())
        parts.emplace_back(rows.Int64(0), rows.Int64(1));
    return rows.Result();
}

}  // namespace

HRESULT DeleteParts(SqliteConnection& connection, std::int64_t messageId)
{
    constexpr std::string_view chunks =
        "DELETE FROM chunk WHERE value_id IN (SELECT v.id FROM large_value AS v JOIN part AS p ON p.id = "
        "v.part_id"
        " WHERE p.message_id=?)";
    constexpr std::string_view values =
        "DELETE FROM large_value WHERE part_id IN (SELECT id FROM part WHERE message_id=?)";
    QV_RETURN_IF_FAILED(connection.Run(chunks, messageId));
    QV_RETURN_IF_FAILED(connection.Run(values, messageId));
    return connection.Run("DELETE FROM part WHERE message_id=?", messageId);
}

HRESULT DeletePart(SqliteConnection& connection, std::int64_t partId)
{
    constexpr std::string_view tree =
        "WITH RECURSIVE below (id) AS (SELECT id FROM part WHERE id=?1 UNION ALL"
        " SELECT p.id FROM below AS b, part AS p"
        " WHERE p.message_id=(SELECT message_id FROM part WHERE id=?1) AND p.parent_id = b.id) ";
    const std::string with(tree);
    QV_RETURN_IF_FAILED(connection.Run(with + "DELETE FROM chunk WHERE value_id IN (SELECT id FROM "
                                              "large_value WHERE part_id IN (SELECT id FROM below))",
                                       partId));
    QV_RETURN_IF_FAILED(
        connection.Run(with + "DELETE FROM large_value WHERE part_id IN (SELECT id FROM below)", partId));
    return connection.Run(with + "DELETE FROM part WHERE id IN (SELECT id FROM below)", partId);
}

HRESULT CopyParts(SqliteConnection& connection, std::int64_t fromMessage, std::int64_t toMessage)
{
    std::vector<std::pair<std::int64_t, std::int64_t>> parts;
    QV_RETURN_IF_FAILED(ListParts(connection, fromMessage, parts));
    std::map<std::int64_t, std::int64_t> copies{{0, 0}};
    for (const auto& [part, parent] : parts) {
        QV_RETURN_IF_FAILED(
            connection.Run("INSERT INTO part (message_id, parent_id, number, properties, recipients)"
                           " SELECT ?, ?, number, properties, recipients FROM part WHERE id=?",
                           toMessage, copies[parent], part));
        copies[part] = connection.LastInsertId();
        QV_RETURN_IF_FAILED(CopyLargeValues(connection, part, copies[part]));
    }
    return S_OK;
}

}  // namespace quorvane
