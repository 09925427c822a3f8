#include "engine/folders/folders.h"

#include <new>

#include "engine/folders/folder.h"
#include "engine/items/entry.h"
#include "engine/items/new_id.h"
#include "engine/session/trace/trace.h"
#include "platform/com/enum_variant.h"
#include "platform/com/variant.h"

namespace quorvane {

namespace {

// The collection's element as a caller's VARIANT.
HRESULT GiveFolder(const ComPtr<IFolder>& folder, VARIANT* pvar) noexcept
{
    return Variant::Dispatch(folder.Get()).CopyTo(pvar);
}

// Whether a folder's text equals an argument that is a text. A folder that can't tell it is passed over.
using TextGetter = HRESULT (STDMETHODCALLTYPE IFolder::*)(BSTR*);
enum class Match { No, Yes, Unreadable };

Match MatchText(IFolder& folder, TextGetter getter, const VARIANT& wanted) noexcept
{
    if (wanted.vt != VT_BSTR)
        return Match::No;
    Bstr text;
    if (FAILED((folder.*getter)(text.Put())))
        return Match::Unreadable;
    return BstrEqual(text.Get(), wanted.bstrVal) ? Match::Yes : Match::No;
}

bool IsWanted(IFolder& folder, const VARIANT& id, const VARIANT& entryId) noexcept
{
    const Match byId = MatchText(folder, &IFolder::get_ID, id);
    if (byId != Match::No)
        return byId == Match::Yes;
    return MatchText(folder, &IFolder::get_EntryID, entryId) == Match::Yes;
}

// Makes a folder the engine's: its ID (which no other folder may have), its store, and its entry
// identifier, which opens it.
HRESULT Configure(const ComPtr<IFolder>& folder, BSTR id, BSTR storeId, BSTR entryId) noexcept
{
    HR_TRY_QUIET(folder->put_ID(id));
    HR_TRY_QUIET(folder->put_StoreID(storeId));
    return folder->put_EntryID(entryId);
}

}  // namespace

CFolders::Entries CFolders::Snapshot() const
{
    MutexLock lock(m_Lock);
    return Entries(m_Folders.begin(), m_Folders.end());
}

bool CFolders::Contains(BSTR entryId) const noexcept
{
    MutexLock lock(m_Lock);
    return m_Folders.find(entryId) != m_Folders.end();
}

HRESULT CFolders::Insert(BSTR entryId, const ComPtr<IFolder>& folder) noexcept
try {
    MutexLock lock(m_Lock);
    return m_Folders.emplace(Bstr::CopyOf(entryId), folder).second ? S_OK : E_FAIL;
} catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
}

HRESULT CFolders::Add(BSTR EntryID, BSTR StoreID, VARIANT ID, VARIANT ProgressBar, IFolder** pVal)
{
    const Traced traced{"CFolders::Add"};
    if (!pVal)
        return E_POINTER;
    *pVal = nullptr;
    if (Contains(EntryID))
        return E_FAIL;
    Bstr id;
    HR_TRY(traced, TakeOrMakeId(ID, id));
    const ComPtr<CFolder> made = MakeComObject<CFolder>(m_pSession);
    if (!made)
        return traced(E_OUTOFMEMORY);

    const ComPtr<IFolder> folder(made.Get());
    HR_TRY(traced, Configure(folder, id.Get(), StoreID, EntryID));
    HR_TRY(traced, Insert(EntryID, folder));
    if (const HRESULT hr = made->ResumeResend(ProgressBar); FAILED(hr))
        Trace(traced.Function(), __LINE__, "ResumeResend failed: 0x%x\r\n", static_cast<unsigned>(hr));
    return folder.CopyTo(pVal);
}

HRESULT CFolders::Find(VARIANT ID, VARIANT EntryID, VARIANT /*StoreID*/, IFolder** pVal)
try {
    if (!pVal)
        return E_POINTER;
    *pVal = nullptr;
    for (const auto& [key, folder] : Snapshot()) {
        if (IsWanted(*folder.Get(), ID, EntryID))
            return folder.As(pVal);
    }
    return DISP_E_MEMBERNOTFOUND;
} catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
}

