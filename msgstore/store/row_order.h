// msgstore/store/row_order.h: the rows of a table in their order, with the cursor and the bookmarks among
// them.
//
// The cursor and bookmarks stand before a row, or at the end, and stay with their row when others come and
// go. Value semantics; no lock.
#ifndef QUORVANE_MSGSTORE_STORE_ROW_ORDER_H_
#define QUORVANE_MSGSTORE_STORE_ROW_ORDER_H_

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "msgstore/table/restriction.h"

namespace quorvane {

// A row of a table: the number of its object, and the values that the table is sorted by.
struct OrderedRow {
    std::int64_t id = 0;
    PropertyBag keys;
};

class RowOrder {
public:
    std::size_t size() const noexcept { return rows_.size(); }
    std::int64_t IdAt(std::size_t index) const noexcept { return rows_[index].id; }
    std::optional<std::size_t> IndexOf(std::int64_t id) const noexcept;

    // Sorts by the columns, then by number. Without columns by number alone.
    void SetSort(std::vector<SortColumn> columns) { columns_ = std::move(columns); }
    const std::vector<SortColumn>& Sort() const noexcept { return columns_; }

    // Takes other rows in any order; cursor and bookmarks stay with their rows, or, where those are gone,
    // near.
    void Replace(std::vector<OrderedRow> rows);
    // The same for a table that begins anew: the cursor at the beginning, no bookmarks.
    void Restart(std::vector<OrderedRow> rows);

    std::size_t Insert(OrderedRow row);
    void Erase(std::size_t index);
    // The values that the row is sorted by have become others.
    void Update(std::size_t index, PropertyBag keys);

    std::size_t Cursor() const noexcept { return cursor_.index; }
    void SetCursor(std::size_t index) noexcept { cursor_ = {index, false}; }

    // Marks the cursor's place.
    BOOKMARK CreateBookmark();
    // False: there is no such bookmark.
    bool FreeBookmark(BOOKMARK bookmark);
    // Where a bookmark stands: one made here or a predefined one. `lost`: its row is gone, and it stands
    // before the row that followed. False: there is no such bookmark.
    bool Find(BOOKMARK bookmark, std::size_t& index, bool& lost) const;

private:
    struct Place {
        std::size_t index = 0;
        bool lost = false;
    };

    bool Less(const OrderedRow& a, const OrderedRow& b) const;
    void SortRows();
    template <class Action>
    void ForEachPlace(Action action);

    std::vector<SortColumn> columns_;
    std::vector<OrderedRow> rows_;
    Place cursor_;
    std::map<BOOKMARK, Place> bookmarks_;
    BOOKMARK nextBookmark_ = BOOKMARK_END + 1;
};

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_STORE_ROW_ORDER_H_
