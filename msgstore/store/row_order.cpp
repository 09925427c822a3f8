#include "msgstore/store/row_order.h"

#include <algorithm>
#include <unordered_map>

namespace quorvane {

template <class Action>
void RowOrder::ForEachPlace(Action action)
{
    action(cursor_);
    for (auto& [bookmark, place] : bookmarks_)
        action(place);
}

void RowOrder::Replace(const std::vector<std::int64_t>& ids)
{
    std::vector<std::int64_t> before;
    ForEachPlace([&](Place& place) { before.push_back(place.index < size() ? IdAt(place.index) : 0); });
    const std::size_t oldSize = size();
    rows_ = RowIds(ids);

    std::unordered_map<std::int64_t, std::size_t> indexOf;
    for (const std::int64_t id : before)
        indexOf.emplace(id, SIZE_MAX);
    for (std::size_t i = 0; i < ids.size(); ++i) {
        const auto wanted = indexOf.find(ids[i]);
        if (wanted != indexOf.end())
            wanted->second = i;
    }
    auto id = before.begin();
    ForEachPlace([&](Place& place) {
        const std::size_t found = indexOf.find(*id++)->second;
        if (found != SIZE_MAX) {
            place.index = found;
        } else {
            place.lost = place.lost || place.index < oldSize;
            place.index = place.index < oldSize ? std::min(place.index, size()) : size();
        }
    });
}

void RowOrder::Restart(const std::vector<std::int64_t>& ids)
{
    rows_ = RowIds(ids);
    cursor_ = {};
    bookmarks_.clear();
}

void RowOrder::Insert(std::size_t index, std::int64_t id)
{
    const std::size_t oldSize = size();
    rows_.Insert(index, id);
    // A place at the end comes to stand before what is added there: to a reader that is news.
    ForEachPlace([&](Place& place) {
        if (place.index > index || (place.index == index && place.index < oldSize))
            ++place.index;
    });
}

void RowOrder::Erase(std::size_t index)
{
    rows_.Erase(index);
    ForEachPlace([&](Place& place) {
        if (place.index > index)
            --place.index;
        else if (place.index == index)
            place.lost = true;
    });
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
