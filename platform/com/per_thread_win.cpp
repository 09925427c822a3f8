#include <new>

#include "platform/com/per_thread.h"

namespace quorvane::detail {

// Fibre-local storage: a thread that makes no fibres is one fibre, and unlike the thread-local kind this one
// tells of the end.
ThreadSlot::ThreadSlot(Destroy destroy) : destroy_(destroy), slot_(FlsAlloc(destroy))
{
    if (slot_ == FLS_OUT_OF_INDEXES)
        throw std::bad_alloc();
}

ThreadSlot::~ThreadSlot()
{
    FlsFree(slot_);
}

void* ThreadSlot::Get() const noexcept
{
    return FlsGetValue(slot_);
}

void ThreadSlot::Set(void* value)
{
    if (!FlsSetValue(slot_, value))
        throw std::bad_alloc();
}

}  // namespace quorvane::detail
