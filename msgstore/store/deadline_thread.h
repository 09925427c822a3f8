// msgstore/store/deadline_thread.h: a thread that does one thing whenever a time has come.
#ifndef QUORVANE_MSGSTORE_STORE_DEADLINE_THREAD_H_
#define QUORVANE_MSGSTORE_STORE_DEADLINE_THREAD_H_

#include <functional>
#include <optional>
#include <thread>

#include "platform/com/mutex.h"

namespace quorvane {

// Any thread may call. Who ends it holds no lock that `work` takes.
class DeadlineThread {
public:
    using Time = ConditionVariable::Clock::time_point;

    // work  runs on the thread, which holds no lock meanwhile; it doesn't throw. Throws std::system_error
    //       where there are no more threads to be had.
    explicit DeadlineThread(std::function<void()> work) : work_(std::move(work)), thread_([this] { Run(); })
    {}
    DeadlineThread(const DeadlineThread&) = delete;
    DeadlineThread& operator=(const DeadlineThread&) = delete;
    // Waits for work that is under way.
    ~DeadlineThread();

    // When the work is to be done next; nothing: not before another time is set. Work that has begun goes on.
    void Set(std::optional<Time> when) noexcept;

private:
    void Run() noexcept;

    const std::function<void()> work_;
    Mutex lock_;
    ConditionVariable changed_;
    std::optional<Time> when_ QV_GUARDED_BY(lock_);
    bool isEnding_ QV_GUARDED_BY(lock_) = false;
    std::thread thread_;  // the last: it uses the others
};

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_STORE_DEADLINE_THREAD_H_
