#include "engine/items/item.h"

#include "engine/items/arguments.h"
#include "engine/items/entry.h"
#include "engine/session/trace/trace.h"

namespace quorvane {

namespace {

// A property's text into a field; a property that can't be read leaves the field as it was.
void KeepText(CItem& item, ULONG tag, Bstr& field) noexcept
{
    Variant value;
    if (FAILED(item.GetProperty(TagArgument(tag), value.Put())) || FAILED(value.ChangeType(VT_BSTR)))
        return;
    HR_IGNORE(field.Assign(value.Raw().bstrVal), "the field stays as it was");
}

}  // namespace

CItem::~CItem()
{
    Leave();
    ReleaseMessage();
}

void CItem::ReleaseMessage() noexcept
{
    m_pMessage.Reset();
    m_pMessageStorage.Reset();
    m_MessageSession.Close();
    m_pMessageLockBytes.Reset();
}

HRESULT CItem::InterfaceSupportsErrorInfo(REFIID riid)
{
    return IsEqualIID(riid, IID_IItem) ? S_OK : S_FALSE;
}

HRESULT CItem::get_ID(BSTR* pVal)
{
    return m_bstrID.CopyTo(pVal);
}

HRESULT CItem::put_ID(BSTR newVal)
{
    if (!m_bstrID.IsEmpty())
        HR_TRY_QUIET(m_bstrPreviousID.Assign(m_bstrID.Get()));
    return m_bstrID.Assign(newVal);
}

HRESULT CItem::get_EntryID(BSTR* pVal)
{
    return m_bstrEntryID.CopyTo(pVal);
}

HRESULT CItem::put_EntryID(BSTR newVal)
{
    return m_bstrEntryID.Assign(newVal);
}

HRESULT CItem::get_StoreID(BSTR* pVal)
{
    return m_bstrStoreID.CopyTo(pVal);
}

HRESULT CItem::get_CustomInfo(BSTR* pVal)
{
    return m_bstrCustomInfo.CopyTo(pVal);
}

HRESULT CItem::put_CustomInfo(BSTR newVal)
{
    return m_bstrCustomInfo.Assign(newVal);
}

HRESULT CItem::get_ExcludedProperties(SAFEARRAY** pVal)
{
    return m_ExcludedProperties.CopyTo(pVal);
}

HRESULT CItem::put_ExcludedProperties(SAFEARRAY** newVal)
{
    return newVal ? m_ExcludedProperties.Assign(*newVal) : E_POINTER;
}

HRESULT CItem::get_Action(qv_Action* pVal)
{
    if (!pVal)
        return E_POINTER;
    *pVal = static_cast<qv_Action>(m_lAction);
    return S_OK;
}

HRESULT CItem::put_Action(qv_Action newVal)
{
    m_lAction = newVal;
    return S_OK;
}

HRESULT CItem::put_Raw(IUnknown* newVal)
{
    const SessionUse use(m_pSession);
    HR_TRY_QUIET(use.Result());
    ComPtr<IMessage> message;
    HR_TRY_QUIET(QueryFor(newVal, message));
    m_pMessage = std::move(message);

    KeepText(*this, PR_STORE_ENTRYID, m_bstrStoreID);
    KeepText(*this, PR_ENTRYID, m_bstrEntryID);
    Variant modified;
    if (SUCCEEDED(GetProperty(TagArgument(PR_LAST_MODIFICATION_TIME), modified.Put())) &&
        SUCCEEDED(modified.ChangeType(VT_R8)))
        m_dblLastModified = modified.Raw().dblVal;
    return S_OK;
}

HRESULT CItem::OpenLiveMessage() noexcept
{
    if (m_bstrEntryID.IsEmpty() || m_bstrStoreID.IsEmpty())
        return E_INVALIDARG;
    ComPtr<IMsgStore> store;
    HR_TRY_QUIET(OpenStoreById(*m_pSession, m_bstrStoreID.Get(), 0, store));
    return OpenEntryById(*store, m_bstrEntryID.Get(), 0, m_pMessage);
}

HRESULT CItem::get_Raw(IUnknown** pVal)
{
    const Traced traced{"CItem::get_Raw"};
    if (!pVal)
        return E_POINTER;
    *pVal = nullptr;
    const SessionUse use(m_pSession);
    HR_TRY(traced, use.Result());
    if (!m_pMessage && m_lAction != qv_ac_Deleted)
        HR_TRY(traced, OpenLiveMessage());
    return m_pMessage.As(pVal);
}

HRESULT CItem::get_Folder(IFolder** pVal)
{
    const Traced traced{"CItem::get_Folder"};
    if (!pVal)
        return E_POINTER;
    *pVal = nullptr;
    const SessionUse use(m_pSession);
    HR_TRY(traced, use.Result());
    if (m_bstrFolderEntryID.IsEmpty()) {
        Variant parent;
        HR_TRY(traced, GetProperty(TagArgument(PR_PARENT_ENTRYID), parent.Put()));
        HR_TRY(traced, parent.Is(VT_BSTR) ? m_bstrFolderEntryID.Assign(parent.Raw().bstrVal) : E_FAIL);
    }
    ComPtr<IFolders> folders;
    HR_TRY(traced, m_pSession->GetFolders(folders));
    return folders->Find(NoArgument(), TextArgument(m_bstrFolderEntryID.Get()),
                         TextArgument(m_bstrStoreID.Get()), pVal);
}

}  // namespace quorvane
