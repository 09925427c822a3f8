#include "msgstore/store/folder_properties.h"
#include "msgstore/store/identity.h"
#include "msgstore/store/table_source.h"

namespace quorvane {
namespace {

// Folders nested deeper than this aren't followed: the file can't make a reader go round in a ring.
constexpr LONG kDeepest = 1000;

const std::vector<ULONG> kHierarchyColumns = {
    PR_ENTRYID,        PR_INSTANCE_KEY,   PR_RECORD_KEY,    PR_DISPLAY_NAME_W,
    PR_CONTENT_COUNT,  PR_CONTENT_UNREAD, PR_SUBFOLDERS,    PR_DEPTH,
    PR_OBJECT_TYPE,    PR_FOLDER_TYPE,    PR_COMMENT_W,     PR_CONTAINER_CLASS_W,
    PR_PARENT_ENTRYID, PR_STORE_ENTRYID,  PR_CREATION_TIME, PR_LAST_MODIFICATION_TIME,
};

struct Hierarchy {
    ObjectGuid store{};
    std::int64_t folderId = 0;
    bool deep = false;
};

class HierarchyReader final : public RowReader {
public:
    HierarchyReader(SqliteConnection& connection, const Hierarchy& hierarchy) noexcept
        : connection_(connection), hierarchy_(hierarchy)
    {}

    HRESULT MoveTo(std::int64_t id) override
    {
        bag_.Clear();
        FolderRow row;
        const HRESULT found = FindFolder(connection_, id, row);
        if (found == MAPI_E_NOT_FOUND)
            return S_FALSE;
        QV_RETURN_IF_FAILED(found);
        LONG depth = 0;
        const HRESULT isBelow = FindDepth(row, depth);
        if (isBelow != S_OK)
            return isBelow;
        QV_RETURN_IF_FAILED(PutKeptFolderProperties(connection_, row, bag_));
        PutFixedFolderProperties(hierarchy_.store, row, bag_);
        QV_RETURN_IF_FAILED(PutFolderCounts(connection_, hierarchy_.store, row, bag_));
        const Bytes key = InstanceKey(id);
        bag_.Put(PropertyValue::Binary(PR_INSTANCE_KEY, key.data(), key.size()));
        bag_.Put(PropertyValue::Long(PR_DEPTH, depth));
        return S_OK;
    }

    HRESULT TakeFailure() noexcept override { return S_OK; }
    const PropertyValue* Find(ULONG tag) const override { return bag_.Find(tag); }

private:
    // S_FALSE: the folder isn't below the table's, or not right below it where that matters.
    HRESULT FindDepth(FolderRow row, LONG& depth) const
    {
        for (depth = 1; row.parentId != hierarchy_.folderId; ++depth) {
            if (!hierarchy_.deep || row.parentId == 0 || depth > kDeepest)
                return S_FALSE;
            QV_RETURN_IF_FAILED(FindFolder(connection_, row.parentId, row));
        }
        return S_OK;
    }

    SqliteConnection& connection_;
    const Hierarchy& hierarchy_;
    PropertyBag bag_;
};

class HierarchySource final : public TableSource {
public:
    explicit HierarchySource(const Hierarchy& hierarchy) noexcept : hierarchy_(hierarchy) {}

    HRESULT ListRows(SqliteConnection& connection, const TableQuery& query,
                     std::vector<std::int64_t>& ids) const override
    {
        QV_RETURN_IF_FAILED(ListAll(connection, ids));
        HierarchyReader reader(connection, hierarchy_);
        return SelectByReading(reader, query, ids);
    }

    HRESULT ListMatches(SqliteConnection&, const Restriction&, std::size_t,
                        std::vector<std::int64_t>&) const override
    {
        return S_FALSE;
    }

    std::unique_ptr<RowReader> MakeReader(SqliteConnection& connection) const override
    {
        return std::make_unique<HierarchyReader>(connection, hierarchy_);
    }

    // A message that comes or goes alters its folder's row: the counts are in it.
    void AppendAffected(const Change& change, std::vector<std::int64_t>& ids) const override
    {
        if (change.kind == MAPI_FOLDER)
            ids.push_back(change.objectId);
        ids.push_back(change.parentId);
        if (change.oldParentId != 0)
            ids.push_back(change.oldParentId);
    }

    const std::vector<ULONG>& DefaultColumns() const noexcept override { return kHierarchyColumns; }

private:
    HRESULT ListAll(SqliteConnection& connection, std::vector<std::int64_t>& ids) const
    {
        constexpr std::string_view here = "SELECT id FROM folder WHERE parent_id=? ORDER BY id";
        constexpr std::string_view below =
            "WITH RECURSIVE below (id) AS (SELECT id FROM folder WHERE parent_id=? UNION"
            " SELECT f.id FROM below AS b JOIN folder AS f ON f.parent_id = b.id) SELECT id FROM below ORDER "
            "BY id";
        SqliteRows rows = connection.Query(hierarchy_.deep ? below : here, hierarchy_.folderId);
        while (rows.Next())
            ids.push_back(rows.Int64(0));
        return rows.Result();
    }

    const Hierarchy hierarchy_;
};

}  // namespace

std::unique_ptr<TableSource> MakeHierarchySource(const StoreCore& core, std::int64_t folderId, bool deep)
{
    return std::make_unique<HierarchySource>(Hierarchy{core.Guid(), folderId, deep});
}

}  // namespace quorvane
