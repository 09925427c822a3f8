#include <pthread.h>

#include <new>

#include "platform/com/per_thread.h"

namespace quorvane::detail {

static_assert(sizeof(pthread_key_t) <= sizeof(std::uint32_t));

ThreadSlot::ThreadSlot(Destroy destroy) : destroy_(destroy)
{
    pthread_key_t key = 0;
    if (pthread_key_create(&key, destroy) != 0)
        throw std::bad_alloc();
    slot_ = key;
}

ThreadSlot::~ThreadSlot()
{
    if (void* const value = Get())
        destroy_(value);
    pthread_key_delete(slot_);
}

void* ThreadSlot::Get() const noexcept
{
    return pthread_getspecific(slot_);
}

void ThreadSlot::Set(void* value)
{
    if (pthread_setspecific(slot_, value) != 0)
        throw std::bad_alloc();
}

}  // namespace quorvane::detail
