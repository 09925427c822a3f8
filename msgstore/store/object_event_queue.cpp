#include "msgstore/store/object_event_queue.h"

namespace quorvane {
namespace {

// Folders and messages have numbers of their own each.
std::int64_t KeyOf(const Change& change) noexcept
{
    return change.objectId * 2 + (change.kind == MAPI_FOLDER ? 1 : 0);
}

bool IsComing(ULONG event) noexcept
{
    return (event & (fnevObjectCreated | fnevObjectCopied)) != 0;
}

void MergeMove(Change& entry, const Change& move) noexcept
{
    const std::int64_t from = (entry.event & fnevObjectMoved) != 0 ? entry.oldParentId : move.oldParentId;
    entry.event |= fnevObjectMoved;
    entry.parentId = move.parentId;
    entry.oldParentId = from;
    if (entry.parentId != from)
        return;
    entry.event = fnevObjectModified;  // it is back where it was
    entry.oldParentId = 0;
}

void MergeInto(Change& entry, const Change& next) noexcept
{
    if (next.event == fnevObjectDeleted) {
        const bool cameAndWent = IsComing(entry.event);
        entry = next;
        if (cameAndWent)
            entry.event = 0;
    } else if (IsComing(entry.event)) {
        entry.parentId = next.parentId;
    } else if (next.event == fnevObjectMoved) {
        MergeMove(entry, next);
    } else {
        entry.event |= next.event;
        entry.parentId = next.parentId;
    }
}

}  // namespace

void ObjectEventQueue::Add(const Change& change)
{
    if (entries_.size() >= mostSingle_ && (!merging_ || nothings_ > entries_.size() / 2))
        MergeAll();
    if (merging_)
        Merge(change);
    else
        entries_.push_back(change);
}

void ObjectEventQueue::Merge(const Change& change)
{
    const auto [place, isNew] = places_.emplace(KeyOf(change), popped_ + entries_.size());
    Change* const entry = isNew ? nullptr : &entries_[place->second - popped_];
    if (entry && entry->event != 0) {
        MergeInto(*entry, change);
        nothings_ += entry->event == 0 ? 1 : 0;
        return;
    }
    try {
        entries_.push_back(change);
    } catch (...) {
        if (isNew)
            places_.erase(place);
        throw;
    }
    place->second = popped_ + entries_.size() - 1;
}

void ObjectEventQueue::MergeAll()
{
    ObjectEventQueue merged(mostSingle_);
    merged.merging_ = true;
    for (const Change& change : entries_) {
        if (change.event != 0)
            merged.Merge(change);
    }
    entries_.swap(merged.entries_);
    places_.swap(merged.places_);
    popped_ = 0;
    nothings_ = merged.nothings_;
    merging_ = true;
}

bool ObjectEventQueue::empty() noexcept
{
    while (!entries_.empty() && entries_.front().event == 0) {
        PopFront();
        --nothings_;
    }
    return entries_.empty();
}

void ObjectEventQueue::PopFront() noexcept
{
    const auto place = places_.find(KeyOf(entries_.front()));
    if (place != places_.end() && place->second == popped_)
        places_.erase(place);
    entries_.pop_front();
    ++popped_;
    if (entries_.empty())
        merging_ = false;
}

}  // namespace quorvane
