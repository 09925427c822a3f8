// Applying a received item to the store.
#include "engine/items/entry.h"
#include "engine/items/exclusions.h"
#include "engine/items/item.h"
#include "engine/items/local_message.h"
#include "engine/items/row_change.h"
#include "engine/items/submit_scope.h"
#include "engine/persist/database.h"
#include "engine/persist/hash_db.h"
#include "engine/persist/statements.h"
#include "engine/session/context/addin.h"
#include "engine/storeaccess/objects_cache.h"

namespace quorvane {

namespace {

// Makes a hash store forget an item, whose deletion is then no change to report.
class ForgottenHash {
public:
    ForgottenHash(CHashDBMap& stores, const Bstr& folderId, const Bstr& entryId) noexcept
        : store_(stores.Find(folderId.Get())), entryId_(entryId)
    {
        LONG flags = 0;
        if (store_ && SUCCEEDED(store_->GetHash(entryId.Get(), hash_.Put(), &flags)))
            flags_ = flags;
        stores.SetHash(entryId.Get(), folderId.Get(), nullptr);
    }

    // Recalls it: the item is still there.
    void PutBack() noexcept
    {
        if (store_ && !hash_.IsEmpty())
            HR_IGNORE(store_->SetHash(entryId_.Get(), hash_.Get(), flags_), "as of a hash that is set");
    }

private:
    CHashDB* const store_;
    const Bstr& entryId_;
    Bstr hash_;
    LONG flags_ = 0;
};

}  // namespace

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
    if (m_pMessage)
        HR_TRY(traced, CheckRow());
    if (!local && m_pMessage)
        HR_TRY(traced, CreateReceived(*store, cache, local));
    if (local && m_pMessage)
        return traced(ReplaceReceived(*local, session));
    if (local)
        return traced(DeleteReceived(*store, *local, session));
    return found;
}

// A message whose row can't be written would be another one at each delivery.
HRESULT CItem::CheckRow() const noexcept
{
    StatementParameters row;
    return row.Text(width::kId, m_bstrID.Get()).Result();
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
    return RewriteRow(session);
}

HRESULT CItem::DeleteReceived(IMsgStore& store, IMessage& local, DatabaseSession& session) noexcept
{
    LocalMessageId id;
    HR_TRY_QUIET(id.Read(local));
    Bstr parent;
    HR_TRY_QUIET(ParentEntryId(parent));
    ComPtr<IMAPIFolder> folder;
    HR_TRY_QUIET(OpenEntryById(store, parent.Get(), MAPI_MODIFY, folder));
    ForgottenHash hash(m_pSession->HashStores(), m_bstrFolderID, m_bstrEntryID);
    const HRESULT hr = DeleteWithRow(session, id, *folder);
    if (FAILED(hr))
        hash.PutBack();
    return hr;
}

// A message that can't be deleted keeps its row, so that it remains the item that it is.
HRESULT CItem::DeleteWithRow(DatabaseSession& session, LocalMessageId& id, IMAPIFolder& folder) noexcept
{
    RowChange change(session);
    HR_IGNORE(DBDelete(session), "the deletion of the message decides");
    const HRESULT hr = id.DeleteFrom(folder);
    if (SUCCEEDED(hr))
        HR_IGNORE(TracedStatement(Traced{"CItem::DBDelete"}, change.Commit()), "as of the statement");
    return hr;
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
