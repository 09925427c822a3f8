#include "engine/session/context/notification_gate.h"

#include <new>

#include "engine/session/trace/trace.h"

namespace quorvane {

std::shared_ptr<NotificationGate> NotificationGate::Create() noexcept
{
    try {
        std::shared_ptr<NotificationGate> gate(new NotificationGate);
        return SUCCEEDED(gate->empty_.Create(true)) ? gate : nullptr;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

bool NotificationGate::Enter() noexcept
{
    const MutexLock lock(mutex_);
    if (closed_)
        return false;
    if (inside_++ == 0)
        HR_IGNORE(empty_.Reset(), "the event exists since Create");
    return true;
}

void NotificationGate::Leave() noexcept
{
    const MutexLock lock(mutex_);
    if (--inside_ == 0)
        HR_IGNORE(empty_.Set(), "the event exists since Create");
}

void NotificationGate::CloseAndWait() noexcept
{
    {
        const MutexLock lock(mutex_);
        closed_ = true;
    }
    WaitUntilEmpty();
}

void NotificationGate::WaitUntilEmpty() const noexcept
{
    empty_.Wait(kForever, WaitMode::KeepQueueAlive);
}

}  // namespace quorvane
