#include "engine/transfer/received_item_call.h"

#include <new>

#include "engine/session/trace/trace.h"
#include "platform/com/apartment.h"
#include "platform/com/detached_thread.h"

namespace quorvane {

HRESULT ReceivedItemCall::Start(Addin addin, ComPtr<IItem> item, const Bstr& tag,
                                std::shared_ptr<ReceivedItemCall>& call) noexcept
try {
    call.reset();
    std::shared_ptr<ReceivedItemCall> made(
        new ReceivedItemCall(std::move(addin), std::move(item), Bstr(tag)));
    HR_TRY_QUIET(made->event_.Create(false));
    HR_TRY_QUIET(StartDetachedThread([made]() mutable {
        // The host is called through the global table.
        const FreeThreadScope freeThread;
        made->ItemReceviedProc();
        made.reset();
    }));
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
