// session/session.h: CSession2, which owns everything that lives as long as one logon.
//
// Start, as CLibrary::Logon runs it: global interface table with the host in it, trace log, MAPI, pools and
// hash stores, MAPI logon, data source, database upgrade. Stop, in the destructor: pools (every job is waited
// for), notification batches (those under way are waited for, further ones turned away), items' handles
// (their messages go, and so do further calls), global table, hash stores, collections, MAPI, and the
// database last.
//
// Children but items hold the session by a raw pointer (SessionContext) and none may outlive it. Two kinds of
// work could: pool jobs and notification batches. The destructor waits for both, and answers calls into its
// thread's apartment meanwhile, as either may be calling a host that lives there. So a host must not release
// its last reference from within a callback.
//
// Threading: made and destroyed on the host's thread; every other operation may be called from any thread.
#ifndef QUORVANE_ENGINE_SESSION_SESSION_H_
#define QUORVANE_ENGINE_SESSION_SESSION_H_

#include <atomic>
#include <memory>

#include "engine/monitor/item_locks.h"
#include "engine/persist/database.h"
#include "engine/persist/hash_db.h"
#include "engine/session/context/notification_gate.h"
#include "engine/session/context/operations.h"
#include "engine/session/context/session_context.h"
#include "engine/transfer/pool/thread_pool.h"
#include "platform/com/class_factory.h"
#include "platform/com/connection_point.h"
#include "platform/com/variant.h"
#include "quorvane3/commit_groups.h"

// The session's outgoing events: none.
struct _ISession2Events : IDispatch {};
QUORVANE_IID(_ISession2Events, DIID__ISession2Events);

