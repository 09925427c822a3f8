#include "engine/transfer/received_item_call.h"

#include <new>

#include "engine/session/trace/trace.h"
#include "platform/com/apartment.h"
#include "platform/com/detached_thread.h"

namespace quorvane {

struct ReceivedItemHelper::Calls {
    Mutex mutex;
    ConditionVariable changed;
    std::deque<std::shared_ptr<ReceivedItemCall>> waiting QV_GUARDED_BY(mutex);
    bool isOver QV_GUARDED_BY(mutex) = false;
};

ReceivedItemHelper::~ReceivedItemHelper()
{
    if (!calls_)
        return;
    const MutexLock lock(calls_->mutex);
    calls_->isOver = true;
    calls_->changed.NotifyAll();
}

HRESULT ReceivedItemHelper::Call(const std::shared_ptr<ReceivedItemCall>& call) noexcept
try {
    if (!calls_) {
        auto made = std::make_shared<Calls>();
        HR_TRY_QUIET(StartDetachedThread([calls = made]() mutable {
            // The host is called through the global table.
            const FreeThreadScope freeThread;
            Work(*calls);
            calls.reset();
        }));
        calls_ = std::move(made);
    }
    const MutexLock lock(calls_->mutex);
    calls_->waiting.push_back(call);
    calls_->changed.NotifyAll();
    return S_OK;
} catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
}

void ReceivedItemHelper::Work(Calls& calls) noexcept
{
    for (;;) {
        std::shared_ptr<ReceivedItemCall> call;
        {
            const MutexLock lock(calls.mutex);
            while (calls.waiting.empty() && !calls.isOver)
                calls.changed.Wait(calls.mutex);
            if (calls.waiting.empty())
                return;
            call = std::move(calls.waiting.front());
            calls.waiting.pop_front();
        }
        call->ItemReceviedProc();
    }
}

HRESULT ReceivedItemCall::Start(ReceivedItemHelper& helper, Addin addin, ComPtr<IItem> item, const Bstr& tag,
                                std::shared_ptr<ReceivedItemCall>& call) noexcept
try {
    call.reset();
    std::shared_ptr<ReceivedItemCall> made(
        new ReceivedItemCall(std::move(addin), std::move(item), Bstr(tag)));
    HR_TRY_QUIET(made->event_.Create(false));
    HR_TRY_QUIET(helper.Call(made));
    call = std::move(made);
    return S_OK;
} catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
}

HRESULT ReceivedItemCall::Wait(Event& stop, bool& ignore) noexcept
{
    const Event* const events[] = {&event_, &stop};
    size_t first = 1;
    HR_TRY_QUIET(WaitAny(events, kForever, &first));
    if (first != 0)
        return E_ABORT;
    ignore = ignore_;
    return result_;
}

void ReceivedItemCall::ItemReceviedProc() noexcept
{
    try {
        result_ = addin_.OnItemReceived(item_.Get(), tag_.Get(), ignore_);
    } catch (...) {
        result_ = E_UNEXPECTED;
        Traced{"CStorageProcessor::ItemReceviedProc"}.Line("Supposed to crash\n");
    }
    event_.Set();
}

}  // namespace quorvane
