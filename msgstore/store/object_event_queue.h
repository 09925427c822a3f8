// msgstore/store/object_event_queue.h: what happened to objects that one subscription hasn't been told yet.
//
// While it is short, the queue keeps every change as it was. A long one keeps one entry an object, so that a
// sink that is too slow costs memory for the objects that changed and not for each time that they did.
#ifndef QUORVANE_MSGSTORE_STORE_OBJECT_EVENT_QUEUE_H_
#define QUORVANE_MSGSTORE_STORE_OBJECT_EVENT_QUEUE_H_

#include <cstddef>
#include <deque>
#include <unordered_map>

#include "msgstore/store/change_log.h"

namespace quorvane {

// A queue with more entries than this keeps one an object.
inline constexpr std::size_t kMostSingleEvents = 20000;

// Value semantics; no lock. Members that add may throw std::bad_alloc; the queue is then as it was.
class ObjectEventQueue {
public:
    explicit ObjectEventQueue(std::size_t mostSingle = kMostSingleEvents) : mostSingle_(mostSingle) {}

    // Adds a change behind the others. Where one entry stands for an object, it stays at its place, and what
    // it says is what a listener must hear to know the object as it is now: nothing of one that came and
    // went, its deletion alone of one that is gone, its coming alone of a new one, and else that it was moved
    // (from the first folder to the last), modified, or both.
    void Add(const Change& change);

    // Without entries that have come to nothing.
    bool empty() noexcept;
    // The oldest entry; `event` may be fnevObjectMoved | fnevObjectModified. Only of a queue that isn't
    // empty.
    const Change& Front() const noexcept { return entries_.front(); }
    void PopFront() noexcept;

private:
    void Merge(const Change& change);
    void MergeAll();

    const std::size_t mostSingle_;
    std::deque<Change> entries_;
    // Of a queue with one entry an object: where that is, counted from the first entry that there ever was.
    std::unordered_map<std::int64_t, std::size_t> places_;
    std::size_t popped_ = 0;
    std::size_t nothings_ = 0;  // entries that have come to nothing
    bool merging_ = false;
};

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_STORE_OBJECT_EVENT_QUEUE_H_
