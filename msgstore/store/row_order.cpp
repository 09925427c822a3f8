#include "msgstore/store/row_order.h"

#include <algorithm>
#include <unordered_map>

namespace quorvane {

bool RowOrder::Less(const OrderedRow& a, const OrderedRow& b) const
{
    if (!columns_.empty()) {
        const int order = CompareRows(BagLookup(a.keys), BagLookup(b.keys), columns_);
        if (order != 0)
            return order < 0;
    }
    return a.id < b.id;
}

void RowOrder::SortRows()
{
    const auto less = [this](const OrderedRow& a, const OrderedRow& b) { return Less(a, b); };
    if (!std::is_sorted(rows_.begin(), rows_.end(), less))
        std::sort(rows_.begin(), rows_.end(), less);
}

template <class Action>
void RowOrder::ForEachPlace(Action action)
{
    action(cursor_);
    for (auto& [bookmark, place] : bookmarks_)
        action(place);
}

std::optional<std::size_t> RowOrder::IndexOf(std::int64_t id) const noexcept
{
    const auto byId = [](const OrderedRow& row, std::int64_t wanted) { return row.id < wanted; };
    const auto found = columns_.empty() ? std::lower_bound(rows_.begin(), rows_.end(), id, byId)
                                        : std::find_if(rows_.begin(), rows_.end(),
                                                       [&](const auto& row) { return row.id == id; });
    if (found == rows_.end() || found->id != id)
        return std::nullopt;
    return static_cast<std::size_t>(found - rows_.begin());
}

void RowOrder::Replace(std::vector<OrderedRow> rows)
{
    std::vector<std::int64_t> before;
    ForEachPlace([&](Place& place) { before.push_back(place.index < size() ? IdAt(place.index) : 0); });
    const std::size_t oldSize = size();
    rows_ = std::move(rows);
    SortRows();

    std::unordered_map<std::int64_t, std::size_t> indexOf;
    for (std::size_t i = 0; i < rows_.size(); ++i)
        indexOf.emplace(rows_[i].id, i);
    auto id = before.begin();
    ForEachPlace([&](Place& place) {
        const auto found = indexOf.find(*id++);
        if (found != indexOf.end()) {
            place.index = found->second;
        } else {
            place.lost = place.lost || place.index < oldSize;
            place.index = place.index < oldSize ? std::min(place.index, size()) : size();
        }
    });
}

void RowOrder::Restart(std::vector<OrderedRow> rows)
{
    rows_ = std::move(rows);
    SortRows();
    cursor_ = {};
    bookmarks_.clear();
}

std::size_t RowOrder::Insert(OrderedRow row)
{
    const auto less = [this](const OrderedRow& a, const OrderedRow& b) { return Less(a, b); };
    const auto at = std::upper_bound(rows_.begin(), rows_.end(), row, less);
    const auto index = static_cast<std::size_t>(at - rows_.begin());
    const std::size_t oldSize = size();
    rows_.insert(at, std::move(row));
    // A place at the end comes to stand before what is added there: to a reader that is news.
    ForEachPlace([&](Place& place) {
        if (place.index > index || (place.index == index && place.index < oldSize))
            ++place.index;
    });
    return index;
}

void RowOrder::Erase(std::size_t index)
{
    rows_.erase(rows_.begin() + static_cast<std::ptrdiff_t>(index));
    ForEachPlace([&](Place& place) {
        if (place.index > index)
            --place.index;
        else if (place.index == index)
            place.lost = true;
    });
}

void RowOrder::Update(std::size_t index, PropertyBag keys)
{
    if (columns_.empty())
        return;
    OrderedRow row{rows_[index].id, std::move(keys)};
    const bool fitsBefore = index + 1 == size() || Less(row, rows_[index + 1]);
    const bool fitsBehind = index == 0 || Less(rows_[index - 1], row);
    if (fitsBefore && fitsBehind) {
        rows_[index] = std::move(row);
        return;
    }
    Erase(index);
    Insert(std::move(row));
}

BOOKMARK RowOrder::CreateBookmark()
{
    bookmarks_[nextBookmark_] = {cursor_.index, false};
    return nextBookmark_++;
}

bool RowOrder::FreeBookmark(BOOKMARK bookmark)
{
    return bookmarks_.erase(bookmark) != 0;
}

bool RowOrder::Find(BOOKMARK bookmark, std::size_t& index, bool& lost) const
{
    lost = false;
    if (bookmark == BOOKMARK_BEGINNING) {
        index = 0;
    } else if (bookmark == BOOKMARK_CURRENT) {
        index = cursor_.index;
    } else if (bookmark == BOOKMARK_END) {
        index = size();
    } else {
        const auto found = bookmarks_.find(bookmark);
        if (found == bookmarks_.end())
            return false;
        index = found->second.index;
        lost = found->second.lost;
    }
    return true;
}

}  // namespace quorvane
