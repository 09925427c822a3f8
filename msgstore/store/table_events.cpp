#include "msgstore/store/table_events.h"

namespace quorvane {
namespace {

// What two events of one row come to; 0: nothing.
ULONG Merge(ULONG first, ULONG second) noexcept
{
    if (first == TABLE_ROW_ADDED)
        return second == TABLE_ROW_DELETED ? 0 : TABLE_ROW_ADDED;
    if (first == TABLE_ROW_DELETED)
        return second == TABLE_ROW_ADDED ? TABLE_ROW_MODIFIED : TABLE_ROW_DELETED;
    return second;
}

}  // namespace

void PendingEvents::Add(ULONG event, std::int64_t id)
{
    if (changed_)
        return;
    const auto [known, isNew] = byRow_.emplace(id, rows_.size());
    if (isNew)
        rows_.push_back({event, id});
    else
        rows_[known->second].event = Merge(rows_[known->second].event, event);
    if (rows_.size() > kMostRowEvents)
        AddChanged();
}

void PendingEvents::AddChanged() noexcept
{
    changed_ = true;
    rows_.clear();
    byRow_.clear();
}

}  // namespace quorvane
