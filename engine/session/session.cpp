#include "engine/session/session.h"

#include <new>
#include <utility>

#include "engine/folders/folders.h"
#include "engine/monitor/msg_stores.h"
#include "engine/session/context/addin.h"
#include "engine/session/options/options.h"
#include "engine/session/trace/trace.h"
#include "engine/storeaccess/mapi_functions.h"
#include "engine/transfer/storage_files.h"

namespace quorvane {

std::atomic<bool> CSession2::g_bShuttingDown{false};

namespace {

constexpr ULONG kReceiveConcurrency = 1;
constexpr ULONG kResendConcurrency = 2;

}  // namespace

CSession2::CSession2() noexcept = default;

CSession2::~CSession2()
{
    const Traced traced{"CSession2::~CSession2"};
    traced.Line("Shutdown");
    StopPools();
    StopNotifications();
    EndLink();
    RevokeAddin();
    m_pHashDB.reset();
    ReleaseCollections();
    ReleaseMapi();
}

void CSession2::StopPools() noexcept
{
    m_pReceivePool.reset();
    if (m_pCancellations)
        m_pCancellations->CloseAndWait();
    m_pResendPool.reset();
}

// A batch under way uses the host, the hash stores and the collections until it ends. The subscriptions end
// later, with the folders: what they bring until then is turned away at the gate.
void CSession2::StopNotifications() noexcept
{
    if (m_pNotifications)
        m_pNotifications->CloseAndWait();
}

// The host hears of it, so no lock is held.
void CSession2::RevokeAddin() noexcept
{
    ComPtr<IGlobalInterfaceTable> table;
    DWORD cookie = 0;
    {
        const MutexLock lock(m_csGIT);
        table = std::move(m_pGIT);
        cookie = m_dwAddinCookie;
    }
    if (table)
        HR_IGNORE(table->RevokeInterfaceFromGlobal(cookie), "the table is let go of in any case");
}

void CSession2::ReleaseCollections() noexcept
{
    ComPtr<IFolders> folders;
    ComPtr<IOptions> options;
    ComPtr<IStorageFiles> storageFiles;
    {
        const MutexLock lock(m_csCollections);
        folders = std::move(m_pFolders);
        options = std::move(m_pOptions);
        storageFiles = std::move(m_pStorageFiles);
    }
    folders.Reset();
    options.Reset();
    storageFiles.Reset();
}

void CSession2::ReleaseMapi() noexcept
{
    if (m_dwSessionAdvise != 0 && m_pMAPISession)
        HR_IGNORE(m_pMAPISession->Unadvise(m_dwSessionAdvise), "the session goes in any case");
    m_pMsgStores.Reset();
    m_pMAPISession.Reset();
    if (m_bMapiInitialized)
        mapi::MAPIUninitialize();
}

HRESULT CSession2::RegisterAddin(IUnknown* addin) noexcept
{
    ComPtr<IGlobalInterfaceTable> table;
    HR_TRY_QUIET(CoCreateInstance(CLSID_StdGlobalInterfaceTable, nullptr, CLSCTX_INPROC_SERVER,
                                  IID_IGlobalInterfaceTable, table.PutVoid()));
    DWORD cookie = 0;
    HR_TRY_QUIET(table->RegisterInterfaceInGlobal(addin, IID_IUnknown, &cookie));
    const MutexLock lock(m_csGIT);
    m_pGIT = std::move(table);
    m_dwAddinCookie = cookie;
    return S_OK;
}

HRESULT CSession2::Logon() noexcept
{
    const Traced traced{"CSession2::Logon"};
    g_bShuttingDown = false;
    HR_TRY(traced, InitializeMapi());
    m_pNotifications = NotificationGate::Create();
    m_pCancellations = NotificationGate::Create();
    if (!m_pNotifications || !m_pCancellations)
        return traced(E_OUTOFMEMORY);
    const auto msgStores = MakeComObject<CMsgStores>(this);
    HR_TRY(traced, msgStores ? msgStores.As(m_pMsgStores) : E_OUTOFMEMORY);
    HR_TRY(traced, MakePools());
    HR_IGNORE(m_hItemSubmitEvent.Create(true, "ItemSubmitEvent"),
              "without the event nothing can wait for a writer, and the writers go on");
    return traced(
        mapi::MAPILogonEx(0, nullptr, nullptr, MAPI_EXTENDED | MAPI_USE_DEFAULT, m_pMAPISession.Put()));
}

HRESULT CSession2::InitializeMapi() noexcept
{
    MAPIINIT_0 init{0, MAPI_MULTITHREAD_NOTIFICATIONS};
    HR_TRY_QUIET(mapi::MAPIInitialize(&init));
    m_bMapiInitialized = true;
    return S_OK;
}

HRESULT CSession2::MakePools() noexcept
{
    m_pReceivePool.reset(new (std::nothrow) CCustomThreadPool);
    m_pResendPool.reset(new (std::nothrow) CCustomThreadPool);
    m_pHashDB.reset(new (std::nothrow) CHashDBMap);
    if (!m_pReceivePool || !m_pResendPool || !m_pHashDB)
        return E_OUTOFMEMORY;
    HR_TRY_QUIET(m_pReceivePool->Init(kReceiveConcurrency));
    return m_pResendPool->Init(kResendConcurrency);
}

HRESULT CSession2::OpenDataSource() noexcept
{
    const Traced traced{"CSession2::OpenDataSource"};
    Addin addin;
    HR_TRY(traced, addin.Connect(*this));
    HR_TRY(traced, addin.DatabasePath(m_bstrDBPath));
    try {
        const OleString connection = ConnectionStringFor(m_bstrDBPath.View());
        return TracedStatement(traced, m_DataSource.Open(connection));
    } catch (const std::bad_alloc&) {
        return traced(E_OUTOFMEMORY);
    }
}

HRESULT CSession2::UpgradeDB() noexcept
{
    return quorvane::UpgradeDB(m_DataSource);
}

HRESULT CSession2::GetAddin(ComPtr<IQuorvaneExt>& addin) noexcept
{
    addin.Reset();
    ComPtr<IGlobalInterfaceTable> table;
    DWORD cookie = 0;
    {
        const MutexLock lock(m_csGIT);
        table = m_pGIT;
        cookie = m_dwAddinCookie;
    }
    if (!table)
        return E_UNEXPECTED;
    ComPtr<IUnknown> host;
    HR_TRY_QUIET(table->GetInterfaceFromGlobal(cookie, IID_IUnknown, host.PutVoid()));
    return host.As(addin);
}

bool CSession2::TakeItemLock(BSTR entryId, BSTR storeId) noexcept
{
    if (!m_LockedItems.IsLocked(entryId, storeId))
        return false;
    HR_IGNORE(DropLock(entryId, storeId), "it has no failure");
    return true;
}

HRESULT CSession2::RememberMovedItem(BSTR entryId, BSTR id) noexcept
{
    return m_NotifyMap.Remember(entryId, id);
}

HRESULT CSession2::FindMovedItem(BSTR entryId, BSTR* id) noexcept
{
    return m_NotifyMap.Find(entryId, id);
}

HRESULT CSession2::ForgetMovedItem(BSTR entryId) noexcept
{
    return m_NotifyMap.Forget(entryId);
}

HRESULT CSession2::InterfaceSupportsErrorInfo(REFIID riid)
{
    return IsEqualIID(riid, IID_ISession2) ? S_OK : S_FALSE;
}

ULONG CSession2::OnNotify(ULONG, LPNOTIFICATION)
{
    const Traced traced{"CSession2::OnNotify"};
    traced.Line("CSession2::OnNotify");
    return 0;
}

HRESULT CSession2::get_Folders(IFolders** pVal)
{
    const MutexLock lock(m_csCollections);
    if (!m_pFolders) {
        const auto folders = MakeComObject<CFolders>(this);
        if (folders)
            HR_TRY_QUIET(folders.As(m_pFolders));
    }
    return m_pFolders.CopyTo(pVal);
}

HRESULT CSession2::get_StorageFiles(IStorageFiles** pVal)
{
    const Traced traced{"CSession2::get_StorageFiles"};
    {
        const MutexLock lock(m_csCollections);
        if (m_pStorageFiles)
            return m_pStorageFiles.CopyTo(pVal);
    }
    const auto files = MakeComObject<CStorageFiles>(this);
    HR_TRY(traced, files ? files->Init() : E_OUTOFMEMORY);
    const MutexLock lock(m_csCollections);
    if (!m_pStorageFiles)
        HR_TRY(traced, files.As(m_pStorageFiles));
    return m_pStorageFiles.CopyTo(pVal);
}

HRESULT CSession2::get_Options(IOptions** pVal)
{
    const Traced traced{"CSession2::get_Options"};
    const MutexLock lock(m_csCollections);
    if (!m_pOptions) {
        const auto options = MakeComObject<COptions>(this);
        if (!options)
            return traced(E_OUTOFMEMORY);
        Variant ignoreTimes = Variant::Long(-1);
        HR_TRY(traced, ignoreTimes.ChangeType(VT_BOOL));
        HR_TRY(traced, options->Add(kIgnoreModificationTimeChanges, ignoreTimes.Raw()));
        HR_TRY(traced, options->Add(kNoListeners, Variant::Long(0).Raw()));
        HR_TRY(traced, options.As(m_pOptions));
    }
    return m_pOptions.CopyTo(pVal);
}

HRESULT CSession2::get_DBPath(BSTR* pVal)
{
    return m_bstrDBPath.CopyTo(pVal);
}

HRESULT CSession2::get_Raw(IUnknown** pVal)
{
    const Traced traced{"CSession2::get_Raw"};
    if (!pVal)
        return E_POINTER;
    *pVal = nullptr;
    if (!m_pMAPISession)
        return E_HANDLE;
    return traced(m_pMAPISession.As(pVal));
}

}  // namespace quorvane
