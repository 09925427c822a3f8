// monitor/notify_thread.h: one batch of table notifications, from MAPI's thread to the worker.
//
// One batch is one thread. The thread copies the batch and passes the session's submit lock while MAPI's
// thread waits for it; from then on MAPI is free, and the thread stands in line at NotifySemaphore until it
// is the only one at work in the process. For each notification it scans the folder and hands what it finds
// to the worker.
#ifndef QUORVANE_ENGINE_MONITOR_NOTIFY_THREAD_H_
#define QUORVANE_ENGINE_MONITOR_NOTIFY_THREAD_H_

#include <memory>

#include "engine/monitor/advise_sink.h"
#include "engine/session/context/notification_gate.h"
#include "engine/storeaccess/mapi_memory.h"
#include "platform/com/semaphore.h"
#include "platform/event/event.h"

namespace quorvane {

// One batch at a time, over all folders and sessions of the process. Taken from a batch's turn to its end,
// the host's callbacks included.
extern Semaphore NotifySemaphore;

// What a batch's thread is started with. Shared by both sides, so that neither can outlive it.
struct NotifyThreadArgs {
    ULONG cNotif = 0;
    LPNOTIFICATION lpNotifications = nullptr;  // MAPI's; to be read until hReady is set, not afterwards
    Event hReady;  // set when the batch was copied and the barrier passed, and on every failure before that
};

// A copy of a batch in one buffer of its own.
class NotificationBatch {
public:
    // E_FAIL: no MAPI library is bound. Others come from MAPI; nothing is held then.
    [[nodiscard]] HRESULT Copy(ULONG count, LPNOTIFICATION notifications) noexcept;
    std::span<const NOTIFICATION> Notifications() const noexcept { return {copy_.Get(), count_}; }

private:
    MapiBuffer<NOTIFICATION> copy_;
    ULONG count_ = 0;
};

// A batch's thread, from its start to its end.
//
// sink  [in]  the sink that was notified, which has a session; let go of while the thread still has MAPI.
// args  [in]  shared with the starter, who waits for hReady.
//
// The result is the batch's; nobody reads it. No failure goes further than the log.
HRESULT NotifyThreadProc(ComPtr<CAdviseSink> sink, std::shared_ptr<NotifyThreadArgs> args) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_MONITOR_NOTIFY_THREAD_H_
