// Applying a received item to the store.
#include "engine/items/entry.h"
#include "engine/items/exclusions.h"
#include "engine/items/item.h"
#include "engine/items/local_message.h"
#include "engine/items/submit_scope.h"
#include "engine/persist/database.h"
#include "engine/persist/hash_db.h"
#include "engine/session/context/addin.h"
#include "engine/storeaccess/objects_cache.h"

namespace quorvane {

HRESULT CItem::Submit(DatabaseSession& session, CMapiObjectsCache& cache) noexcept
{
    const Traced traced{"CItem::Submit"};
    ComPtr<IMsgStore> store;
    if (!m_bstrStoreID.IsEmpty())
        HR_TRY(traced, cache.OpenStore(m_bstrStoreID.Get(), store.Put()));
    if (!store)
        return E_INVALIDARG;

    ComPtr<IMessage> local;
    const HRESULT found = FindLocalMessage(*store, m_bstrEntryID.Get(), local);
    if (!local && m_pMessage)
        HR_TRY(traced, CreateReceived(*store, cache, local));
    if (local && m_pMessage)
        return traced(ReplaceReceived(*local, session));
    if (local)
        return traced(DeleteReceived(*store, *local, session));
    return found;
}

HRESULT CItem::ParentEntryId(Bstr& entryId) noexcept
{
    ComPtr<IFolder> folder;
    HR_TRY_QUIET(get_Folder(folder.Put()));
    return folder->get_EntryID(entryId.Put());
}

HRESULT CItem::CreateReceived(IMsgStore& store, CMapiObjectsCache& cache, ComPtr<IMessage>& local) noexcept
{
    Bstr parent;
    HR_TRY_QUIET(ParentEntryId(parent));
    ComPtr<IMAPIFolder> folder;
    HR_TRY_QUIET(cache.OpenFolder(parent.Get(), &store, folder.Put()));
    return folder ? CreateLocalMessage(*folder, local) : E_FAIL;
}

HRESULT CItem::ReplaceReceived(IMessage& local, DatabaseSession& session) noexcept
{
    {
        const SubmitScope writing(*m_pSession);
        HR_TRY_QUIET(WriteReceived(local, session));
    }
    HR_IGNORE(Postprocess(), "the item is applied, whatever the host makes of it");
    return S_OK;
}

HRESULT CItem::WriteReceived(IMessage& local, DatabaseSession& session) noexcept
{
    const Traced traced{"CItem::Submit"};
    HR_TRY_QUIET(DeleteAllProperties(traced, local));
    HR_TRY_QUIET(DeleteAtachments(&local));
    HR_TRY_QUIET(DeleteRecipients(&local));
    TagList exclusions;
    HR_TRY_QUIET(AppliedExclusions(m_ExcludedProperties, *m_pMessage, exclusions));
    HR_TRY_QUIET(m_pMessage->CopyTo(0, nullptr, exclusions.Get(), 0, nullptr, &IID_IMessage, &local,
                                    MAPI_DIALOG, nullptr));
    HR_IGNORE(traced(local.SetReadFlag(CLEAR_READ_FLAG)), "what arrives is unread where that can be told");
    HR_TRY_QUIET(local.SaveChanges(KEEP_OPEN_READWRITE));

    // From here on the item stands for the live message.
    ReleaseMessage();
    HR_TRY_QUIET(put_Raw(&local));
    m_pSession->HashStores().SetHash(m_bstrEntryID.Get(), m_bstrFolderID.Get(), &local);
    HR_IGNORE(DBDelete(session), "there may be no row yet");
    return DBAppend(session);
}

HRESULT CItem::DeleteReceived(IMsgStore& store, IMessage& local, DatabaseSession& session) noexcept
{
    LocalMessageId id;
    HR_TRY_QUIET(id.Read(local));
    Bstr parent;
    HR_TRY_QUIET(ParentEntryId(parent));
    ComPtr<IMAPIFolder> folder;
    HR_TRY_QUIET(OpenEntryById(store, parent.Get(), MAPI_MODIFY, folder));
    HR_IGNORE(DBDelete(session), "the deletion of the message decides");
    m_pSession->HashStores().SetHash(m_bstrEntryID.Get(), m_bstrFolderID.Get(), nullptr);
    return id.DeleteFrom(*folder);
}

HRESULT CItem::Postprocess() noexcept
{
    Bstr entryId;
    Bstr storeId;
    HR_TRY_QUIET(entryId.Assign(m_bstrEntryID.Get()));
    HR_TRY_QUIET(storeId.Assign(m_bstrStoreID.Get()));
    return PostprocessThreadProc(entryId.Get(), storeId.Get());
}

HRESULT CItem::PostprocessThreadProc(BSTR entryId, BSTR storeId) noexcept
{
    const Traced traced{"CItem::PostprocessThreadProc"};
    Addin addin;
    HR_TRY(traced, addin.Connect(*m_pSession));
    return traced(addin.OnPostprocess(entryId, storeId));
}

}  // namespace quorvane
