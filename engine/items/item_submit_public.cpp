// The host's own way of applying an item: no lock, no hash, no exclusions, no word to the host.
#include "engine/items/arguments.h"
#include "engine/items/entry.h"
#include "engine/items/item.h"
#include "engine/items/local_message.h"
#include "engine/persist/database.h"
#include "engine/session/options/options.h"

namespace quorvane {

HRESULT CItem::Submit()
{
    const Traced traced{"CItem::Submit"};
    BinaryId storeId;
    if (m_bstrStoreID.IsEmpty() || FAILED(EntryIdFromHex(m_bstrStoreID.Get(), storeId)))
        return traced(E_INVALIDARG);
    ComPtr<IMsgStore> store;
    HR_TRY(traced, OpenStoreById(*m_pSession, m_bstrStoreID.Get(), MDB_NO_MAIL | MDB_WRITE, store));

    ComPtr<IMessage> local;
    const HRESULT found = FindLocalMessage(*store, m_bstrEntryID.Get(), local);
    if (m_pMessage)
        HR_TRY(traced, CheckRow());
    if (!local && m_pMessage)
        HR_TRY(traced, CreateLocal(*store, local));
    if (local && m_pMessage)
        return traced(ReplaceLocal(*local));
    if (local)
        return traced(DeleteLocal(*store, *local));
    return found;
}

HRESULT CItem::CreateLocal(IMsgStore& store, ComPtr<IMessage>& local) noexcept
{
    Bstr parent;
    HR_TRY_QUIET(ParentEntryId(parent));
    ComPtr<IMAPIFolder> folder;
    HR_TRY_QUIET(OpenEntryById(store, parent.Get(), MAPI_MODIFY, folder));
    return CreateLocalMessage(*folder, local);
}

// A folder without options leaves "ItemSubmitEvent" reset: that is this form's way, and what waits for the
// event waits for the next item.
HRESULT CItem::ReplaceLocal(IMessage& local) noexcept
{
    m_pSession->ItemSubmitEvent().Reset();
    bool leaveReset = false;
    const HRESULT hr = WriteLocal(local, leaveReset);
    if (!leaveReset)
        m_pSession->ItemSubmitEvent().Set();
    return hr;
}

HRESULT CItem::WriteLocal(IMessage& local, bool& leaveReset) noexcept
{
    const Traced traced{"CItem::Submit"};
    HR_IGNORE(traced(DeleteAllProperties(traced, local)), "what is left is overwritten");
    HR_TRY_QUIET(DeleteAtachments(&local));
    HR_TRY_QUIET(DeleteRecipients(&local));
    HR_TRY_QUIET(ClearMessageExtras(&local));
    HR_TRY_QUIET(
        m_pMessage->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMAPIProp, &local, MAPI_DIALOG, nullptr));
    ULONG readFlag = CLEAR_READ_FLAG;
    HR_TRY_QUIET(ChooseReadFlag(readFlag, leaveReset));
    HR_TRY_QUIET(local.SetReadFlag(readFlag));
    HR_TRY_QUIET(local.SaveChanges(KEEP_OPEN_READONLY));
    m_pMessage.Reset();
    HR_TRY_QUIET(put_Raw(&local));
    return RewriteRow();
}

// Unread, unless the folder keeps the item's own read state.
HRESULT CItem::ChooseReadFlag(ULONG& readFlag, bool& optionsMissing) noexcept
{
    const Traced traced{"CItem::Submit"};
    ComPtr<IFolder> folder;
    HR_TRY_QUIET(get_Folder(folder.Put()));
    ComPtr<IOptions> options;
    if (const HRESULT hr = folder->get_Options(options.Put()); FAILED(hr)) {
        optionsMissing = true;
        return hr;
    }
    bool update = true;
    HR_IGNORE(traced(ReadBooleanOption(options.Get(), kUpdateReadStatus, update)), "true is the default");
    readFlag = update && !m_bUnRead ? 0 : CLEAR_READ_FLAG;
    return S_OK;
}

HRESULT CItem::DeleteLocal(IMsgStore& store, IMessage& local) noexcept
{
    LocalMessageId id;
    HR_TRY_QUIET(id.Read(local));
    Bstr parent;
    HR_TRY_QUIET(ParentEntryId(parent));
    ComPtr<IMAPIFolder> folder;
    HR_TRY_QUIET(OpenEntryById(store, parent.Get(), MAPI_MODIFY, folder));
    DatabaseSession session;
    if (SUCCEEDED(m_pSession->Database().OpenSession(session)))
        return DeleteWithRow(session, id, *folder);
    HR_IGNORE(DBDelete(), "the deletion of the message decides");
    return id.DeleteFrom(*folder);
}

}  // namespace quorvane
