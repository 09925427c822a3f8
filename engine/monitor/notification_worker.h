// monitor/notification_worker.h: what one scan found becomes calls to the host, packages and records.
#ifndef QUORVANE_ENGINE_MONITOR_NOTIFICATION_WORKER_H_
#define QUORVANE_ENGINE_MONITOR_NOTIFICATION_WORKER_H_

#include "engine/change/scan_result.h"
#include "engine/monitor/advise_sink.h"
#include "engine/session/context/addin.h"

namespace quorvane {

class CHashDB;
class CItem;

// Works off the lists of one notification: first the changed items, then the deleted ones. Each item is
// offered to the host unless it was locked, sent unless the host ignores the event, and then recorded in the
// database and the hash store. A failure of one item is traced and drops that item alone; its record in the
// hash store then stays behind, so that the next scan which covers it offers it again.
//
// Threading: on the batch's thread, under NotifySemaphore.
class NotificationWorker {
public:
    // sink        [in]  the folder's, with a session.
    // hashes      [in]  the folder's hash store.
    // tableEvent  [in]  TABLE_*: decides whether a change is reported as an addition.
    NotificationWorker(const CAdviseSink& sink, CHashDB& hashes, ULONG tableEvent) noexcept
        : sink_(sink), session_(*sink.Session()), hashes_(hashes), tableEvent_(tableEvent)
    {}

    // S_OK: all items were dealt with, each in its own way. A failure (traced) means that nothing was done
    // and the batch should end: the lists are malformed, or the host can't be reached.
    [[nodiscard]] HRESULT Process(const ScanResult& found) noexcept;

private:
    // The failures of one item are traced where they happen.
    HRESULT ProcessChanged(BSTR entryId, BSTR hash, LONG flags) noexcept;
    HRESULT ProcessDeleted(BSTR entryId) noexcept;

    HRESULT MakeItem(BSTR entryId, ComPtr<CItem>& item) noexcept;
    HRESULT Identify(CItem& item) noexcept;
    HRESULT OfferChange(CItem& item) noexcept;
    HRESULT OfferDeletion(CItem& item) noexcept;
    HRESULT RecordDeletion(CItem& item, bool moved) noexcept;

    const CAdviseSink& sink_;
    SessionContext& session_;
    CHashDB& hashes_;
    const ULONG tableEvent_;
    Addin addin_;
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_MONITOR_NOTIFICATION_WORKER_H_
