// folders/resend_folder.h: CResendFolder, the job that brings new recipients up to date with a folder.
//
// The job compares the folder with its hash store, offers what it found to the host item by item, sends what
// the host doesn't refuse, and records the new state. Each item finds or makes its package itself. A failure
// of one item is traced and drops that item alone.
//
// Nothing resumes a job: what it has done stays known, and since the comparison has made the hash store
// current, the rest is found again only by a job that sends everything.
#ifndef QUORVANE_ENGINE_FOLDERS_RESEND_FOLDER_H_
#define QUORVANE_ENGINE_FOLDERS_RESEND_FOLDER_H_

#include "engine/session/context/session_context.h"
#include "engine/transfer/pool/thread_pool.h"
#include "platform/com/bstr.h"
#include "platform/com/marshaled_interface.h"

namespace quorvane {

class CItem;

// Made on the caller's thread, runs once on a thread of the resend pool, in a single-threaded apartment of
// its own: what belongs to other apartments comes through streams or the global interface table, so that the
// host is called where it lives.
class CResendFolder final : public IWorkingThread {
public:
    // Folder        [in]  a reference is kept; its identifiers are copied.
    // Store         [in]  the folder's message store; crosses as IMsgStore.
    // Progress      [in]  hears how far the job is; may be null.
    // Restriction   [in]  decides which items are offered; may be null.
    // Recipients    [in]  whose package the items go into.
    // JobID         [in]  for onItemResend; may be null.
    // Reserved      [in]  not used.
    // ResendAll     [in]  1: every item is sent, 0: only those that differ from the hash store.
    // CompareFlags  [in]  anything but 0: an item whose flags alone have changed differs too.
    //
    // An interface that can't cross is found missing by the job. Throws std::bad_alloc.
    CResendFolder(IFolder* Folder, IUnknown* Store, IQuorvaneProgress* Progress,
                  IQuorvaneRestrict* Restriction, BSTR Recipients, BSTR JobID, double Reserved,
                  ULONG ResendAll, VARIANT_BOOL CompareFlags);
    // The owner; not counted, and waits for the job before it goes. Set before the job is queued.
    SessionContext* m_pSession = nullptr;

    // Runs the job in its apartment. The result of the last operation: of the item that was treated last, or
    // of the step that ended the job before any. A stop ends the job between two items.
    DWORD ThreadProc(Event& stop) override;

private:
    struct Run;

    HRESULT ResendThreadProc(Event& stop) noexcept;
    HRESULT Prepare(Run& run) noexcept;
    HRESULT Scan(Run& run) noexcept;
    void ResendChangedItems(Run& run, Event& stop) noexcept;
    void ResendDeletedItems(Run& run, Event& stop) noexcept;

    // One item of a list of the scan. The failure that ended the work on it; nothing is traced here.
    HRESULT ResendChanged(Run& run, ULONG index) noexcept;
    HRESULT ResendDeleted(Run& run, ULONG index) noexcept;
    HRESULT MakeItem(BSTR entryId, const Bstr& folderEntryId, const Bstr& folderId,
                     ComPtr<CItem>& item) noexcept;
    static HRESULT Identify(Run& run, CItem& item) noexcept;
    HRESULT OfferChange(Run& run, CItem& item) noexcept;
    HRESULT OfferDeletion(Run& run, CItem& item) noexcept;

    const ComPtr<IFolder> m_pFolder;
    const Bstr m_bstrRecipients;
    const Bstr m_bstrJobID;
    const Bstr m_bstrFolderEntryID;
    const Bstr m_bstrFolderID;
    const Bstr m_bstrStoreID;
    const ULONG m_ulResendAll;
    LONG m_lTotal = 0;
    const VARIANT_BOOL m_bCompareFlags;
    MarshaledInterface m_ProgressStream;
    MarshaledInterface m_StoreStream;
    MarshaledInterface m_RestrictionStream;
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_FOLDERS_RESEND_FOLDER_H_