HRESULT CFolders::get_Item(VARIANT Index, VARIANT* pvar)
{
    Variant index;
    HR_TRY_QUIET(index.Assign(Index));
    if (!index.Is(VT_BSTR)) {
        Variant number;
        if (SUCCEEDED(number.Assign(index.Raw())) && SUCCEEDED(number.ChangeType(VT_I4)))
            HR_IGNORE(get_Item(number.Raw().lVal, pvar), "the digits are looked up as a text all the same");
        HR_TRY_QUIET(index.ChangeType(VT_BSTR));
    }
    if (!index.Raw().bstrVal)
        return E_INVALIDARG;
    return FindByIdentity(index.Raw().bstrVal, pvar);
}

HRESULT CFolders::FindByIdentity(BSTR entryId, VARIANT* pvar) noexcept
try {
    const Traced traced{"CFolders::get_Item"};
    if (!pvar)
        return E_POINTER;
    BinaryId wanted;
    HR_TRY(traced, EntryIdFromHex(entryId, wanted));
    for (const auto& [key, folder] : Snapshot()) {
        BinaryId candidate;
        bool same = false;
        if (FAILED(traced(EntryIdFromHex(key.Get(), candidate))) ||
            FAILED(traced(CompareIds(*m_pSession, wanted, candidate, same))))
            continue;
        if (same)
            return GiveFolder(folder, pvar);
    }
    return E_FAIL;
} catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
}

HRESULT CFolders::get_Item(LONG index, VARIANT* pvar) noexcept
{
    if (!pvar)
        return E_POINTER;
    VariantInit(pvar);
    if (index < 1)
        return E_INVALIDARG;
    ComPtr<IFolder> folder;
    {
        MutexLock lock(m_Lock);
        if (static_cast<size_t>(index) > m_Folders.size())
            return E_FAIL;
        folder = std::next(m_Folders.begin(), index - 1)->second;
    }
    return GiveFolder(folder, pvar);
}

HRESULT CFolders::get_Count(LONG* pVal)
{
    if (!pVal)
        return E_POINTER;
    MutexLock lock(m_Lock);
    *pVal = static_cast<LONG>(m_Folders.size());
    return S_OK;
}

HRESULT CFolders::get__NewEnum(IUnknown** pVal)
try {
    if (!pVal)
        return E_POINTER;
    *pVal = nullptr;
    std::vector<Variant> folders;
    for (const auto& [key, folder] : Snapshot())
        folders.push_back(Variant::Dispatch(folder.Get()));
    return CEnumVariant::Create(std::move(folders), pVal);
} catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
}

HRESULT CFolders::Remove(VARIANT Index)
{
    Variant index;
    HR_TRY_QUIET(index.Assign(Index));
    if (!index.Is(VT_BSTR)) {
        Variant number;
        if (SUCCEEDED(number.Assign(index.Raw())) && SUCCEEDED(number.ChangeType(VT_I4)))
            return RemoveByIndex(number.Raw().lVal);
        HR_TRY_QUIET(index.ChangeType(VT_BSTR));
    }
    // The folder ends its listening when it goes, so it goes behind the lock.
    ComPtr<IFolder> removed;
    MutexLock lock(m_Lock);
    const auto entry = m_Folders.find(index.Raw().bstrVal);
    if (entry == m_Folders.end())
        return E_FAIL;
    removed = std::move(entry->second);
    m_Folders.erase(entry);
    return S_OK;
}

HRESULT CFolders::RemoveByIndex(LONG index) noexcept
{
    ComPtr<IFolder> removed;
    MutexLock lock(m_Lock);
    if (index < 1 || static_cast<size_t>(index) > m_Folders.size())
        return E_INVALIDARG;
    const auto entry = std::next(m_Folders.begin(), index - 1);
    removed = std::move(entry->second);
    m_Folders.erase(entry);
    return S_OK;
}

}  // namespace quorvane
