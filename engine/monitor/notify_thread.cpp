#include "engine/monitor/notify_thread.h"

#include <limits>
#include <optional>
#include <thread>

#include "engine/change/find_changed_items.h"
#include "engine/monitor/notification_worker.h"
#include "engine/persist/hash_db.h"
#include "engine/session/trace/trace.h"
#include "engine/storeaccess/thread_init.h"
#include "platform/com/apartment.h"

namespace quorvane {

Semaphore NotifySemaphore{1};

namespace {

constexpr Traced kBatchTraced{"NotifyThreadProc"};

// Sets an event when the scope ends, whichever way.
class SignalAtEnd {
public:
    explicit SignalAtEnd(Event& event) noexcept : event_(event) {}
    SignalAtEnd(const SignalAtEnd&) = delete;
    SignalAtEnd& operator=(const SignalAtEnd&) = delete;
    ~SignalAtEnd() { HR_IGNORE(event_.Set(), "the starter made the event"); }

private:
    Event& event_;
};

// A batch's place in the line, and NotifySemaphore held once it's waited for.
class NotifyTurn {
public:
    NotifyTurn() noexcept = default;
    NotifyTurn(const NotifyTurn&) = delete;
    NotifyTurn& operator=(const NotifyTurn&) = delete;
    ~NotifyTurn() { NotifySemaphore.Release(); }
    void Wait() noexcept { place_.Wait(); }

private:
    Semaphore::Place place_{NotifySemaphore};
};

// What a table event asks of the scan.
struct ScanPlan {
    bool scans = false;
    ULONG flags = 0;
    bool usesRow = false;
};

constexpr ScanPlan PlanFor(ULONG tableEvent) noexcept
{
    switch (tableEvent) {
        case TABLE_CHANGED:
            return {true, 0, true};
        case TABLE_ROW_ADDED:
        case TABLE_ROW_MODIFIED:
            return {true, kSkipDeletedItems, true};
        case TABLE_ROW_DELETED:
            return {true, kSkipChangedItems, false};
        default:
            return {};
    }
}

}  // namespace

HRESULT NotificationBatch::Copy(ULONG count, LPNOTIFICATION notifications) noexcept
{
    if (count > static_cast<ULONG>(std::numeric_limits<INT>::max()))
        return E_INVALIDARG;
    const INT signedCount = static_cast<INT>(count);
    ULONG size = 0;
    HR_TRY_QUIET(mapi::ScCountNotifications(signedCount, notifications, &size));
    MapiBuffer<NOTIFICATION> copy;
    HR_TRY_QUIET(copy.Allocate(size));
    HR_TRY_QUIET(mapi::ScCopyNotifications(signedCount, notifications, copy.Get(), &size));
    copy_ = std::move(copy);
    count_ = count;
    return S_OK;
}

namespace {

// Copies the batch and passes the barrier: a writer that is applying an item holds the submit lock until the
// item's new hash is stored, so the scan behind the barrier finds its row unchanged.
//
// The batch stands in line before MAPI is free to bring the next one, as a row is told as it was at that
// time: told later than its successor, it would take the item back.
HRESULT TakeOver(SessionContext& session, NotifyThreadArgs& args, NotificationBatch& batch,
                 std::optional<NotifyTurn>& turn) noexcept
{
    const SignalAtEnd ready(args.hReady);
    HR_TRY(kBatchTraced, batch.Copy(args.cNotif, args.lpNotifications));
    {
        const MutexLock barrier(session.SubmitLock());
    }
    turn.emplace();
    return S_OK;
}

HRESULT ScanAndWork(const CAdviseSink& sink, const TABLE_NOTIFICATION& notification,
                    const ScanPlan& plan) noexcept
{
    CHashDB* const hashes = sink.Session()->HashStores().Find(sink.m_bstrFolderID.Get());
    if (!hashes) {
        HR_IGNORE(kBatchTraced(E_FAIL),
                  "a folder that listens has a hash store; without one nothing can be told");
        return S_OK;
    }
    ScanResult found;
    CFindChangedItems finder(hashes);
    SRow row = notification.row;
    const HRESULT hr = finder.getChangedItems(
        sink.m_pStore.Get(), sink.m_pTable.Get(), sink.m_pRestriction.Get(), plan.usesRow ? &row : nullptr,
        sink.m_bstrEntryID.Get(), sink.m_bCompareFlags == VARIANT_TRUE, &found, plan.flags, false);
    if (FAILED(hr))
        return S_OK;  // traced by the scan; the next notification goes on
    NotificationWorker worker(sink, *hashes, notification.ulTableEvent);
    return worker.Process(found);
}

// A search for deleted items covers the whole table, so one does for all deletions of a batch.
HRESULT WorkOff(const CAdviseSink& sink, const NotificationBatch& batch) noexcept
{
    bool bDeletionsDone = false;
    for (const NOTIFICATION& notification : batch.Notifications()) {
        std::this_thread::yield();
        const TABLE_NOTIFICATION& table = notification.info.tab;
        const ScanPlan plan = PlanFor(table.ulTableEvent);
        const bool isDeletion = table.ulTableEvent == TABLE_ROW_DELETED;
        if (!plan.scans || (isDeletion && bDeletionsDone))
            continue;
        bDeletionsDone |= isDeletion;
        HR_TRY_QUIET(ScanAndWork(sink, table, plan));
    }
    return S_OK;
}

}  // namespace

HRESULT NotifyThreadProc(ComPtr<CAdviseSink> sink, std::shared_ptr<NotifyThreadArgs> args) noexcept
{
    // MAPI comes first: it may make the thread an apartment, and refuses one that is a free thread already.
    // The host is called through the global table, which needs the thread to be one or the other.
    CMAPIThreadInit mapiOnThread;
    const HRESULT initialized = mapiOnThread.Init();
    const FreeThreadScope freeThread;
    // The last reference to the folder's store and table may be this one: it goes while MAPI is still there.
    const ComPtr<CAdviseSink> held = std::move(sink);
    if (FAILED(initialized)) {
        const SignalAtEnd ready(args->hReady);
        return kBatchTraced(initialized);
    }
    NotificationBatch batch;
    std::optional<NotifyTurn> turn;
    HR_TRY_QUIET(TakeOver(*held->Session(), *args, batch, turn));
    turn->Wait();
    if (held->StateOfFolder() != CAdviseSink::FolderState::Listens)
        return S_OK;
    return WorkOff(*held.Get(), batch);
}

}  // namespace quorvane
