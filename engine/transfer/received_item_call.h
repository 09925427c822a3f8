// transfer/received_item_call.h: the host's word on one received item, asked for on a thread of its own, so
// that a stop needn't wait for the host.
#ifndef QUORVANE_ENGINE_TRANSFER_RECEIVED_ITEM_CALL_H_
#define QUORVANE_ENGINE_TRANSFER_RECEIVED_ITEM_CALL_H_

#include <memory>

#include "engine/session/context/addin.h"
#include "platform/com/bstr.h"
#include "platform/event/event.h"

namespace quorvane {

// What the job and the helper thread share. It lives until the later of the two is through with it, so that
// a host that answers after a stop answers into a record that is still there.
class ReceivedItemCall {
public:
    // Starts the helper thread, which calls the host.
    //
    // call  [out]  empty after a failure.
    //
    // E_OUTOFMEMORY; E_FAIL: no thread can be started. Nothing is called then.
    [[nodiscard]] static HRESULT Start(Addin addin, ComPtr<IItem> item, const Bstr& tag,
                                       std::shared_ptr<ReceivedItemCall>& call) noexcept;

    // Waits for the host's answer.
    //
    // stop    [in]   ends the wait.
    // ignore  [out]  whether the host wants the item to be passed over.
    //
    // The host's result. E_ABORT: it was stopped first; the helper thread runs on.
    [[nodiscard]] HRESULT Wait(Event& stop, bool& ignore) noexcept;

private:
    ReceivedItemCall(Addin addin, ComPtr<IItem> item, Bstr tag) noexcept
        : addin_(std::move(addin)), item_(std::move(item)), tag_(std::move(tag))
    {}
    void ItemReceviedProc() noexcept;

    const Addin addin_;
    ComPtr<IItem> item_;
    const Bstr tag_;
    // Written by the helper thread before the event is set, read by the job after that.
    bool ignore_ = false;
    HRESULT result_ = S_OK;
    Event event_;
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_TRANSFER_RECEIVED_ITEM_CALL_H_
