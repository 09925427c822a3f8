// platform/com/wakeup.h: what a thread sleeps on, off Windows, while it waits for any of several things.
//
// Whoever waits for a condition that other threads bring about (an event, the return of a call, a call
// in the apartment's queue) takes the thread's own Wakeup, leaves it with everything that can make the
// condition true, and then sleeps between tests. A signal that comes between test and sleep is kept.
#ifndef QUORVANE_PLATFORM_COM_WAKEUP_H_
#define QUORVANE_PLATFORM_COM_WAKEUP_H_

#include <memory>

#include "platform/com/mutex.h"

namespace quorvane {

class Wakeup {
public:
    using Clock = ConditionVariable::Clock;

    // The calling thread's. It may be kept beyond the thread's end. Throws std::bad_alloc at a thread's
    // first call.
    static std::shared_ptr<Wakeup> OfThisThread();

    // Any thread: ends the present sleep, or the next one at once.
    void Signal() noexcept;

    // The owning thread: sleeps until signalled or `deadline`. False when the deadline passed first. All
    // signals so far are spent. After anything else ran on the thread, test the condition again first.
    bool SleepUntil(Clock::time_point deadline) noexcept;

private:
    Mutex mutex_;
    ConditionVariable changed_;
    bool signalled_ QV_GUARDED_BY(mutex_) = false;
};

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_COM_WAKEUP_H_
