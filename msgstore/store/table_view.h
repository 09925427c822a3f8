// msgstore/store/table_view.h: a table of the store that follows its folder.
//
// A view reads the changes since it last looked at every call, and so does its subscription: what a sink is
// told is exactly how the rows that calls give changed.
//
// Threading: any thread may call; one lock a view, under which the store is read and nobody is called.
#ifndef QUORVANE_MSGSTORE_STORE_TABLE_VIEW_H_
#define QUORVANE_MSGSTORE_STORE_TABLE_VIEW_H_

#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "msgstore/store/categories.h"
#include "msgstore/store/notification_hub.h"
#include "msgstore/store/row_order.h"
#include "msgstore/store/table_source.h"

namespace quorvane {

// How a table is sorted.
struct TableOrder {
    std::vector<SortColumn> columns;
    std::size_t categories = 0;  // so many of the first columns make them
    std::size_t expanded = 0;    // to begin with, the outermost first
};

class PendingEvents;
class TableEvents;

class TableView final : public std::enable_shared_from_this<TableView> {
public:
    // unicode  how text is given out that the caller didn't name a type for.
    TableView(std::shared_ptr<StoreCore> core, std::unique_ptr<TableSource> source, bool unicode);
    ~TableView();

    const std::shared_ptr<StoreCore>& Core() const noexcept { return core_; }

    // The methods of IMAPITable; parameters have been checked.
    void SetColumns(std::vector<ULONG> columns);
    std::vector<ULONG> Columns();
    std::vector<ULONG> AllColumns() const;
    [[nodiscard]] HRESULT CountRows(ULONG& count);
    [[nodiscard]] HRESULT SeekRow(BOOKMARK origin, LONG count, LONG& sought);
    [[nodiscard]] HRESULT SeekFraction(ULONG numerator, ULONG denominator);
    [[nodiscard]] HRESULT QueryPosition(ULONG& row, ULONG& count);
    [[nodiscard]] HRESULT FindRow(const Restriction& restriction, BOOKMARK origin, bool backward);
    [[nodiscard]] HRESULT Restrict(std::shared_ptr<const Restriction> restriction);
    // order  how the rows are sorted, and how many of its columns make categories, so many of them expanded.
    // MAPI_E_TOO_COMPLEX: the table has no categories.
    [[nodiscard]] HRESULT Sort(TableOrder order);
    TableOrder Order();
    // The heading with that instance key. MAPI_E_NOT_FOUND: there is none.
    //
    // most  [in]   the most of the rows that come up that are given, which the cursor then stands behind
    // more  [out]  how many others came up
    [[nodiscard]] HRESULT Expand(ByteView key, std::size_t most, LPSRowSet* rows, ULONG& more);
    [[nodiscard]] HRESULT Collapse(ByteView key, ULONG& gone);
    // As Categories have it. MAPI_E_NO_SUPPORT: there are no categories; MAPI_E_NOT_FOUND: the key is of no
    // row.
    [[nodiscard]] HRESULT SaveCollapsed(ByteView key, Bytes& state);
    // bookmark  [out]  at the row that was meant, or at the beginning
    [[nodiscard]] HRESULT LoadCollapsed(ByteView state, BOOKMARK& bookmark);
    [[nodiscard]] HRESULT CreateBookmark(BOOKMARK& bookmark);
    [[nodiscard]] HRESULT FreeBookmark(BOOKMARK bookmark);
    // count  the most rows; negative: those before the cursor.
    [[nodiscard]] HRESULT QueryRows(LONG count, bool advance, LPSRowSet* rows);

    // What happens to the rows from now on, for one subscription.
    [[nodiscard]] HRESULT MakeEvents(std::shared_ptr<EventSource>& events);

private:
    friend class TableEvents;
    using Work = std::function<HRESULT(SqliteConnection&)>;

