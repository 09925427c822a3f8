// msgstore/store/notification_hub.h: a session's subscriptions, and the thread that serves them.
//
// The thread wakes when this process commits a change, and looks ten times a second whether others have: one
// question a store, however many subscriptions it has. It hands each subscription what has gathered for it in
// one call, then lets more gather for a while: the longer changes go on, the longer, so that a flood of them
// makes few calls. While a sink doesn't return, a second thread has the subscriptions take over what happens:
// nothing is dropped behind a slow sink's back.
#ifndef QUORVANE_MSGSTORE_STORE_NOTIFICATION_HUB_H_
#define QUORVANE_MSGSTORE_STORE_NOTIFICATION_HUB_H_

#include <map>
#include <memory>
#include <set>
#include <thread>
#include <vector>

#include "msgstore/store/notification_batch.h"
#include "msgstore/store/store_core.h"
#include "platform/com/com_ptr.h"

namespace quorvane {

// Where a subscription's notifications come from.
class EventSource {
public:
    virtual ~EventSource() = default;
    virtual const std::shared_ptr<StoreCore>& Core() const noexcept = 0;
    // Adds what has happened since the last call, or the first of it; nothing when there is none. What isn't
    // told after a failure comes with the next call, or a reload of all stands for it. Called on the
    // session's notification thread; takes no long time. S_FALSE: there is more.
    [[nodiscard]] virtual HRESULT Collect(NotificationBatch& batch) noexcept = 0;
    // Takes over what has happened, for the next Collect: the store doesn't keep it for good. Called on the
    // session's gathering thread while a sink takes its time; takes no long time.
    [[nodiscard]] virtual HRESULT Gather() noexcept { return S_OK; }
};

// Threading: any thread may call.
class NotificationHub final : public CommitListener, public std::enable_shared_from_this<NotificationHub> {
public:
    // Ends with Stop, which must have been called by then.
    ~NotificationHub() override = default;

    // Subscribes. The sink's OnNotify is called on the notification thread, with no lock of the store held.
    //
    // connection  [out]  not 0, and never given out again by this session.
    //
    // S_OK; MAPI_E_END_OF_SESSION: after Stop; E_OUTOFMEMORY.
    [[nodiscard]] HRESULT Advise(std::shared_ptr<EventSource> source, IMAPIAdviseSink& sink,
                                 ULONG& connection) noexcept;

    // Ends a subscription. Waits for a call of its sink that is going on, unless it's that call that gets
    // here; no call comes afterwards.
    //
    // S_OK; MAPI_E_NOT_FOUND: there is no such connection.
    [[nodiscard]] HRESULT Unadvise(ULONG connection) noexcept;

    // Ends all subscriptions and the thread, and waits for its end unless it's that thread that gets here.
    // Calls of sinks that are going on are waited for. May be called again.
    void Stop() noexcept;

    void Committed() noexcept override;
    HRESULT Deliver(const StoreCore& core, ULONG& number, ULONG& told) noexcept override;

private:
    struct Subscription;
    using Subscriptions = std::map<ULONG, std::shared_ptr<Subscription>>;

    using StoreChanges = std::map<std::weak_ptr<StoreCore>, std::int64_t, std::owner_less<>>;

    void Run() noexcept;
    // What a round of calls, or one of them, came to.
    struct Served {
        ULONG told = 0;        // notifications that sinks got
        bool isAll = true;     // false: some may be left to tell
        bool hasMore = false;  // there are some for certain
    };

    void RunGathering() noexcept;
    void GatherAll() noexcept;
    Served ServeAll(StoreChanges& served, bool evenIfUnchanged);
    Served Serve(Subscription& subscription) noexcept;
    void CallSink(IMAPIAdviseSink& sink, NotificationBatch& batch) noexcept;
    std::vector<std::shared_ptr<Subscription>> AllSubscriptions();
    void WaitForWork() QV_REQUIRES(lock_);
    void Pause(std::chrono::milliseconds time) QV_REQUIRES(lock_);
    void Listen(const std::shared_ptr<StoreCore>& core) QV_REQUIRES(lock_);

    Mutex lock_;
    ConditionVariable changed_;
    Subscriptions subscriptions_ QV_GUARDED_BY(lock_);
    std::set<std::weak_ptr<StoreCore>, std::owner_less<>> listening_ QV_GUARDED_BY(lock_);
    ULONG nextConnection_ QV_GUARDED_BY(lock_) = 1;
    bool committed_ QV_GUARDED_BY(lock_) = false;
    bool stopping_ QV_GUARDED_BY(lock_) = false;
    std::thread thread_ QV_GUARDED_BY(lock_);

    bool calling_ QV_GUARDED_BY(lock_) = false;  // a sink, on the notification thread
    ConditionVariable callingChanged_;
    std::thread gathering_ QV_GUARDED_BY(lock_);
};

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_STORE_NOTIFICATION_HUB_H_
