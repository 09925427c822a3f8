#include "engine/folders/folder.h"

#include <new>

#include "engine/items/arguments.h"
#include "engine/items/item.h"
#include "engine/items/new_id.h"
#include "engine/session/options/options.h"
#include "engine/session/trace/trace.h"
#include "platform/com/error_text.h"

namespace quorvane {

CFolder::~CFolder()
{
    for (const Listening& listening : m_Listenings) {
        listening.adviseSink->DropFolder();
        if (listening.adviseConnection)
            HR_IGNORE(listening.contentsTable->Unadvise(listening.adviseConnection),
                      "the table goes with the folder");
    }
}

HRESULT CFolder::ResumeResend(const VARIANT& /*progressBar*/) noexcept
{
    return S_OK;
}

HRESULT CFolder::InterfaceSupportsErrorInfo(REFIID riid)
{
    return IsEqualIID(riid, IID_IFolder) ? S_OK : S_FALSE;
}

HRESULT CFolder::get_EntryID(BSTR* pVal)
{
    return m_bstrEntryID.CopyTo(pVal);
}

HRESULT CFolder::put_EntryID(BSTR newVal)
{
    const Traced traced{"CFolder::put_EntryID"};
    HR_TRY(traced, m_bstrEntryID.Assign(newVal));
    return traced(OpenFolder());
}

HRESULT CFolder::get_StoreID(BSTR* pVal)
{
    return m_bstrStoreID.CopyTo(pVal);
}

HRESULT CFolder::put_StoreID(BSTR newVal)
{
    return m_bstrStoreID.Assign(newVal);
}

HRESULT CFolder::get_CustomInfo(BSTR* pVal)
{
    return m_bstrCustomInfo.CopyTo(pVal);
}

HRESULT CFolder::put_CustomInfo(BSTR newVal)
{
    return m_bstrCustomInfo.Assign(newVal);
}

HRESULT CFolder::get_ID(BSTR* pVal)
{
    return m_bstrID.CopyTo(pVal);
}

HRESULT CFolder::put_ID(BSTR newVal)
{
    const Traced traced{"CFolder::put_ID"};
    ComPtr<IFolders> folders;
    HR_TRY(traced, m_pSession->GetFolders(folders));
    ComPtr<IFolder> other;
    const HRESULT hr = folders->Find(TextArgument(newVal), NoArgument(), NoArgument(), other.Put());
    if (hr == DISP_E_MEMBERNOTFOUND)
        return m_bstrID.Assign(newVal);
    if (hr != S_OK)
        return hr;
    return RaiseError(IID_IFolder, OLESTR("quorvane3.Folder.1"), OLESTR("Folder already exists"),
                      DISP_E_EXCEPTION);
}

HRESULT CFolder::get_IgnoreEvents(VARIANT_BOOL* pVal)
{
    if (!pVal)
        return E_POINTER;
    *pVal = m_bIgnoreEvents;
    return S_OK;
}

HRESULT CFolder::put_IgnoreEvents(VARIANT_BOOL newVal)
{
    m_bIgnoreEvents = newVal;
    return S_OK;
}

HRESULT CFolder::get_Restriction(IQuorvaneRestrict** pVal)
{
    if (!pVal)
        return E_POINTER;
    *pVal = nullptr;
    return m_pRestriction.As(pVal);
}

HRESULT CFolder::put_Restriction(IQuorvaneRestrict* newVal)
{
    ComPtr<IQuorvaneRestrict> asked;
    const HRESULT hr = QueryFor(newVal, asked);
    static_cast<void>(asked.Detach());  // a folder keeps no restriction; the host's reference stays counted
    return hr;
}

HRESULT CFolder::CreateOptions() noexcept
{
    const ComPtr<COptions> options = MakeComObject<COptions>(m_pSession);
    if (!options)
        return E_OUTOFMEMORY;
    HR_TRY_QUIET(options->Add(kUpdateReadStatus, Variant::Bool(true).Raw()));
    return options.As(m_pOptions);
}

HRESULT CFolder::get_Options(IOptions** pVal)
{
    const Traced traced{"CFolder::get_Options"};
    if (!pVal)
        return E_POINTER;
    *pVal = nullptr;
    MutexLock lock(m_OptionsLock);
    if (!m_pOptions)
        HR_TRY(traced, CreateOptions());
    return m_pOptions.As(pVal);
}

HRESULT CFolder::CreateItem(VARIANT Stream, VARIANT ID, IItem** pVal)
{
    const Traced traced{"CFolder::CreateItem"};
    if (!pVal)
        return E_POINTER;
    *pVal = nullptr;
    const ComPtr<CItem> item = MakeComObject<CItem>(m_pSession);
    if (!item)
        return traced(E_OUTOFMEMORY);
    HR_TRY(traced, TakeOrMakeId(ID, item->m_bstrID));
    HR_TRY(traced, item->m_bstrFolderEntryID.Assign(m_bstrEntryID.Get()));
    HR_TRY(traced, item->m_bstrStoreID.Assign(m_bstrStoreID.Get()));
    HR_TRY(traced, item->m_bstrFolderID.Assign(m_bstrID.Get()));
    HR_TRY(traced, item->put_Stream(Stream));
    return item.As(pVal);
}

}  // namespace quorvane
