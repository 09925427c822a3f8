// session/context/notification_gate.h: NotificationGate, which counts a session's notification batches under
// way, its cancellations, and the calls of its items.
//
// Each batch runs on a thread of its own that nobody joins. It works with the session's stores, hash stores,
// database and host, so the session must not take those away while a batch is inside. A batch enters the gate
// on MAPI's thread, before its own thread starts, and leaves as the very last thing that it does. A session
// that ends closes the gate, before it lets go of any of these, and waits for the last to leave; what arrives
// later, until the folders end their subscriptions, is turned away.
//
// Threading: any thread may call. Shared by the session and its sinks, so that a sink that MAPI still holds
// finds a closed gate instead of a session that is gone.
#ifndef QUORVANE_ENGINE_SESSION_CONTEXT_NOTIFICATION_GATE_H_
#define QUORVANE_ENGINE_SESSION_CONTEXT_NOTIFICATION_GATE_H_

#include <memory>

#include "platform/com/mutex.h"
#include "platform/event/event.h"

namespace quorvane {

class NotificationGate {
public:
    // Makes the event that the closing thread waits for; null when that or memory fails.
    static std::shared_ptr<NotificationGate> Create() noexcept;

    // False: the gate is closed, and nothing was entered. Each true is followed by one Leave.
    bool Enter() noexcept;
    void Leave() noexcept;

    // Turns further batches away and waits, without a limit, until nobody is inside. The waiting thread's
    // message queue is kept alive, as a batch may be calling a host that lives on this thread. Must not be
    // called by a thread that is inside: a host may not end its session from within a callback.
    void CloseAndWait() noexcept;
    // The same wait with the gate left open: whoever was inside has left, others may have come since.
    void WaitUntilEmpty() const noexcept;

private:
    NotificationGate() noexcept = default;

    Mutex mutex_;
    bool closed_ QV_GUARDED_BY(mutex_) = false;
    unsigned inside_ QV_GUARDED_BY(mutex_) = 0;
    Event empty_;
};

// One passage through the gate, left when the object goes.
class GatePass {
public:
    GatePass() noexcept = default;
    // Holds a pass only if the gate let it in. A null gate lets nobody in.
    explicit GatePass(std::shared_ptr<NotificationGate> gate) noexcept
    {
        if (gate && gate->Enter())
            gate_ = std::move(gate);
    }
    GatePass(GatePass&&) noexcept = default;
    GatePass& operator=(GatePass&&) = delete;
    ~GatePass()
    {
        if (gate_)
            gate_->Leave();
    }

    bool IsHeld() const noexcept { return gate_ != nullptr; }

private:
    std::shared_ptr<NotificationGate> gate_;
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_SESSION_CONTEXT_NOTIFICATION_GATE_H_
