#include "engine/folders/resend_folder.h"

#include <array>
#include <new>
#include <thread>

#include "engine/change/find_changed_items.h"
#include "engine/change/scan_result.h"
#include "engine/items/arguments.h"
#include "engine/items/item.h"
#include "engine/persist/database.h"
#include "engine/session/context/addin.h"
#include "engine/session/trace/trace.h"
#include "platform/com/apartment.h"
#include "platform/com/dispatch.h"

namespace quorvane {

namespace {

constexpr Traced kResendTraced{"CResendFolder::ResendThreadProc"};

// A row below this version is of an earlier engine.
constexpr double kPresentVersion = 3.0;

// One of the folder's identifiers. Throws std::bad_alloc.
Bstr CopyOf(IFolder& folder, HRESULT (STDMETHODCALLTYPE IFolder::*get)(BSTR*))
{
    Bstr text;
    if (FAILED((folder.*get)(text.Put())))
        throw std::bad_alloc();
    return text;
}

HRESULT TellProgress(IQuorvaneProgress* progress, DISPID id, LONG first, LONG second) noexcept
{
    if (!progress)
        return S_OK;
    const std::array arguments{NumberArgument(first), NumberArgument(second)};
    return InvokeById(progress, id, DISPATCH_METHOD, arguments);
}

}  // namespace

// What one run holds, all of it its own thread's.
struct CResendFolder::Run {
    DatabaseSession database;
    ComPtr<IQuorvaneProgress> progress;
    ComPtr<IQuorvaneRestrict> restriction;
    ComPtr<IMsgStore> store;
    ComPtr<IMAPITable> table;
    Bstr entryId;  // of the folder
    Bstr folderId;
    CHashDB* hashes = nullptr;
    ScanResult found;
    Addin addin;
    LONG count = 0;
    // An item whose row has an older version was seen: from it on nothing is offered, unless all is sent.
    bool oldItemSeen = false;
    HRESULT last = S_OK;
};

CResendFolder::CResendFolder(IFolder* Folder, IUnknown* Store, IQuorvaneProgress* Progress,
                             IQuorvaneRestrict* Restriction, BSTR Recipients, BSTR JobID, double /*Reserved*/,
                             ULONG ResendAll, VARIANT_BOOL CompareFlags)
    : m_pFolder(Folder),
      m_bstrRecipients(Bstr::CopyOf(Recipients)),
      m_bstrJobID(Bstr::CopyOf(JobID)),
      m_bstrFolderEntryID(CopyOf(*Folder, &IFolder::get_EntryID)),
      m_bstrFolderID(CopyOf(*Folder, &IFolder::get_ID)),
      m_bstrStoreID(CopyOf(*Folder, &IFolder::get_StoreID)),
      m_ulResendAll(ResendAll),
      m_bCompareFlags(CompareFlags)
{
    if (Progress)
        HR_IGNORE(m_ProgressStream.Put<IQuorvaneProgress>(Progress), "the job runs without it");
    if (Store)
        HR_IGNORE(m_StoreStream.Put<IMsgStore>(Store), "the job finds it missing");
    if (Restriction)
        HR_IGNORE(m_RestrictionStream.Put<IQuorvaneRestrict>(Restriction), "the job runs without it");
}

DWORD CResendFolder::ThreadProc(Event& stop)
{
    const ApartmentScope apartment;
    return static_cast<DWORD>(ResendThreadProc(stop));
}

HRESULT CResendFolder::ResendThreadProc(Event& stop) noexcept
{
    Run run;
    HR_TRY(kResendTraced, Prepare(run));
    HR_TRY(kResendTraced, Scan(run));
    HR_TRY(kResendTraced, run.addin.Connect(*m_pSession));

    m_lTotal = static_cast<LONG>(run.found.CountChanged() + run.found.deleted.Count());
    if (m_lTotal != 0)
        HR_IGNORE(TellProgress(run.progress.Get(), kSetLimits, 0, m_lTotal), "the job runs all the same");
    // One save for all items.
    run.hashes->SuspendSave = true;
    ResendChangedItems(run, stop);
    ResendDeletedItems(run, stop);
    run.hashes->SuspendSave = false;
    HR_IGNORE(run.hashes->SaveMap(), "it is traced, and the next save makes up for it");
    return run.last;
}

HRESULT CResendFolder::Prepare(Run& run) noexcept
{
    HR_TRY_QUIET(m_pSession->Database().OpenSession(run.database));
    if (!m_ProgressStream.IsEmpty())
        HR_TRY_QUIET(m_ProgressStream.Take(run.progress));
    if (!m_RestrictionStream.IsEmpty())
        HR_TRY_QUIET(m_RestrictionStream.Take(run.restriction));
    HR_TRY_QUIET(m_StoreStream.Take(run.store));

    // A folder and a table of this thread's own: those that listen belong to others.
    ComPtr<IUnknown> raw;
    HR_TRY_QUIET(m_pFolder->get_Raw(raw.Put()));
    ComPtr<IMAPIFolder> folder;
    HR_TRY_QUIET(raw.As(folder));
    return folder->GetContentsTable(0, run.table.Put());
}

HRESULT CResendFolder::Scan(Run& run) noexcept
{
    HR_TRY_QUIET(m_pFolder->get_EntryID(run.entryId.Put()));
    HR_TRY_QUIET(m_pFolder->get_ID(run.folderId.Put()));
    // A folder that was opened without listeners has none.
    run.hashes = m_pSession->HashStores().Find(run.folderId.Get());
    if (!run.hashes)
        return E_FAIL;
    CFindChangedItems finder(run.hashes);
    return finder.getChangedItems(run.store.Get(), run.table.Get(), run.restriction.Get(), nullptr,
                                  run.entryId.Get(), m_bCompareFlags != 0, &run.found, 0, m_ulResendAll != 0);
}

void CResendFolder::ResendChangedItems(Run& run, Event& stop) noexcept
{
    for (ULONG i = 0; i < run.found.CountChanged(); ++i) {
        std::this_thread::yield();
        if (stop.IsSet())
            return;
        HR_IGNORE(TellProgress(run.progress.Get(), kProgress, ++run.count, m_lTotal), "the work goes on");
        run.last = kResendTraced(ResendChanged(run, i));
    }
}

void CResendFolder::ResendDeletedItems(Run& run, Event& stop) noexcept
{
    for (ULONG i = 0; i < run.found.deleted.Count(); ++i) {
        std::this_thread::yield();
        if (stop.IsSet())
            return;
        run.last = kResendTraced(ResendDeleted(run, i));
        if (FAILED(run.last))
            continue;
        HR_IGNORE(TellProgress(run.progress.Get(), kProgress, ++run.count, m_lTotal), "the work goes on");
    }
}

HRESULT CResendFolder::ResendChanged(Run& run, ULONG index) noexcept
{
    ChangedItem found;
    HR_TRY_QUIET(run.found.ReadChanged(index, found));
    ComPtr<CItem> item;
    HR_TRY_QUIET(MakeItem(found.entryId.Get(), run.entryId, run.folderId, item));
    HR_TRY_QUIET(Identify(run, *item.Get()));
    run.oldItemSeen = run.oldItemSeen || item->m_dblVersion < kPresentVersion;
    if (!run.oldItemSeen || m_ulResendAll != 0)
        HR_TRY_QUIET(OfferChange(run, *item.Get()));
    HR_TRY_QUIET(item->DBUpdate());
    return run.hashes->SetHash(found.entryId.Get(), found.hash.Get(), found.flags);
}

// Finds the item's row, or makes one.
HRESULT CResendFolder::Identify(Run& run, CItem& item) noexcept
{
    HR_TRY_QUIET(item.put_Action(qv_ac_Modified));
    if (item.DBRead(run.database) == S_OK)
        return S_OK;
    HR_TRY_QUIET(item.put_Action(qv_ac_Added));
    item.m_dblVersion = kPresentVersion;
    return item.DBAppend(run.database);
}

HRESULT CResendFolder::OfferChange(Run& run, CItem& item) noexcept
{
    ComPtr<IItem> offered;
    HR_TRY_QUIET(item.QueryInterface(IID_IItem, offered.PutVoid()));
    bool ignored = false;
    HR_TRY_QUIET(run.addin.OnItemResend(offered.Get(), m_bstrJobID.Get(), ignored));
    if (ignored)
        return S_OK;
    ComPtr<IUnknown> message;
    HR_TRY_QUIET(offered->get_Raw(message.Put()));
    return offered->Send(m_bstrRecipients.Get());
}

HRESULT CResendFolder::ResendDeleted(Run& run, ULONG index) noexcept
{
    Bstr entryId;
    HR_TRY_QUIET(run.found.deleted.Read(index, entryId));
    ComPtr<CItem> item;
    HR_TRY_QUIET(MakeItem(entryId.Get(), m_bstrFolderEntryID, m_bstrFolderID, item));
    HR_TRY_QUIET(item->put_Action(qv_ac_Deleted));
    if (item->DBRead() == S_OK)
        HR_TRY_QUIET(OfferDeletion(run, *item.Get()));
    return run.hashes->SetHash(entryId.Get(), nullptr, 0);
}

// A deletion goes to the folder's usual members, for whom its entry identifier stands.
HRESULT CResendFolder::OfferDeletion(Run& run, CItem& item) noexcept
{
    ComPtr<IItem> offered;
    HR_TRY_QUIET(item.QueryInterface(IID_IItem, offered.PutVoid()));
    bool ignored = false;
    HR_TRY_QUIET(run.addin.OnItemDeleted(offered.Get(), ignored));
    if (!ignored)
        HR_TRY_QUIET(offered->Send(m_bstrFolderEntryID.Get()));
    return item.DBDelete();
}

HRESULT CResendFolder::MakeItem(BSTR entryId, const Bstr& folderEntryId, const Bstr& folderId,
                                ComPtr<CItem>& item) noexcept
{
    item = MakeComObject<CItem>(m_pSession);
    if (!item)
        return E_OUTOFMEMORY;
    HR_TRY_QUIET(item->m_bstrEntryID.Assign(entryId));
    HR_TRY_QUIET(item->m_bstrStoreID.Assign(m_bstrStoreID.Get()));
    HR_TRY_QUIET(item->m_bstrFolderEntryID.Assign(folderEntryId.Get()));
    return item->m_bstrFolderID.Assign(folderId.Get());
}

}  // namespace quorvane
