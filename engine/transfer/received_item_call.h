// transfer/received_item_call.h: the host's word on received items, asked for on a thread of its own, so that
// a stop needn't wait for the host.
#ifndef QUORVANE_ENGINE_TRANSFER_RECEIVED_ITEM_CALL_H_
#define QUORVANE_ENGINE_TRANSFER_RECEIVED_ITEM_CALL_H_

#include <deque>
#include <memory>

#include "engine/session/context/addin.h"
#include "platform/com/bstr.h"
#include "platform/com/mutex.h"
#include "platform/event/event.h"

namespace quorvane {

class ReceivedItemCall;

// The helper thread of one job, which calls the host for one item after the other. It is started with the
// first call, and ends by itself when the job has no more: a call that is under way then goes on.
//
// Threading: the job's thread alone calls.
class ReceivedItemHelper {
public:
    ReceivedItemHelper() noexcept = default;
    ReceivedItemHelper(const ReceivedItemHelper&) = delete;
    ReceivedItemHelper& operator=(const ReceivedItemHelper&) = delete;
    ~ReceivedItemHelper();

    // Has the host called.
    //
    // E_OUTOFMEMORY; E_FAIL: no thread can be started. Nothing is called then.
    [[nodiscard]] HRESULT Call(const std::shared_ptr<ReceivedItemCall>& call) noexcept;

private:
    struct Calls;
    static void Work(Calls& calls) noexcept;

    std::shared_ptr<Calls> calls_;  // null until the thread is started
};

// What the job and the helper thread share. It lives until the later of the two is through with it, so that
// a host that answers after a stop answers into a record that is still there.
class ReceivedItemCall {
public:
    // Has the helper call the host.
    //
    // call  [out]  empty after a failure.
    //
    // As ReceivedItemHelper::Call.
    [[nodiscard]] static HRESULT Start(ReceivedItemHelper& helper, Addin addin, ComPtr<IItem> item,
                                       const Bstr& tag, std::shared_ptr<ReceivedItemCall>& call) noexcept;

    // Waits for the host's answer.
    //
    // stop    [in]   ends the wait.
    // ignore  [out]  whether the host wants the item to be passed over.
    //
    // The host's result. E_ABORT: it was stopped first; the helper thread runs on.
    [[nodiscard]] HRESULT Wait(Event& stop, bool& ignore) noexcept;

private:
    friend class ReceivedItemHelper;

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
