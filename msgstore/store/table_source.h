// msgstore/store/table_source.h: what a table of the store shows.
#ifndef QUORVANE_MSGSTORE_STORE_TABLE_SOURCE_H_
#define QUORVANE_MSGSTORE_STORE_TABLE_SOURCE_H_

#include <memory>
#include <vector>

#include "msgstore/store/change_log.h"
#include "msgstore/store/folder_rows.h"
#include "msgstore/store/store_core.h"
#include "msgstore/table/restriction.h"

namespace quorvane {

// Reads rows one after the other, on one connection, within one transaction.
class RowReader : public PropertyLookup {
public:
    virtual ~RowReader() = default;
    // Goes to a row. S_FALSE: the table doesn't hold it.
    [[nodiscard]] virtual HRESULT MoveTo(std::int64_t id) = 0;
    // The failure of reading values since the last call; S_OK when there was none.
    [[nodiscard]] virtual HRESULT TakeFailure() noexcept = 0;
};

// Which rows a table shows, and in which order.
struct TableQuery {
    std::shared_ptr<const Restriction> restriction;  // null: all
    std::vector<SortColumn> sort;                    // then by number, and by that alone without columns
};

// The rows of a table, and their properties. Immutable; any thread may call.
class TableSource {
public:
    virtual ~TableSource() = default;
    // The numbers of the rows that a query asks for, in its order.
    [[nodiscard]] virtual HRESULT ListRows(SqliteConnection& connection, const TableQuery& query,
                                           std::vector<std::int64_t>& ids) const = 0;
    // The numbers of rows that meet a restriction, in no order, at most `limit` of them, found without
    // looking at each. S_FALSE: that can't be done.
    [[nodiscard]] virtual HRESULT ListMatches(SqliteConnection& connection, const Restriction& restriction,
                                              std::size_t limit, std::vector<std::int64_t>& ids) const = 0;
    virtual std::unique_ptr<RowReader> MakeReader(SqliteConnection& connection) const = 0;
    // Appends the rows that a change may have added, altered or removed.
    virtual void AppendAffected(const Change& change, std::vector<std::int64_t>& ids) const = 0;
    // Whether a change may have done so to every row.
    virtual bool ChangesAll(const Change&) const { return false; }
    // Whether its rows can be in categories.
    virtual bool HasCategories() const noexcept { return false; }
    // At least five, text among them as PT_UNICODE.
    virtual const std::vector<ULONG>& DefaultColumns() const noexcept = 0;
};

// The messages of a folder: the ordinary ones or the associated ones. Of one that searches: those that it
// finds.
std::unique_ptr<TableSource> MakeContentsSource(const ObjectGuid& store, const FolderRow& folder,
                                                bool associated, bool shortTermIds);

// The folders below a folder, with their depth counted from 1; only those right below unless `deep`.
std::unique_ptr<TableSource> MakeHierarchySource(const StoreCore& core, std::int64_t folderId, bool deep);

// ListRows where nothing but a reader knows the rows: of the numbers in `ids`, ascending, leaves those that
// the query asks for, in its order.
[[nodiscard]] HRESULT SelectByReading(RowReader& reader, const TableQuery& query,
                                      std::vector<std::int64_t>& ids);

// The values of the reader's row that a sort looks at.
PropertyBag SortValues(const RowReader& reader, const std::vector<SortColumn>& sort);

// PR_INSTANCE_KEY of a row, and back.
Bytes InstanceKey(std::int64_t id);
std::int64_t RowOfInstanceKey(ByteView key) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_STORE_TABLE_SOURCE_H_
