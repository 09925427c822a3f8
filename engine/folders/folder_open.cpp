// Opening the MAPI folder behind a shared folder, and listening to it.
#include <new>
#include <string>

#include "engine/folders/folder.h"
#include "engine/items/entry.h"
#include "engine/persist/hash_db.h"
#include "engine/session/options/options.h"
#include "engine/session/trace/trace.h"
#include "platform/file/path.h"

namespace quorvane {

namespace {

// Where the hash files of a database's folders lie: beside it, in "qvdata", in a directory named as the
// database without its extension. Ends with a separator. Throws std::bad_alloc.
std::string HashDirectory(const std::string& databasePath)
{
    const std::string data = JoinPath(DirectoryOf(databasePath), "qvdata");
    return JoinPath(data, BaseNameOf(databasePath)) + PathSeparator();
}

}  // namespace

HRESULT CFolder::OpenStore(ULONG Flags, IUnknown** pStore)
{
    const Traced traced{"CFolder::OpenStore"};
    if (!pStore)
        return E_POINTER;
    *pStore = nullptr;
    ComPtr<IMsgStore> store;
    HR_TRY(traced, OpenStoreById(*m_pSession, m_bstrStoreID.Get(), Flags, store));
    *pStore = store.Detach();
    return S_OK;
}

HRESULT CFolder::OpenMapiFolder(ULONG storeFlags, ComPtr<IMsgStore>& store, ComPtr<IUnknown>& folder) noexcept
{
    if (m_bstrEntryID.IsEmpty() || m_bstrStoreID.IsEmpty())
        return E_POINTER;
    HR_TRY_QUIET(OpenStoreById(*m_pSession, m_bstrStoreID.Get(), storeFlags, store));
    return OpenEntryById(*store, m_bstrEntryID.Get(), 0, folder);
}

HRESULT CFolder::Validate()
{
    const Traced traced{"CFolder::Validate"};
    ComPtr<IMsgStore> store;
    ComPtr<IUnknown> folder;
    return traced(OpenMapiFolder(0, store, folder));
}

HRESULT CFolder::get_Raw(IUnknown** pVal)
{
    const Traced traced{"CFolder::get_Raw"};
    if (!pVal)
        return E_POINTER;
    *pVal = nullptr;
    ComPtr<IMsgStore> store;
    ComPtr<IUnknown> folder;
    HR_TRY(traced, OpenMapiFolder(0, store, folder));
    return traced(folder.As(pVal));
}

HRESULT CFolder::OpenFolder() noexcept
{
    const Traced traced{"CFolder::OpenFolder"};
    if (m_bstrEntryID.IsNull() || m_bstrStoreID.IsNull())
        return E_POINTER;
    ComPtr<IUnknown> opened;
    HR_TRY(traced, OpenStore(MDB_NO_MAIL, opened.Put()));
    ComPtr<IMsgStore> store;
    HR_TRY(traced, opened.As(store));
    ComPtr<IMAPIContainer> folder;
    HR_TRY(traced, OpenEntryById(*store, m_bstrEntryID.Get(), 0, folder));
    if (IsSessionOptionSet(traced, *m_pSession, kNoListeners))
        return S_OK;
    return traced(Listen(store.Get(), *folder));
}

HRESULT CFolder::Listen(IMsgStore* store, IMAPIContainer& folder) noexcept
try {
    Listening listening;
    HR_TRY_QUIET(folder.GetContentsTable(0, listening.contentsTable.Put()));
    listening.adviseSink = MakeComObject<CAdviseSink>();
    if (!listening.adviseSink)
        return E_OUTOFMEMORY;
    HR_TRY_QUIET(ProvideHashStore());
    m_Listenings.push_back(std::move(listening));

    Listening& current = m_Listenings.back();
    HR_TRY_QUIET(FillSink(*current.adviseSink, store, current.contentsTable.Get()));
    return current.contentsTable->Advise(fnevTableModified, current.adviseSink.Get(),
                                         &current.adviseConnection);
} catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
}

HRESULT CFolder::ProvideHashStore() noexcept
try {
    if (m_pSession->HashStores().Find(m_bstrID.Get()))
        return S_OK;
    Bstr databasePath;
    HR_TRY_QUIET(m_pSession->GetDatabasePath(databasePath));
    const std::string directory = HashDirectory(Narrow(databasePath.View()));
    HR_IGNORE(MakeDirectories(directory), "commonly it is there; a store without a file works in memory");
    const LONG added = m_pSession->HashStores().Add(m_bstrID.Get(), Bstr(Widen(directory)).Get());
    return added == 1 ? S_OK : E_OUTOFMEMORY;
} catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
}

HRESULT CFolder::FillSink(CAdviseSink& sink, IMsgStore* store, IMAPITable* table) noexcept
{
    sink.SetSession(m_pSession);
    sink.m_pStore = ComPtr<IMsgStore>(store);
    sink.m_pTable = ComPtr<IMAPITable>(table);
    HR_TRY_QUIET(sink.m_bstrEntryID.Assign(m_bstrEntryID.Get()));
    HR_TRY_QUIET(sink.m_bstrStoreID.Assign(m_bstrStoreID.Get()));
    sink.m_pRestriction = m_pRestriction;
    HR_TRY_QUIET(sink.m_bstrFolderID.Assign(m_bstrID.Get()));
    sink.SetFolder(this);
    sink.m_bCompareFlags = VARIANT_FALSE;
    return S_OK;
}

}  // namespace quorvane
