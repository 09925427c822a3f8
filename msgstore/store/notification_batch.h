// msgstore/store/notification_batch.h: notifications with all that they point at, for one call of a sink.
#ifndef QUORVANE_MSGSTORE_STORE_NOTIFICATION_BATCH_H_
#define QUORVANE_MSGSTORE_STORE_NOTIFICATION_BATCH_H_

#include <deque>
#include <vector>

#include "msgstore/props/large_value.h"

namespace quorvane {

// Owns what its notifications point at. One thread at a time. Members that add throw std::bad_alloc.
class NotificationBatch {
public:
    NotificationBatch() noexcept = default;
    NotificationBatch(const NotificationBatch&) = delete;
    NotificationBatch& operator=(const NotificationBatch&) = delete;
    ~NotificationBatch();

    // Forgets everything.
    void Clear() noexcept;

    bool empty() const noexcept { return notifications_.empty(); }
    ULONG size() const noexcept { return static_cast<ULONG>(notifications_.size()); }
    LPNOTIFICATION Get() noexcept { return notifications_.data(); }

    // A table event.
    //
    // key    PR_INSTANCE_KEY of the row; empty for an event of the whole table.
    // prior  that of the row before it; empty at the table's beginning.
    // row    the row's columns, a chain from MAPI's allocator, which the batch takes over; may be empty.
    void AddTableEvent(ULONG event, Bytes key, Bytes prior, SRow row);

    // An object event. Empty identifiers are absent.
    void AddObjectEvent(ULONG event, ULONG kind, Bytes id, Bytes parent, Bytes oldParent);

private:
    // The bytes stay where they are as long as the batch lives.
    SBinary Keep(Bytes bytes);

    std::vector<NOTIFICATION> notifications_;
    std::deque<Bytes> bytes_;
    std::vector<LPSPropValue> rows_;
};

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_STORE_NOTIFICATION_BATCH_H_
