// platform/com/mutex.h: locks that clang's thread-safety analysis understands.
#ifndef QUORVANE_PLATFORM_COM_MUTEX_H_
#define QUORVANE_PLATFORM_COM_MUTEX_H_

#include <chrono>
#include <condition_variable>
#include <mutex>

#if defined(__clang__)
#define QV_THREAD_ANNOTATION_(x) __attribute__((x))
#else
#define QV_THREAD_ANNOTATION_(x)
#endif

// On a type: it is a lock, or a scope that holds one.
#define QV_CAPABILITY(name) QV_THREAD_ANNOTATION_(capability(name))
#define QV_SCOPED_CAPABILITY QV_THREAD_ANNOTATION_(scoped_lockable)
// On a field: it (or what it points at) is touched under this lock only.
#define QV_GUARDED_BY(lock) QV_THREAD_ANNOTATION_(guarded_by(lock))
#define QV_PT_GUARDED_BY(lock) QV_THREAD_ANNOTATION_(pt_guarded_by(lock))
// On a function: the caller holds the locks; must not hold them; the function takes or leaves them.
#define QV_REQUIRES(...) QV_THREAD_ANNOTATION_(requires_capability(__VA_ARGS__))
#define QV_EXCLUDES(...) QV_THREAD_ANNOTATION_(locks_excluded(__VA_ARGS__))
#define QV_ACQUIRE(...) QV_THREAD_ANNOTATION_(acquire_capability(__VA_ARGS__))
#define QV_RELEASE(...) QV_THREAD_ANNOTATION_(release_capability(__VA_ARGS__))
#define QV_TRY_ACQUIRE(...) QV_THREAD_ANNOTATION_(try_acquire_capability(__VA_ARGS__))
#define QV_ACQUIRED_BEFORE(...) QV_THREAD_ANNOTATION_(acquired_before(__VA_ARGS__))
#define QV_ACQUIRED_AFTER(...) QV_THREAD_ANNOTATION_(acquired_after(__VA_ARGS__))
#define QV_RETURN_CAPABILITY(lock) QV_THREAD_ANNOTATION_(lock_returned(lock))
#define QV_NO_THREAD_SAFETY_ANALYSIS QV_THREAD_ANNOTATION_(no_thread_safety_analysis)

namespace quorvane {

// A lock that its holder may not take a second time.
class QV_CAPABILITY("mutex") Mutex {
public:
    Mutex() noexcept = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    void Lock() QV_ACQUIRE() { native_.lock(); }
    void Unlock() QV_RELEASE() { native_.unlock(); }
    bool TryLock() QV_TRY_ACQUIRE(true) { return native_.try_lock(); }

private:
    friend class ConditionVariable;
    std::mutex native_;
};

// A lock that its holder may take again; it is free after as many unlocks. What a critical section is on
// Windows.
class QV_CAPABILITY("mutex") RecursiveMutex {
public:
    RecursiveMutex() noexcept = default;
    RecursiveMutex(const RecursiveMutex&) = delete;
    RecursiveMutex& operator=(const RecursiveMutex&) = delete;

    void Lock() QV_ACQUIRE() { native_.lock(); }
    void Unlock() QV_RELEASE() { native_.unlock(); }
    bool TryLock() QV_TRY_ACQUIRE(true) { return native_.try_lock(); }

private:
    std::recursive_mutex native_;
};

// Holds a lock to the end of a scope, or until Unlock.
template <class Lockable>
class QV_SCOPED_CAPABILITY ScopedLock {
public:
    explicit ScopedLock(Lockable& lock) QV_ACQUIRE(lock) : lock_(lock) { lock_.Lock(); }
    ScopedLock(const ScopedLock&) = delete;
    ScopedLock& operator=(const ScopedLock&) = delete;
    ~ScopedLock() QV_RELEASE()
    {
        if (held_)
            lock_.Unlock();
    }

    void Unlock() QV_RELEASE()
    {
        held_ = false;
        lock_.Unlock();
    }
    void Lock() QV_ACQUIRE()
    {
        lock_.Lock();
        held_ = true;
    }

private:
    Lockable& lock_;
    bool held_ = true;
};

using MutexLock = ScopedLock<Mutex>;
using RecursiveMutexLock = ScopedLock<RecursiveMutex>;

// Waits for a change of what a Mutex guards. The caller holds the mutex; it is free during the wait and
// held again afterwards. A wait may end without a notification: test the condition in a loop.
class ConditionVariable {
public:
    using Clock = std::chrono::steady_clock;

    void Wait(Mutex& mutex) QV_REQUIRES(mutex)
    {
        std::unique_lock<std::mutex> lock(mutex.native_, std::adopt_lock);
        condition_.wait(lock);
        lock.release();
    }

    // False when the deadline passed first.
    bool WaitUntil(Mutex& mutex, Clock::time_point deadline) QV_REQUIRES(mutex)
    {
        std::unique_lock<std::mutex> lock(mutex.native_, std::adopt_lock);
        const bool notified = condition_.wait_until(lock, deadline) == std::cv_status::no_timeout;
        lock.release();
        return notified;
    }

    void NotifyOne() noexcept { condition_.notify_one(); }
    void NotifyAll() noexcept { condition_.notify_all(); }

private:
    std::condition_variable condition_;
};

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_COM_MUTEX_H_
