#include "engine/monitor/notification_worker.h"

#include <chrono>

#include "engine/items/item.h"
#include "engine/items/new_id.h"
#include "engine/persist/hash_db.h"
#include "engine/session/trace/crc32.h"
#include "engine/session/trace/trace.h"
#include "engine/session/trace/verbose_trace.h"
#include "platform/clock/clock.h"

namespace quorvane {

namespace {

constexpr Traced kTraced{"NotifyThreadProc"};

// Before each item, so that a long list leaves the machine to others.
constexpr std::chrono::milliseconds kPause{10};

void Rest(std::chrono::microseconds time) noexcept
{
    SleepFor(std::chrono::ceil<std::chrono::milliseconds>(time));
}

void TraceDeletion(const CItem& item, BSTR folderEntryId) noexcept
{
    try {
        TraceDetail("Deleted item (%s, %u) in folder %u\n", Narrow(item.m_bstrID.View()).c_str(),
                    CrcOfText(item.m_bstrEntryID.Get()), CrcOfText(folderEntryId));
    } catch (const std::bad_alloc&) {
        return;  // a line of the log is all that is lost
    }
}

}  // namespace

HRESULT NotificationWorker::Process(const ScanResult& found) noexcept
{
    HR_TRY(kTraced, addin_.Connect(session_));

    TraceVerbose(kTraced, "Changed %u. Deleted %u\n", found.CountChanged(), found.deleted.Count());
    for (ULONG i = 0; i < found.CountChanged(); ++i) {
        ChangedItem item;
        HR_TRY(kTraced, found.ReadChanged(i, item));
        HR_IGNORE(ProcessChanged(item.entryId.Get(), item.hash.Get(), item.flags),
                  "traced; the next item goes on");
    }
    for (ULONG i = 0; i < found.deleted.Count(); ++i) {
        Bstr entryId;
        HR_TRY(kTraced, found.deleted.Read(i, entryId));
        HR_IGNORE(ProcessDeleted(entryId.Get()), "traced; the next item goes on");
    }
    return S_OK;
}

HRESULT NotificationWorker::ProcessChanged(BSTR entryId, BSTR hash, LONG flags) noexcept
{
    TraceVerbose(kTraced, "Processing Item: %s\n", entryId);
    Pause(kPause, Rest);
    const bool locked = session_.TakeItemLock(entryId, sink_.m_bstrStoreID.Get());
    ComPtr<CItem> item;
    HR_TRY(kTraced, MakeItem(entryId, item));
    HR_TRY(kTraced, Identify(*item.Get()));
    const bool added = tableEvent_ == TABLE_ROW_ADDED;
    HR_TRY(kTraced, item->put_Action(added ? qv_ac_Added : qv_ac_Modified));
    if (!locked)
        HR_TRY(kTraced, OfferChange(*item.Get()));
    HR_TRY(kTraced, item->DBUpdate());
    return kTraced(hashes_.SetHash(entryId, hash, flags));
}

HRESULT NotificationWorker::ProcessDeleted(BSTR entryId) noexcept
{
    TraceVerbose(kTraced, "Processing Item Delete: %s\n", entryId);
    Pause(kPause, Rest);
    const bool locked = session_.TakeItemLock(entryId, sink_.m_bstrStoreID.Get());
    ComPtr<CItem> item;
    HR_TRY(kTraced, MakeItem(entryId, item));
    if (item->DBRead() != S_OK)
        return S_OK;  // never shared: nobody needs to hear of it
    Bstr idHere;
    const bool moved = SUCCEEDED(session_.FindMovedItem(entryId, idHere.Put()));
    if (moved) {
        TraceVerbose(kTraced, "Item Exception: %s. old ID:%s\n", entryId, idHere);
        item->m_bstrID = std::move(idHere);
    }
    HR_TRY(kTraced, item->put_Action(qv_ac_Deleted));
    if (!locked)
        HR_TRY(kTraced, OfferDeletion(*item.Get()));
    return RecordDeletion(*item.Get(), moved);
}

HRESULT NotificationWorker::MakeItem(BSTR entryId, ComPtr<CItem>& item) noexcept
{
    item = MakeComObject<CItem>(&session_);
    if (!item)
        return E_OUTOFMEMORY;
    HR_TRY_QUIET(item->m_bstrEntryID.Assign(entryId));
    HR_TRY_QUIET(item->m_bstrStoreID.Assign(sink_.m_bstrStoreID.Get()));
    HR_TRY_QUIET(item->m_bstrFolderEntryID.Assign(sink_.m_bstrEntryID.Get()));
    return item->m_bstrFolderID.Assign(sink_.m_bstrFolderID.Get());
}

// Finds the item's row, or makes one. A known item whose row has just been added to this table came from
// elsewhere under the same identifier: it goes on under a new ID, and its old one is kept for its deletion.
HRESULT NotificationWorker::Identify(CItem& item) noexcept
{
    if (item.DBRead() != S_OK)
        return item.DBAppend();
    if (tableEvent_ != TABLE_ROW_ADDED)
        return S_OK;
    TraceVerbose(kTraced, "Adding Item Exception: %s. old ID:%s\n", item.m_bstrEntryID, item.m_bstrID);
    HR_TRY_QUIET(session_.RememberMovedItem(item.m_bstrEntryID.Get(), item.m_bstrID.Get()));
    return MakeNewId(item.m_bstrID);
}

HRESULT NotificationWorker::OfferChange(CItem& item) noexcept
{
    ComPtr<IItem> offered;
    HR_TRY_QUIET(item.QueryInterface(IID_IItem, offered.PutVoid()));
    bool ignored = false;
    const bool added = item.m_lAction == qv_ac_Added;
    HR_TRY_QUIET(added ? addin_.OnItemAdded(offered.Get(), ignored)
                       : addin_.OnItemChanged(offered.Get(), ignored));
    if (ignored)
        return S_OK;
    ComPtr<IUnknown> message;
    HR_TRY_QUIET(offered->get_Raw(message.Put()));
    return offered->Send(sink_.m_bstrEntryID.Get());
}

HRESULT NotificationWorker::OfferDeletion(CItem& item) noexcept
{
    ComPtr<IItem> offered;
    HR_TRY_QUIET(item.QueryInterface(IID_IItem, offered.PutVoid()));
    bool ignored = false;
    HR_TRY_QUIET(addin_.OnItemDeleted(offered.Get(), ignored));
    if (ignored)
        return S_OK;
    TraceDeletion(item, sink_.m_bstrEntryID.Get());
    return offered->Send(sink_.m_bstrEntryID.Get());
}

// A moved item's row and hash entry stand for it in its new place now.
HRESULT NotificationWorker::RecordDeletion(CItem& item, bool moved) noexcept
{
    BSTR const entryId = item.m_bstrEntryID.Get();
    if (moved)
        return kTraced(session_.ForgetMovedItem(entryId));
    HR_TRY(kTraced, item.DBDelete());
    return kTraced(hashes_.SetHash(entryId, nullptr, 0));
}

}  // namespace quorvane
