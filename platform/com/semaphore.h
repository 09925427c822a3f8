// platform/com/semaphore.h: how many may do something at a time.
//
// The library's own counting semaphore loses wake-ups where it can't rest on the kernel (GCC 12 on Windows).
#ifndef QUORVANE_PLATFORM_COM_SEMAPHORE_H_
#define QUORVANE_PLATFORM_COM_SEMAPHORE_H_

#include <cstddef>

#include "platform/com/mutex.h"

namespace quorvane {

// Any thread may call; who releases need not be who acquired. Who stood in line first is let in first.
class Semaphore {
public:
    explicit Semaphore(std::size_t count) noexcept : free_(count) {}
    Semaphore(const Semaphore&) = delete;
    Semaphore& operator=(const Semaphore&) = delete;

    // A place in the line, from when it's made. It must have been waited for before it goes.
    class Place {
    public:
        explicit Place(Semaphore& semaphore) : semaphore_(semaphore)
        {
            const MutexLock lock(semaphore_.mutex_);
            semaphore_.Enqueue(*this);
        }
        Place(const Place&) = delete;
        Place& operator=(const Place&) = delete;

        // Waits without limit until it is let in.
        void Wait()
        {
            const MutexLock lock(semaphore_.mutex_);
            while (!isIn_)
                changed_.Wait(semaphore_.mutex_);
        }

    private:
        friend class Semaphore;

        Semaphore& semaphore_;
        ConditionVariable changed_;
        // Under the semaphore's lock.
        bool isIn_ = false;
        Place* next_ = nullptr;
    };

    // Waits without limit until it is let in.
    void Acquire() { Place(*this).Wait(); }
    void Release()
    {
        const MutexLock lock(mutex_);
        if (!first_) {
            ++free_;
            return;
        }
        Place& next = *first_;
        first_ = next.next_;
        next.isIn_ = true;
        next.changed_.NotifyOne();
    }

private:
    void Enqueue(Place& place) QV_REQUIRES(mutex_)
    {
        if (free_ > 0) {
            --free_;
            place.isIn_ = true;
            return;
        }
        (first_ ? last_->next_ : first_) = &place;
        last_ = &place;
    }

    Mutex mutex_;
    std::size_t free_ QV_GUARDED_BY(mutex_);
    Place* first_ QV_GUARDED_BY(mutex_) = nullptr;
    Place* last_ QV_GUARDED_BY(mutex_) = nullptr;  // while there is a first
};

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_COM_SEMAPHORE_H_