    // Runs with the rows brought up to date.
    [[nodiscard]] HRESULT WithRows(const Work& work);
    [[nodiscard]] HRESULT CatchUp(SqliteConnection& connection) QV_REQUIRES(lock_);
    [[nodiscard]] HRESULT Reload(SqliteConnection& connection) QV_REQUIRES(lock_);
    // Takes another query, and the rows that meet it; on failure all stays.
    [[nodiscard]] HRESULT Ask(SqliteConnection& connection, TableQuery query,
                              std::unique_ptr<Categories> categories) QV_REQUIRES(lock_);
    // The rows that a query shows, headings among them, for a table that has categories.
    [[nodiscard]] HRESULT List(SqliteConnection& connection, const TableQuery& query, Categories* categories,
                               std::vector<std::int64_t>& rows) const;
    std::unique_ptr<RowReader> MakeReader(SqliteConnection& connection) QV_REQUIRES(lock_);
    bool Affects(const std::vector<Change>& changes) const;
    // Shows what there is to show now that headings are expanded or collapsed.
    [[nodiscard]] HRESULT Rearrange(SqliteConnection& connection) QV_REQUIRES(lock_);
    [[nodiscard]] HRESULT FindHeading(ByteView key, std::int64_t& id) QV_REQUIRES(lock_);
    [[nodiscard]] HRESULT GiveRows(SqliteConnection& connection, std::size_t from, std::size_t to,
                                   LPSRowSet* rows) QV_REQUIRES(lock_);

    // A row that changed, as it is now.
    struct ChangedRow {
        std::int64_t id = 0;
        bool belongs = false;  // to the table
        bool wasThere = false;
        bool stands = false;  // in the order, at its place
        PropertyBag values;   // that it's sorted by
    };
    [[nodiscard]] HRESULT ApplyChanges(RowReader& reader, const std::vector<Change>& changes)
        QV_REQUIRES(lock_);
    [[nodiscard]] HRESULT Judge(RowReader& reader, ChangedRow& row) QV_REQUIRES(lock_);
    // Takes out of the order what has no place there any more, or another one.
    [[nodiscard]] HRESULT TakeOut(RowReader& reader, std::vector<ChangedRow>& rows) QV_REQUIRES(lock_);
    [[nodiscard]] HRESULT PutIn(RowReader& reader, ChangedRow& row) QV_REQUIRES(lock_);
    // How a row compares with the one at a place: negative, zero for the row itself, positive.
    [[nodiscard]] HRESULT CompareWith(RowReader& reader, const ChangedRow& row, std::size_t index, int& order)
        QV_REQUIRES(lock_);
    std::optional<std::size_t> IndexOf(std::int64_t id) QV_REQUIRES(lock_);
    // Where a row stands or belongs: behind those that compare less.
    [[nodiscard]] HRESULT FindPlace(RowReader& reader, const ChangedRow& row, std::size_t& index)
        QV_REQUIRES(lock_);
    [[nodiscard]] HRESULT FindFrom(SqliteConnection& connection, const Restriction& restriction,
                                   std::size_t from, bool backward, std::optional<std::size_t>& found)
        QV_REQUIRES(lock_);
    [[nodiscard]] HRESULT FindNear(RowReader& reader, const Restriction& restriction, std::size_t from,
                                   bool backward, std::size_t steps, std::optional<std::size_t>& found)
        QV_REQUIRES(lock_);
    [[nodiscard]] HRESULT FindFar(RowReader& reader, const std::vector<std::int64_t>& matches,
                                  std::size_t from, bool backward, std::optional<std::size_t>& found)
        QV_REQUIRES(lock_);
    [[nodiscard]] HRESULT Collect(TableEvents& events, NotificationBatch& batch);
    [[nodiscard]] HRESULT AddRowEvents(SqliteConnection& connection, const PendingEvents& pending,
                                       NotificationBatch& batch) QV_REQUIRES(lock_);
    void Tell(ULONG event, std::int64_t id) QV_REQUIRES(lock_);
    void Forget(const TableEvents& events) noexcept;

    const std::shared_ptr<StoreCore> core_;
    const std::unique_ptr<TableSource> source_;
    const bool unicode_;

    Mutex lock_;
    std::vector<ULONG> columns_ QV_GUARDED_BY(lock_);
    TableQuery query_ QV_GUARDED_BY(lock_);
    std::unique_ptr<Categories> categories_ QV_GUARDED_BY(lock_);  // null: none
    RowOrder rows_ QV_GUARDED_BY(lock_);
    bool loaded_ QV_GUARDED_BY(lock_) = false;
    bool torn_ QV_GUARDED_BY(lock_) =
        false;  // following changes failed in the midst: the rows are to be read anew
    std::int64_t lastChange_ QV_GUARDED_BY(lock_) = 0;
    // Each belongs to a subscription, which leaves the list when it ends.
    std::vector<TableEvents*> events_ QV_GUARDED_BY(lock_);
};

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_STORE_TABLE_VIEW_H_
