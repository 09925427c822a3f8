#include "engine/transfer/storage_file.h"

#include <algorithm>
#include <new>

#include "engine/items/message_storage.h"
#include "engine/persist/database.h"
#include "engine/persist/statements.h"
#include "engine/session/trace/trace.h"
#include "engine/transfer/package_layout.h"
#include "engine/transfer/storage_path.h"
#include "platform/cfb/stg.h"
#include "platform/file/path.h"

namespace quorvane {

namespace {

// Makes an empty package in place of the file at `path`.
HRESULT CreatePackage(const OleString& path) noexcept
{
    ComPtr<IStorage> root;
    HR_TRY_QUIET(StgCreateDocfile(path.c_str(), kCreateMode, 0, root.Put()));
    ComPtr<IStorage> version;
    HR_TRY_QUIET(root->CreateStorage(kVersionName, kCreateMode, 0, 0, version.Put()));
    ComPtr<IStorage> folders;
    HR_TRY_QUIET(version->CreateStorage(kFoldersName, kCreateMode, 0, 0, folders.Put()));
    ComPtr<IStorage> items;
    HR_TRY_QUIET(version->CreateStorage(kItemsName, kCreateMode, 0, 0, items.Put()));
    return version->Commit(STGC_DEFAULT);  // a release couldn't tell that they aren't there
}

// Opens a storage once; one that is open stays.
HRESULT OpenOnce(IStorage& parent, const OLECHAR* name, ComPtr<IStorage>& storage) noexcept
{
    return storage ? S_OK : parent.OpenStorage(name, nullptr, kOpenMode, nullptr, 0, storage.Put());
}

}  // namespace

CStorageFile::CStorageFile(SessionContext* session, Kept kept) noexcept
    : m_pSession(session), m_pKept(std::move(kept))
{
    HR_IGNORE(m_Event.Create(true), "Lock tries again");
}

HRESULT CStorageFile::Restore(BSTR recipients, BSTR path, VARIANT_BOOL isLocked) noexcept
{
    MutexLock lock(m_Guard);
    HR_TRY_QUIET(m_bstrRecipients.Assign(recipients));
    HR_TRY_QUIET(m_bstrPath.Assign(path));
    m_bIsLocked = isLocked;
    return S_OK;
}

HRESULT CStorageFile::get_Recipients(BSTR* pVal)
{
    MutexLock lock(m_Guard);
    return m_bstrRecipients.CopyTo(pVal);
}

HRESULT CStorageFile::put_Recipients(BSTR newVal)
try {
    const Traced traced{"CStorageFile::put_Recipients"};
    MutexLock lock(m_Guard);
    std::string path;
    HR_TRY(traced, MakePackagePath(path));
    const OleString widePath = Widen(path);
    Bstr textPath(widePath);
    Bstr recipients = Bstr::CopyOf(newVal);
    if (const HRESULT hr = CreatePackage(widePath); FAILED(hr)) {
        HR_IGNORE(RemoveFile(path), "what stands there is half a package");
        m_bstrPath = Bstr();
        return traced(hr);
    }
    if (m_Event.IsSet())
        Close();
    m_bstrPath = std::move(textPath);
    m_bstrRecipients = std::move(recipients);
    return S_OK;
} catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
}

HRESULT CStorageFile::get_Path(BSTR* pVal)
{
    MutexLock lock(m_Guard);
    return m_bstrPath.CopyTo(pVal);
}

HRESULT CStorageFile::put_Path(BSTR newVal)
{
    MutexLock lock(m_Guard);
    if (m_Event.IsSet())
        Close();
    return m_bstrPath.Assign(newVal);
}

HRESULT CStorageFile::get_isLocked(VARIANT_BOOL* pVal)
{
    if (!pVal)
        return E_POINTER;
    MutexLock lock(m_Guard);
    *pVal = m_bIsLocked;
    return S_OK;
}

HRESULT CStorageFile::put_isLocked(VARIANT_BOOL newVal)
{
    const Traced traced{"CStorageFile::put_isLocked"};
    Bstr path;
    HR_TRY_QUIET(get_Path(path.Put()));
    {
        MutexLock lock(m_Guard);
        m_bIsLocked = newVal;
    }
    DatabaseSession session;
    HR_TRY(traced, m_pSession->Database().OpenSession(session));
    StatementParameters parameters;
    parameters.Short(newVal).Text(width::kStatusPath, path.Get());
    HR_IGNORE(session.Execute(statements::kSetStorageFileStatus, parameters), "the field is what counts");
    return S_OK;
}

HRESULT CStorageFile::OpenRoot() noexcept
{
    if (m_pRoot)
        return S_OK;
    const HRESULT hr =
        StgOpenStorage(m_bstrPath.View().data(), nullptr, kOpenMode, nullptr, 0, m_pRoot.Put());
    // A damaged package is of no use to anybody; any other may open the next time.
    if (!IsDamage(hr))
        return hr;
    HR_IGNORE(RemoveFile(Narrow(m_bstrPath.View())), "the next open tells");
    return StgOpenStorage(m_bstrPath.View().data(), nullptr, kOpenMode, nullptr, 0, m_pRoot.Put());
}

