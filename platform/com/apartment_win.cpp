#include "platform/com/apartment.h"

#include <deque>
#include <new>
#include <utility>

#include "platform/com/iid.h"
#include "platform/com/message_pump_win.h"
#include "platform/com/mutex.h"

namespace quorvane {

void DeclareDispatchInterface(REFIID) noexcept {}

bool IsApartmentThread() noexcept
{
    APTTYPE type = APTTYPE_CURRENT;
    APTTYPEQUALIFIER qualifier = APTTYPEQUALIFIER_NONE;
    return SUCCEEDED(CoGetApartmentType(&type, &qualifier)) &&
           (type == APTTYPE_STA || type == APTTYPE_MAINSTA);
}

bool PumpApartmentCalls() noexcept
{
    return MessagePump().Run();
}

struct ApartmentLoop::State {
    HANDLE woken = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    Mutex mutex;
    bool stopped = false;
    std::deque<std::function<void()>> posted;

    State() noexcept = default;
    State(const State&) = delete;
    State& operator=(const State&) = delete;
    ~State()
    {
        if (woken)
            CloseHandle(woken);
    }

    bool TakeStop()
    {
        const MutexLock lock(mutex);
        return std::exchange(stopped, false);
    }

    void RunPosted()
    {
        std::deque<std::function<void()>> functions;
        {
            const MutexLock lock(mutex);
            functions.swap(posted);
        }
        for (const std::function<void()>& function : functions)
            function();
    }

    bool RunUntil(ULONGLONG deadline)
    {
        MessagePump pump;
        for (;;) {
            RunPosted();
            pump.Run();
            if (TakeStop())
                return true;
            const ULONGLONG now = GetTickCount64();
            if (now >= deadline)
                return false;
            const ULONGLONG left = deadline - now;
            const DWORD wait = left >= INFINITE ? INFINITE : static_cast<DWORD>(left);
            MsgWaitForMultipleObjectsEx(1, &woken, wait, pump.SawQuit() ? 0 : QS_ALLINPUT,
                                        MWMO_INPUTAVAILABLE);
        }
    }
};

ApartmentLoop::ApartmentLoop() : state_(std::make_unique<State>())
{
    if (!state_->woken)
        throw std::bad_alloc();
}

ApartmentLoop::~ApartmentLoop() = default;

void ApartmentLoop::Run() noexcept
{
    state_->RunUntil(~0ULL);
}

bool ApartmentLoop::RunFor(std::chrono::milliseconds time) noexcept
{
    const ULONGLONG now = GetTickCount64();
    const auto wanted = static_cast<ULONGLONG>(time.count() > 0 ? time.count() : 0);
    return state_->RunUntil(wanted > ~0ULL - now ? ~0ULL : now + wanted);
}

void ApartmentLoop::Stop() noexcept
{
    const MutexLock lock(state_->mutex);
    state_->stopped = true;
    SetEvent(state_->woken);
}

HRESULT ApartmentLoop::Post(std::function<void()> function) noexcept
{
    try {
        const MutexLock lock(state_->mutex);
        state_->posted.push_back(std::move(function));
        SetEvent(state_->woken);
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

}  // namespace quorvane
