// msgstore/table/rows_table.h: IMAPITable over rows in memory.
#ifndef QUORVANE_MSGSTORE_TABLE_ROWS_TABLE_H_
#define QUORVANE_MSGSTORE_TABLE_ROWS_TABLE_H_

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "msgstore/table/restriction.h"
#include "msgstore/util/memory.h"
#include "platform/com/com_object.h"

namespace quorvane {

// What a table hands its subscriptions to.
class TableAdvisor {
public:
    virtual ~TableAdvisor() = default;
    [[nodiscard]] virtual HRESULT Advise(ULONG eventMask, IMAPIAdviseSink* sink,
                                         ULONG& connection) noexcept = 0;
    [[nodiscard]] virtual HRESULT Unadvise(ULONG connection) noexcept = 0;
};

struct RowsTableOptions {
    // The columns until SetColumns. Empty: every property that any of the rows has, in ascending order.
    std::vector<ULONG> columns;
    // False: text of columns that were set as PT_UNSPECIFIED, and of the initial columns, is given out as
    // PT_STRING8; true: as PT_UNICODE (MAPI_UNICODE of the call that made the table).
    bool unicode = false;
    MapiAllocator allocator;
    // The size of a single value above which its column holds an error.
    std::uint64_t valueLimit = kListedValueLimit;
    // Null: Advise gives MAPI_E_NO_SUPPORT.
    std::shared_ptr<TableAdvisor> advisor;
    // If set, asked for all rows anew when the cursor is put to the beginning, and at Restrict and
    // SortTable; so the table follows its object. Called under the table's lock; a failure is returned
    // by the method. Not set: the rows stay as given.
    std::function<HRESULT(std::vector<PropertyBag>& rows)> refresh;
};

// A table of the given rows. Values above 255 characters or bytes aren't cut. QueryRows gives a property
// that a row lacks as PT_ERROR with MAPI_E_NOT_FOUND. No categories. Any thread may call.
//
// S_OK; E_OUTOFMEMORY and null.
[[nodiscard]] HRESULT MakeRowsTable(std::vector<PropertyBag> rows, RowsTableOptions options,
                                    IMAPITable** table) noexcept;

// Gives one row out with the columns asked for, as every table of this store does.
//
// row    [out]  a chain of its own, to be freed by FreeProws; untouched on failure.
// limit         the size of a single value above which its column holds an error.
[[nodiscard]] HRESULT MakeRow(const PropertyLookup& values, const std::vector<ULONG>& columns, bool unicode,
                              const MapiAllocator& allocator, SRow& row,
                              std::uint64_t limit = kListedValueLimit) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_TABLE_ROWS_TABLE_H_