HRESULT CStorageFile::OpenPart(const OLECHAR* name, ComPtr<IStorage>& part) noexcept
{
    HR_TRY_QUIET(OpenRoot());
    HR_TRY_QUIET(OpenOnce(*m_pRoot, kVersionName, m_pVersion));
    return OpenOnce(*m_pVersion, name, part);
}

HRESULT CStorageFile::CreateElement(IStorage& part, BSTR id, VARIANT* pVal)
{
    ComPtr<IStorage> element;
    HR_TRY_QUIET(part.CreateStorage(ElementName(id).c_str(), kCreateMode, 0, 0, element.Put()));
    ComPtr<IUnknown> unknown;
    HR_TRY_QUIET(element.As(unknown));
    pVal->vt = VT_UNKNOWN;
    pVal->punkVal = unknown.Detach();
    return S_OK;
}

HRESULT CStorageFile::OpenFolder(BSTR ID, VARIANT* pVal)
try {
    const Traced traced{"CStorageFile::OpenFolder"};
    if (!pVal)
        return E_POINTER;
    VariantInit(pVal);
    MutexLock lock(m_Guard);
    HR_TRY(traced, OpenPart(kFoldersName, m_pFolders));
    return traced(CreateElement(*m_pFolders, ID, pVal));
} catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
}

HRESULT CStorageFile::OpenItem(BSTR ID, VARIANT* pVal)
try {
    const Traced traced{"CStorageFile::OpenItem"};
    if (!pVal)
        return E_POINTER;
    VariantInit(pVal);
    MutexLock lock(m_Guard);
    HR_TRY(traced, OpenPart(kItemsName, m_pItems));
    return traced(CreateElement(*m_pItems, ID, pVal));
} catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
}

HRESULT CStorageFile::DestroyFolder(BSTR id)
try {
    MutexLock lock(m_Guard);
    HR_TRY_QUIET(OpenPart(kFoldersName, m_pFolders));
    return m_pFolders->DestroyElement(ElementName(id).c_str());
} catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
}

HRESULT CStorageFile::DestroyItem(BSTR id)
try {
    MutexLock lock(m_Guard);
    HR_TRY_QUIET(OpenPart(kItemsName, m_pItems));
    return m_pItems->DestroyElement(ElementName(id).c_str());
} catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
}

// Whoever finds the event set and resets it has the turn.
bool CStorageFile::TakeTurn(Timeout timeout) noexcept
{
    using Clock = std::chrono::steady_clock;
    const Clock::time_point deadline = Clock::now() + timeout;
    for (;;) {
        const auto left = std::chrono::ceil<Timeout>(deadline - Clock::now());
        if (!m_Event.Wait(std::max(left, Timeout::zero())))
            return false;
        MutexLock lock(m_Guard);
        if (m_Event.IsSet()) {
            m_Event.Reset();
            return true;
        }
    }
}

// The event may be missing because memory was short when the package was made.
bool CStorageFile::HasEvent() noexcept
{
    MutexLock lock(m_Guard);
    return m_Event.Exists() || SUCCEEDED(m_Event.Create(true));
}

HRESULT CStorageFile::Lock()
{
    if (!HasEvent())
        return E_FAIL;
    // A writer that takes too long isn't waited for.
    const bool taken = TakeTurn(kLockTimeout);
    MutexLock lock(m_Guard);
    m_bIsLocked = VARIANT_TRUE;
    if (!taken)
        m_Event.Reset();
    return S_OK;
}

HRESULT CStorageFile::Unlock()
{
    MutexLock lock(m_Guard);
    m_bIsLocked = VARIANT_FALSE;
    // One that was forgotten is the host's.
    if (!m_pKept || !*m_pKept || m_bstrPath.IsEmpty())
        Close();
    m_Event.Set();
    return S_OK;
}

void CStorageFile::Close() noexcept
{
    m_pFolders.Reset();
    m_pItems.Reset();
    m_pVersion.Reset();
    m_pRoot.Reset();
}

void CStorageFile::CloseIdle() noexcept
{
    MutexLock lock(m_Guard);
    if (m_Event.IsSet())
        Close();
}

HRESULT CStorageFile::Delete()
{
    HR_IGNORE(Lock(), "a package without an event is deleted all the same");
    HR_IGNORE(Forget(), "the row stays, and goes at the next start when its file has gone");
    return Unlock();
}

// Empties the fields and removes the row; only when the database can be reached.
HRESULT CStorageFile::Forget() noexcept
try {
    const Traced traced{"CStorageFile::Delete"};
    DatabaseSession session;
    HR_TRY_QUIET(m_pSession->Database().OpenSession(session));
    StatementParameters parameters;
    {
        Bstr noRecipients{OleStringView()};
        Bstr noPath{OleStringView()};
        MutexLock lock(m_Guard);
        parameters.Text(width::kDeletedFilePath, m_bstrPath.Get());
        m_bstrRecipients = std::move(noRecipients);
        m_bstrPath = std::move(noPath);
        m_bIsLocked = VARIANT_FALSE;
    }
    return TracedStatement(traced, session.Execute(statements::kDeleteStorageFile, parameters));
} catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
}

}  // namespace quorvane
