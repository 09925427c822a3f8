// msgstore/store/row_order.h: the rows of a table in their order, with the cursor and the bookmarks among
// them.
//
// The cursor and bookmarks stand before a row, or at the end, and stay with their row when others come and
// go. Rows are known by their numbers alone; who uses this knows what they are sorted by. Value semantics but
// for copies; no lock.
#ifndef QUORVANE_MSGSTORE_STORE_ROW_ORDER_H_
#define QUORVANE_MSGSTORE_STORE_ROW_ORDER_H_

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "msgstore/store/row_ids.h"
#include "platform/mapi/mapi.h"

namespace quorvane {

class RowOrder {
public:
    std::size_t size() const noexcept { return rows_.size(); }
    std::int64_t IdAt(std::size_t index) const noexcept { return rows_.At(index); }
    std::optional<std::size_t> IndexOf(std::int64_t id) { return rows_.IndexOf(id); }

    // Takes other rows; cursor and bookmarks stay with their rows, or, where those are gone, near.
    void Replace(const std::vector<std::int64_t>& ids);
    // The same for a table that begins anew: the cursor at the beginning, no bookmarks.
    void Restart(const std::vector<std::int64_t>& ids);

    void Insert(std::size_t index, std::int64_t id);
    void Erase(std::size_t index);

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

    template <class Action>
    void ForEachPlace(Action action);

    RowIds rows_;
    Place cursor_;
    std::map<BOOKMARK, Place> bookmarks_;
    BOOKMARK nextBookmark_ = BOOKMARK_END + 1;
};

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_STORE_ROW_ORDER_H_
