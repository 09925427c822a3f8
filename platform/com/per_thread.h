// platform/com/per_thread.h: PerThread<T>, an object of each thread's own that goes with its thread.
//
// Stands for a thread_local variable whose type has a destructor: at the end of a thread MinGW's run-time
// library frees the storage of such a variable before it runs the destructor.
#ifndef QUORVANE_PLATFORM_COM_PER_THREAD_H_
#define QUORVANE_PLATFORM_COM_PER_THREAD_H_

#include <cstdint>
#include <memory>

#include "platform/com/com.h"

namespace quorvane {

namespace detail {

// One pointer for each thread, null at first.
class ThreadSlot {
public:
    using Destroy = void(STDMETHODCALLTYPE*)(void* value);

    // `destroy` is called at the end of a thread with its pointer, if that isn't null. Throws std::bad_alloc
    // when the system has no slot left.
    explicit ThreadSlot(Destroy destroy);
    ThreadSlot(const ThreadSlot&) = delete;
    ThreadSlot& operator=(const ThreadSlot&) = delete;
    // Destroys the calling thread's value; others' too on Windows, nobody's else elsewhere.
    ~ThreadSlot();

    void* Get() const noexcept;
    // Throws std::bad_alloc; the pointer stays as it was.
    void Set(void* value);

private:
    [[maybe_unused]] const Destroy destroy_;
    std::uint32_t slot_;
};

}  // namespace detail

// Made as a static variable. Any thread may call; each sees an object of its own.
template <class T>
class PerThread {
public:
    // Throws std::bad_alloc.
    PerThread() : slot_(&Destroy) {}

    // Null as long as the thread hasn't called Get.
    T* Find() const noexcept { return static_cast<T*>(slot_.Get()); }
    // Made at the first call. Throws std::bad_alloc, and what T's constructor throws.
    T& Get()
    {
        if (T* const found = Find())
            return *found;
        auto made = std::make_unique<T>();
        slot_.Set(made.get());
        return *made.release();
    }

private:
    static void STDMETHODCALLTYPE Destroy(void* value) { delete static_cast<T*>(value); }

    detail::ThreadSlot slot_;
};

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_COM_PER_THREAD_H_
