// host/sharing/apply_guard.h: which item the engine is applying, so that a change reported meanwhile can wait
// for its end.
//
// The engine works off one package at a time, and in it one item after the other, on whatever threads it
// likes: it tells the program of an item on a short thread, and of its end on the job's. An item that fails
// has no end of its own; there the next item, or the end of the last package, is what tells.
#ifndef QUORVANE_HOST_SHARING_APPLY_GUARD_H_
#define QUORVANE_HOST_SHARING_APPLY_GUARD_H_

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>

namespace quorvane::host {

// Any thread.
class ApplyGuard {
public:
    // The item in hand. `turn` tells it from the same item applied once more.
    struct Item {
        std::string id;  // empty: none is in hand
        std::string folderId;
        std::uint64_t turn = 0;
    };

    // The engine is about to apply an item, and has done with the one before.
    void Begin(const std::string& id, const std::string& folderId);

    // No item is in hand any more.
    void End();

    Item InHand() const;

    // Waits for the end of an item that was in hand; for `patience` at most, should the end never be told.
    // False if it wasn't.
    bool AwaitEnd(const Item& item, std::chrono::milliseconds patience) const;

private:
    mutable std::mutex mutex_;
    mutable std::condition_variable ended_;
    Item inHand_;
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_SHARING_APPLY_GUARD_H_
