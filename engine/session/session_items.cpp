#include "engine/items/item.h"
#include "engine/persist/statements.h"
#include "engine/session/session.h"
#include "engine/session/trace/trace.h"

namespace quorvane {

namespace {

// A longer ID has no place in the database.
constexpr UINT kIdLimit = 50;

}  // namespace

HRESULT CSession2::GetItemFromID(VARIANT ID, VARIANT EntryID, VARIANT, IItem** pVal)
{
    const Traced traced{"CSession2::GetItemFromID"};
    if (!pVal)
        return E_POINTER;
    *pVal = nullptr;
    const auto item = MakeComObject<CItem>(this);
    if (!item)
        return traced(E_OUTOFMEMORY);
    HR_TRY_QUIET(FindItem(ID, EntryID, *item.Get()));
    HR_TRY(traced, CompleteItem(*item.Get()));
    return item->QueryInterface(IID_IItem, reinterpret_cast<void**>(pVal));
}

// The later lookup decides when both are asked for.
HRESULT CSession2::FindItem(const VARIANT& id, const VARIANT& entryId, CItem& item) noexcept
{
    HRESULT hr = E_INVALIDARG;
    if (id.vt == VT_BSTR) {
        HR_TRY_QUIET(item.m_bstrID.Assign(id.bstrVal));
        const bool found = item.m_bstrID.Length() < kIdLimit && item.DBReadByID() == S_OK;
        hr = found ? S_OK : DISP_E_MEMBERNOTFOUND;
    }
    if (entryId.vt == VT_BSTR) {
        HR_TRY_QUIET(item.m_bstrEntryID.Assign(entryId.bstrVal));
        hr = item.DBRead() == S_OK ? S_OK : DISP_E_MEMBERNOTFOUND;
    }
    return hr;
}

// An item whose message or folder isn't there is still an item, of no folder.
HRESULT CSession2::CompleteItem(CItem& item) noexcept
{
    ComPtr<IUnknown> message;
    ComPtr<IFolder> folder;
    HRESULT hr = item.get_Raw(message.Put());
    if (SUCCEEDED(hr))
        hr = item.get_Folder(folder.Put());
    if (SUCCEEDED(hr) && folder)
        return folder->get_ID(item.m_bstrFolderID.Put());
    try {
        item.m_bstrFolderID = Bstr(OleStringView());
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT CSession2::OpenLongSession() noexcept
{
    const MutexLock lock(m_csDBSession);
    return m_DBSession.IsOpen() ? S_OK : m_DataSource.OpenSession(m_DBSession);
}

HRESULT CSession2::ImportItem(BSTR ID, BSTR EntryID, BSTR StoreID)
{
    const Traced traced{"CSession2::ImportItem"};
    HR_TRY(traced, OpenLongSession());
    StatementParameters parameters;
    parameters.Text(width::kId, ID).Text(width::kEntryId, EntryID).Text(width::kStoreId, StoreID);
    return TracedStatement(traced, m_DBSession.Execute(statements::kImportItem, parameters));
}

HRESULT CSession2::DeleteItem(BSTR ID)
{
    const Traced traced{"CSession2::DeleteItem"};
    DatabaseSession session;
    HR_TRY(traced, m_DataSource.OpenSession(session));
    StatementParameters parameters;
    parameters.Text(width::kId, ID);
    return TracedStatement(traced, session.Execute(statements::kDeleteItem, parameters));
}

HRESULT CSession2::LockItem(BSTR EntryID, BSTR StoreID, VARIANT_BOOL AutoUnlock)
{
    m_LockedItems.Lock(EntryID, StoreID, AutoUnlock);
    return S_OK;
}

HRESULT CSession2::UnlockItem(BSTR ItemID, BSTR StoreID)
{
    return m_LockedItems.Unlock(ItemID, StoreID);
}

HRESULT CSession2::IsItemLocked(BSTR EntryID, BSTR StoreID, VARIANT_BOOL* rVal)
{
    if (!rVal)
        return E_POINTER;
    *rVal = m_LockedItems.IsLocked(EntryID, StoreID) ? VARIANT_TRUE : VARIANT_FALSE;
    return S_OK;
}

HRESULT CSession2::DropLock(BSTR EntryID, BSTR StoreID)
{
    m_LockedItems.Drop(EntryID, StoreID);
    return S_OK;
}

}  // namespace quorvane
