#include "platform/com/apartment.h"

#include <deque>
#include <new>
#include <utility>

#include "platform/com/mutex.h"
#include "platform/com/wakeup.h"

namespace quorvane {

using Clock = Wakeup::Clock;

struct ApartmentLoop::State {
    Mutex mutex;
    bool stopped QV_GUARDED_BY(mutex) = false;
    std::deque<std::function<void()>> posted QV_GUARDED_BY(mutex);
    std::shared_ptr<Wakeup> runner QV_GUARDED_BY(mutex);

    void WakeRunner() QV_REQUIRES(mutex)
    {
        if (runner)
            runner->Signal();
    }

    void SetRunner(std::shared_ptr<Wakeup> wakeup) QV_EXCLUDES(mutex)
    {
        const MutexLock lock(mutex);
        runner = std::move(wakeup);
    }

    bool TakeStop() QV_EXCLUDES(mutex)
    {
        const MutexLock lock(mutex);
        return std::exchange(stopped, false);
    }

    bool RunPosted() QV_EXCLUDES(mutex)
    {
        std::deque<std::function<void()>> functions;
        {
            const MutexLock lock(mutex);
            functions.swap(posted);
        }
        for (const std::function<void()>& function : functions)
            function();
        return !functions.empty();
    }

    bool RunUntil(Clock::time_point deadline)
    {
        const std::shared_ptr<Wakeup> wakeup = Wakeup::OfThisThread();
        SetRunner(wakeup);
        bool wasStopped = false;
        for (;;) {
            const bool ranPosted = RunPosted();
            const bool ranCalls = PumpApartmentCalls();
            wasStopped = TakeStop();
            if (wasStopped || (deadline != Clock::time_point::max() && Clock::now() >= deadline))
                break;
            if (!ranPosted && !ranCalls)
                wakeup->SleepUntil(deadline);
        }
        SetRunner(nullptr);
        return wasStopped;
    }
};

ApartmentLoop::ApartmentLoop() : state_(std::make_unique<State>()) {}

ApartmentLoop::~ApartmentLoop() = default;

void ApartmentLoop::Run() noexcept
{
    state_->RunUntil(Clock::time_point::max());
}

bool ApartmentLoop::RunFor(std::chrono::milliseconds time) noexcept
{
    const auto now = Clock::now();
    const auto most = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::time_point::max() - now);
    return state_->RunUntil(time >= most ? Clock::time_point::max() : now + time);
}

void ApartmentLoop::Stop() noexcept
{
    const MutexLock lock(state_->mutex);
    state_->stopped = true;
    state_->WakeRunner();
}

HRESULT ApartmentLoop::Post(std::function<void()> function) noexcept
{
    try {
        const MutexLock lock(state_->mutex);
        state_->posted.push_back(std::move(function));
        state_->WakeRunner();
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

}  // namespace quorvane