namespace quorvane {

class CSession2 final
    : public ComObject<CSession2, ISupportErrorInfo, IMAPIAdviseSink,
                       ConnectionPointContainer<_ISession2Events>, DispatchImpl<ISession2>, ICommitGroups>,
      public SessionContext {
public:
    CSession2() noexcept;

    // Queues a received file. The failure of the pool; E_OUTOFMEMORY. E_UNEXPECTED: there was no logon.
    [[nodiscard]] virtual HRESULT QueueStorageFile(BSTR Path, BSTR Tag) noexcept;

    virtual ~CSession2();

    // The steps of a logon, in this order, each once. Failures are traced and returned; the destructor undoes
    // whatever stands.

    // Makes the global interface table and registers the host in it. E_POINTER: no host.
    [[nodiscard]] HRESULT RegisterAddin(IUnknown* addin) noexcept;
    // Starts MAPI, the pools and the hash stores, and logs on to the default profile.
    [[nodiscard]] HRESULT Logon() noexcept;
    // Opens the database that the host names.
    [[nodiscard]] HRESULT OpenDataSource() noexcept;
    // Adds to an older database what this version needs.
    [[nodiscard]] HRESULT UpgradeDB() noexcept;

    // Reads a setting of the host's product, as registry/registry.h keeps it.
    //
    // Name   [in]      of the value.
    // Value  [in,out]  VT_BSTR for a text, VT_I4 for a number; untouched for any other type, and after a
    //                  failure.
    //
    // S_OK: there is such a value, of whatever type. The code of the system: the product's key can't be
    // opened for reading and writing, or has no such value (neither is traced). Others (traced) come from the
    // host.
    [[nodiscard]] HRESULT GetRegSetting(OleStringView Name, Variant& Value) noexcept;

    // Takes over a subscription to the MAPI session as a whole, which then ends with this session. The engine
    // makes none. 0: none.
    void AdoptSessionAdvise(DWORD connection) noexcept { m_dwSessionAdvise = connection; }

    // SessionContext.
    IMAPISession* MapiSession() noexcept override { return m_pMAPISession.Get(); }
    DataSource& Database() noexcept override { return m_DataSource; }
    CHashDBMap& HashStores() noexcept override { return *m_pHashDB; }
    CCustomThreadPool* ReceivePool() noexcept override { return m_pReceivePool.get(); }
    CCustomThreadPool* ResendPool() noexcept override { return m_pResendPool.get(); }
    HRESULT GetAddin(ComPtr<IQuorvaneExt>& addin) noexcept override;
    HRESULT GetFolders(ComPtr<IFolders>& folders) noexcept override { return get_Folders(folders.Put()); }
    HRESULT GetStorageFiles(ComPtr<IStorageFiles>& files) noexcept override
    {
        return get_StorageFiles(files.Put());
    }
    HRESULT GetOptions(ComPtr<IOptions>& options) noexcept override { return get_Options(options.Put()); }
    HRESULT GetDatabasePath(Bstr& path) noexcept override { return get_DBPath(path.Put()); }
    bool TakeItemLock(BSTR entryId, BSTR storeId) noexcept override;
    Event& ItemSubmitEvent() noexcept override { return m_hItemSubmitEvent; }
    Mutex& SubmitLock() noexcept override { return m_csSubmit; }
    std::shared_ptr<NotificationGate> Notifications() noexcept override { return m_pNotifications; }
    HRESULT RememberMovedItem(BSTR entryId, BSTR id) noexcept override;
    HRESULT FindMovedItem(BSTR entryId, BSTR* id) noexcept override;
    HRESULT ForgetMovedItem(BSTR entryId) noexcept override;

    // ISupportErrorInfo: S_OK for ISession2, S_FALSE for all else.
    HRESULT STDMETHODCALLTYPE InterfaceSupportsErrorInfo(REFIID riid) override;

    // IMAPIAdviseSink: writes a trace line; 0.
    ULONG STDMETHODCALLTYPE OnNotify(ULONG cNotif, LPNOTIFICATION lpNotifications) override;

    // ICommitGroups.
    HRESULT STDMETHODCALLTYPE PutOffWaiting(BOOL putOff) override
    {
        return m_DataSource.WaitForDisk(!putOff);
    }

    // ISession2.
    HRESULT STDMETHODCALLTYPE get_Folders(IFolders** pVal) override;
    HRESULT STDMETHODCALLTYPE get_StorageFiles(IStorageFiles** pVal) override;
    // Takes a received file over: the file is the engine's from here on, which applies it in the background
    // and deletes it. Remembered in the database, so that ResumeJobs finds it after a crash; a failure to do
    // so is traced, and the file is queued all the same.
    HRESULT STDMETHODCALLTYPE ProcessStorageFile(BSTR Path, BSTR Tag) override;
    // Queues the files that an earlier run left, the latest first. Any flag but qv_rs_Both does nothing.
    HRESULT STDMETHODCALLTYPE ResumeJobs(LONG Flags) override;
    HRESULT STDMETHODCALLTYPE LockItem(BSTR EntryID, BSTR StoreID, VARIANT_BOOL AutoUnlock) override;
    // ItemID is the EntryID text all the same. E_FAIL: no such lock.
    HRESULT STDMETHODCALLTYPE UnlockItem(BSTR ItemID, BSTR StoreID) override;
    HRESULT STDMETHODCALLTYPE IsItemLocked(BSTR EntryID, BSTR StoreID, VARIANT_BOOL* rVal) override;
    HRESULT STDMETHODCALLTYPE DropLock(BSTR EntryID, BSTR StoreID) override;
    // Finds an item by its row: by ID, or by EntryID, which decides when both are given. StoreID isn't used.
    // DISP_E_MEMBERNOTFOUND: no row, or an ID of 50 characters or more. E_INVALIDARG: neither is a text.
    HRESULT STDMETHODCALLTYPE GetItemFromID(VARIANT ID, VARIANT EntryID, VARIANT StoreID,
                                            IItem** pVal) override;
    // Adds a row for an item. E_INVALIDARG: a text is too long. Others come from the database.
    HRESULT STDMETHODCALLTYPE ImportItem(BSTR ID, BSTR EntryID, BSTR StoreID) override;
    // Stops all resends, whatever the ID, without waiting for them, and forgets those that were recorded.
    HRESULT STDMETHODCALLTYPE CancelResend(VARIANT ID) override;
    HRESULT STDMETHODCALLTYPE get_Options(IOptions** pVal) override;
    HRESULT STDMETHODCALLTYPE get_DBPath(BSTR* pVal) override;
    // Removes an item's row alone; S_OK also when there was none.
    HRESULT STDMETHODCALLTYPE DeleteItem(BSTR ID) override;
    // The MAPI session. E_HANDLE: there is none.
    HRESULT STDMETHODCALLTYPE get_Raw(IUnknown** pVal) override;

    // Set by the last library of the process when it goes, cleared by a logon.
    static std::atomic<bool> g_bShuttingDown;

private:
    HRESULT InitializeMapi() noexcept;
    HRESULT MakePools() noexcept;
    void StopPools() noexcept;
    void StopNotifications() noexcept;
    void RevokeAddin() noexcept;
    void ReleaseCollections() noexcept;
    void ReleaseMapi() noexcept;
    HRESULT FindItem(const VARIANT& id, const VARIANT& entryId, class CItem& item) noexcept;
    HRESULT CompleteItem(class CItem& item) noexcept;
    HRESULT OpenLongSession() noexcept;

    Mutex m_csGIT;
    ComPtr<IGlobalInterfaceTable> m_pGIT QV_GUARDED_BY(m_csGIT);
    DWORD m_dwAddinCookie QV_GUARDED_BY(m_csGIT) = 0;
    DWORD m_dwSessionAdvise = 0;
    Bstr m_bstrDBPath;

    std::unique_ptr<CHashDBMap> m_pHashDB;
    Mutex m_csSubmit;
    Event m_hItemSubmitEvent;

    bool m_bMapiInitialized = false;
    ComPtr<IMAPISession> m_pMAPISession;
    ComPtr<IUnknown> m_pMsgStores;

    Mutex m_csCollections;
    ComPtr<IFolders> m_pFolders QV_GUARDED_BY(m_csCollections);
    ComPtr<IStorageFiles> m_pStorageFiles QV_GUARDED_BY(m_csCollections);
    ComPtr<IOptions> m_pOptions QV_GUARDED_BY(m_csCollections);

    std::unique_ptr<CCustomThreadPool> m_pReceivePool;
    std::unique_ptr<CCustomThreadPool> m_pResendPool;
    std::shared_ptr<NotificationGate> m_pNotifications;
    std::shared_ptr<NotificationGate> m_pCancellations;  // threads of CancelResend

    DataSource m_DataSource;
    Mutex m_csDBSession;
    DatabaseSession m_DBSession;  // opened by the first ImportItem, under m_csDBSession

    ItemLocks m_LockedItems;
    MovedItems m_NotifyMap;
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_SESSION_SESSION_H_
