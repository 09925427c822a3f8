#include "engine/transfer/pool/thread_pool.h"

#include <new>
#include <utility>

#include "engine/session/trace/trace.h"

namespace quorvane {
namespace {

// As many objects as one wait of the system takes.
constexpr ULONG kMaxWaitObjects = 64;

}  // namespace

struct CCustomThreadPool::PoolJobContext {
    PoolJobContext(CCustomThreadPool& owner, std::unique_ptr<IWorkingThread> job)
        : pool(owner), work(std::move(job))
    {}

    CCustomThreadPool& pool;
    std::unique_ptr<IWorkingThread> work;
    Event done;
    Event ended;  // the work is destroyed, and the thread has nothing left to do but to return
    std::thread thread;
};

CCustomThreadPool::~CCustomThreadPool()
{
    if (stop_.Exists())
        HR_IGNORE(Shutdown(), "the jobs are waited for below, whatever it answers");
    std::list<std::shared_ptr<PoolJobContext>> jobs;
    {
        const MutexLock lock(mutex_);
        jobs.swap(jobs_);
    }
    for (const std::shared_ptr<PoolJobContext>& job : jobs) {
        job->ended.Wait(kForever, WaitMode::KeepQueueAlive);
        job->thread.join();
    }
}

HRESULT CCustomThreadPool::Init(ULONG count) noexcept
{
    const Traced traced{"CCustomThreadPool::Init"};
    try {
        if (count == 0)
            return traced(E_FAIL);
        semaphore_ = std::make_unique<Semaphore>(count);
        return FAILED(stop_.Create(false)) ? traced(E_FAIL) : S_OK;
    } catch (...) {
        return traced(E_FAIL);
    }
}

HRESULT CCustomThreadPool::Add(std::unique_ptr<IWorkingThread> job) noexcept
{
    const Traced traced{"CCustomThreadPool::Add"};
    if (!job || !semaphore_ || !stop_.Exists())
        return traced(E_FAIL);
    try {
        return traced(Start(std::move(job)));
    } catch (const std::bad_alloc&) {
        return traced(E_OUTOFMEMORY);
    } catch (...) {
        return traced(E_FAIL);
    }
}

HRESULT CCustomThreadPool::Start(std::unique_ptr<IWorkingThread> work)
{
    const auto job = std::make_shared<PoolJobContext>(*this, std::move(work));
    const MutexLock lock(mutex_);
    ReapFinished();
    ++jobsEverAdded_;
    stop_.Reset();
    if (FAILED(job->done.Create(false)) || FAILED(job->ended.Create(false)))
        return E_FAIL;
    jobs_.push_back(job);
    try {
        job->thread = std::thread([raw = job.get()] { PoolThreadProc(*raw); });
    } catch (...) {
        jobs_.pop_back();
        throw;
    }
    return S_OK;
}

void CCustomThreadPool::PoolThreadProc(PoolJobContext& job) noexcept
{
    job.pool.semaphore_->Acquire();
    if (!job.pool.stop_.IsSet()) {
        try {
            job.work->ThreadProc(job.pool.stop_);
        } catch (...) {
            Trace("PoolThreadProc", __LINE__, "0x%X", static_cast<unsigned>(E_UNEXPECTED));
        }
    }
    job.done.Set();
    job.pool.semaphore_->Release();
    job.work.reset();
    job.ended.Set();
}

// Joins the threads that have ended, so that a long-lived pool keeps nothing of its past jobs.
void CCustomThreadPool::ReapFinished()
{
    for (auto job = jobs_.begin(); job != jobs_.end();) {
        if ((*job)->ended.IsSet()) {
            (*job)->thread.join();
            job = jobs_.erase(job);
        } else {
            ++job;
        }
    }
}

HRESULT CCustomThreadPool::Shutdown() noexcept
{
    const Traced traced{"CCustomThreadPool::Shutdown"};
    if (FAILED(stop_.Set()))
        return traced(E_FAIL);
    try {
        std::vector<std::shared_ptr<PoolJobContext>> running;
        {
            const MutexLock lock(mutex_);
            if (jobsEverAdded_ > kMaxWaitObjects)
                return S_OK;
            running.assign(jobs_.begin(), jobs_.end());
        }
        // A job may be in the midst of a call into this thread's apartment: such calls are answered.
        for (const std::shared_ptr<PoolJobContext>& job : running)
            job->done.Wait(kForever, WaitMode::KeepQueueAlive);
        return S_OK;
    } catch (...) {
        return traced(E_OUTOFMEMORY);
    }
}

}  // namespace quorvane
