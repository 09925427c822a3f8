// transfer/pool/thread_pool.h: background jobs with a limit of how many run at once.
#ifndef QUORVANE_ENGINE_TRANSFER_POOL_THREAD_POOL_H_
#define QUORVANE_ENGINE_TRANSFER_POOL_THREAD_POOL_H_

#include <list>
#include <memory>
#include <thread>
#include <vector>

#include "platform/com/mutex.h"
#include "platform/com/semaphore.h"
#include "platform/event/event.h"

namespace quorvane {

// A job. It is destroyed on its own thread when it has ended, or on the thread of Add when it never began.
class IWorkingThread {
public:
    virtual ~IWorkingThread() = default;

    // Does the work, on a thread of the job's own. The pool ignores the result.
    //
    // stop  [in]  set while the job is asked to give up; lives as long as the pool.
    virtual DWORD ThreadProc(Event& stop) = 0;
};

// Gives every job a thread at once; a semaphore of the pool's concurrency decides when it may begin. The
// order in which waiting jobs begin is not told. Any thread may call Add and Shutdown at any time.
class CCustomThreadPool {
public:
    CCustomThreadPool() noexcept = default;
    CCustomThreadPool(const CCustomThreadPool&) = delete;
    CCustomThreadPool& operator=(const CCustomThreadPool&) = delete;

    // Shuts down, and then waits without a limit until every job has ended and is destroyed: what jobs use is
    // freed after this. Calls into the thread's apartment are answered meanwhile, as a job may be in the
    // midst of one.
    ~CCustomThreadPool();

    // count  [in]  how many jobs may run at once, at least 1.
    //
    // E_FAIL: what the pool needs can't be made, or `count` is 0. Called once, before anything else.
    [[nodiscard]] HRESULT Init(ULONG count) noexcept;

    // Takes a job over. Undoes a stop that was asked for earlier, also for jobs that still wait.
    // E_FAIL: its thread can't be started; the job is destroyed. E_OUTOFMEMORY likewise.
    [[nodiscard]] HRESULT Add(std::unique_ptr<IWorkingThread> job) noexcept;

    // Asks every job to give up, and waits until all that were added so far have ended. A job that still
    // waits is passed over. The pool stays usable: the next Add takes the stop back.
    //
    // S_OK. From the 65th job of the pool's life on it returns without waiting. E_FAIL: the pool has no stop
    // event. Don't call it from a job of the pool.
    [[nodiscard]] HRESULT Shutdown() noexcept;

private:
    struct PoolJobContext;
    static void PoolThreadProc(PoolJobContext& job) noexcept;
    HRESULT Start(std::unique_ptr<IWorkingThread> work);
    void ReapFinished() QV_REQUIRES(mutex_);

    Event stop_;
    std::unique_ptr<Semaphore> semaphore_;
    Mutex mutex_;
    ULONG jobsEverAdded_ QV_GUARDED_BY(mutex_) = 0;
    std::list<std::shared_ptr<PoolJobContext>> jobs_ QV_GUARDED_BY(mutex_);
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_TRANSFER_POOL_THREAD_POOL_H_
