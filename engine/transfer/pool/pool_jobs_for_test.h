// transfer/pool/pool_jobs_for_test.h: jobs for the tests of the pool.
#ifndef QUORVANE_ENGINE_TRANSFER_POOL_POOL_JOBS_FOR_TEST_H_
#define QUORVANE_ENGINE_TRANSFER_POOL_POOL_JOBS_FOR_TEST_H_

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>

#include "engine/transfer/pool/thread_pool.h"

namespace quorvane::testing {

inline constexpr std::chrono::seconds kDeadline{30};
// How long a job that must not begin is given to do so.
inline constexpr std::chrono::milliseconds kGrace{100};

// Counts what jobs do, and lets a test wait for a count.
class Counter {
public:
    void Add(int change = 1)
    {
        const MutexLock lock(mutex_);
        value_ += change;
        highest_ = std::max(highest_, value_);
        changed_.NotifyAll();
    }
    int Value()
    {
        const MutexLock lock(mutex_);
        return value_;
    }
    int Highest()
    {
        const MutexLock lock(mutex_);
        return highest_;
    }
    // False when the count isn't reached in time.
    bool WaitFor(int value, std::chrono::milliseconds time = kDeadline)
    {
        const auto deadline = ConditionVariable::Clock::now() + time;
        const MutexLock lock(mutex_);
        while (value_ < value) {
            if (!changed_.WaitUntil(mutex_, deadline))
                return false;
        }
        return true;
    }

private:
    Mutex mutex_;
    ConditionVariable changed_;
    int value_ = 0;
    int highest_ = 0;
};

class Job final : public IWorkingThread {
public:
    using Work = std::function<DWORD(Event&)>;
    Job(Work work, Counter& destroyed) : work_(std::move(work)), destroyed_(destroyed) {}
    ~Job() override { destroyed_.Add(); }
    DWORD ThreadProc(Event& stop) override { return work_(stop); }

private:
    Work work_;
    Counter& destroyed_;
};

class PoolTest : public ::testing::Test {
protected:
    std::unique_ptr<IWorkingThread> Make(Job::Work work)
    {
        return std::make_unique<Job>(std::move(work), destroyed);
    }
    // A job that tells that it runs and goes on until it may end or is asked to.
    std::unique_ptr<IWorkingThread> Runner()
    {
        return Make([this](Event& stop) -> DWORD {
            running.Add();
            const Event* const ends[] = {&stop, &release};
            static_cast<void>(WaitAny(ends, kForever));
            stopped.Add(stop.IsSet() ? 1 : 0);
            running.Add(-1);
            return 0;
        });
    }
    void SetUp() override { ASSERT_EQ(release.Create(false), S_OK); }

    Counter running;
    Counter stopped;
    Counter destroyed;
    Event release;
};

}  // namespace quorvane::testing

#endif  // QUORVANE_ENGINE_TRANSFER_POOL_POOL_JOBS_FOR_TEST_H_
