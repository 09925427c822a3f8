#include "msgstore/store/search_criteria.h"

#include <algorithm>

#include "msgstore/props/little_endian.h"

namespace quorvane {
namespace {

constexpr std::uint32_t kRecursive = 1;
constexpr std::uint32_t kForeground = 2;
constexpr std::size_t kHeaderSize = 8;

Bytes Encode(const SearchCriteria& criteria)
{
    Bytes bytes;
    AppendLittle<std::uint32_t>(
        bytes, (criteria.recursive ? kRecursive : 0) | (criteria.foreground ? kForeground : 0));
    AppendLittle(bytes, static_cast<std::uint32_t>(criteria.folders.size()));
    for (const ObjectGuid& folder : criteria.folders)
        bytes.insert(bytes.end(), folder.begin(), folder.end());
    bytes.insert(bytes.end(), criteria.restriction.begin(), criteria.restriction.end());
    return bytes;
}

HRESULT Decode(ByteView bytes, SearchCriteria& criteria)
{
    if (bytes.size() < kHeaderSize)
        return MAPI_E_CORRUPT_DATA;
    const auto flags = LoadLittle<std::uint32_t>(bytes.data());
    const auto count = LoadLittle<std::uint32_t>(bytes.data() + 4);
    bytes = bytes.subspan(kHeaderSize);
    if (count > bytes.size() / sizeof(ObjectGuid))
        return MAPI_E_CORRUPT_DATA;
    criteria.recursive = (flags & kRecursive) != 0;
    criteria.foreground = (flags & kForeground) != 0;
    criteria.folders.clear();
    for (std::uint32_t i = 0; i < count; ++i, bytes = bytes.subspan(sizeof(ObjectGuid)))
        criteria.folders.push_back(ObjectGuidOf(bytes.first(sizeof(ObjectGuid))));
    criteria.restriction.assign(bytes.begin(), bytes.end());
    return S_OK;
}

}  // namespace

HRESULT ReadSearchCriteria(SqliteConnection& connection, std::int64_t folderId, SearchCriteria& criteria)
{
    SqliteRows rows = connection.Query("SELECT search FROM folder WHERE id=?", folderId);
    if (!rows.Next())
        return FAILED(rows.Result()) ? rows.Result() : MAPI_E_OBJECT_DELETED;
    if (rows.IsNull(0))
        return MAPI_E_NO_SUPPORT;
    return rows.Bytes(0).empty() ? MAPI_E_NOT_INITIALIZED : Decode(rows.Bytes(0), criteria);
}

HRESULT WriteSearchCriteria(SqliteConnection& connection, std::int64_t folderId,
                            const SearchCriteria& criteria)
{
    QV_RETURN_IF_FAILED(connection.Run("UPDATE folder SET search=? WHERE id=?", Encode(criteria), folderId));
    return LogFolderModified(connection, folderId);
}

HRESULT ListSearchedFolders(SqliteConnection& connection, const SearchCriteria& criteria,
                            std::vector<std::int64_t>& ids)
{
    for (const ObjectGuid& guid : criteria.folders) {
        SqliteRows rows = connection.Query("SELECT id FROM folder WHERE guid=?", guid);
        if (!rows.Next()) {
            QV_RETURN_IF_FAILED(rows.Result());
            continue;
        }
        if (criteria.recursive)
            QV_RETURN_IF_FAILED(ListTree(connection, rows.Int64(0), ids));
        else
            ids.push_back(rows.Int64(0));
    }
    std::sort(ids.begin(), ids.end());
    ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
    return S_OK;
}

}  // namespace quorvane
