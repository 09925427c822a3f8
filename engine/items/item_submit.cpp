// Applying an item to the store.
#include "engine/items/arguments.h"
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
#include "engine/session/options/options.h"
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

// Applying an item, received or by the host: finds its message, and makes, replaces or deletes it.
//
// openFolder  HRESULT(BSTR entryId, ComPtr<IMAPIFolder>&): the folder that a new message is made in.
// replace     HRESULT(IMessage& local).
// remove      HRESULT(LocalMessageId&, IMAPIFolder&): deletes a message of a folder, with what is kept of it.
template <class OpenFolder, class Replace, class Remove>
HRESULT CItem::Apply(IMsgStore& store, OpenFolder openFolder, Replace replace, Remove remove) noexcept
{
    const Traced traced{"CItem::Submit"};
    ComPtr<IMessage> local;
    const HRESULT found = FindLocalMessage(store, m_bstrEntryID.Get(), local);
    if (!m_pMessage && !local)
        return found;
    Bstr parent;
    ComPtr<IMAPIFolder> folder;
    if (!m_pMessage) {
        LocalMessageId id;
        HR_TRY(traced, id.Read(*local));
        HR_TRY(traced, ParentEntryId(parent));
        HR_TRY(traced, OpenEntryById(store, parent.Get(), MAPI_MODIFY, folder));
        return traced(remove(id, *folder));
    }
    HR_TRY(traced, CheckRow());
    if (!local) {
        HR_TRY(traced, ParentEntryId(parent));
        HR_TRY(traced, openFolder(parent.Get(), folder));
        HR_TRY(traced, folder ? CreateLocalMessage(*folder, local) : E_FAIL);
    }
    return traced(replace(*local));
}

HRESULT CItem::Submit(DatabaseSession& session, CMapiObjectsCache& cache) noexcept
{
    const Traced traced{"CItem::Submit"};
    ComPtr<IMsgStore> store;
    if (!m_bstrStoreID.IsEmpty())
        HR_TRY(traced, cache.OpenStore(m_bstrStoreID.Get(), store.Put()));
    if (!store)
        return E_INVALIDARG;
    return Apply(
        *store,
        [&](BSTR id, ComPtr<IMAPIFolder>& folder) { return cache.OpenFolder(id, store.Get(), folder.Put()); },
        [&](IMessage& local) { return ReplaceReceived(local, session); },
        [&](LocalMessageId& id, IMAPIFolder& folder) {
            ForgottenHash hash(m_pSession->HashStores(), m_bstrFolderID, m_bstrEntryID);
            const HRESULT hr = DeleteWithRow(session, id, folder);
            if (FAILED(hr))
                hash.PutBack();
            return hr;
        });
}

// The host's own way: no lock, no hash, no exclusions, no word to the host.
HRESULT CItem::Submit()
{
    const Traced traced{"CItem::Submit"};
    const SessionUse use(m_pSession);
    HR_TRY(traced, use.Result());
    BinaryId storeId;
    if (m_bstrStoreID.IsEmpty() || FAILED(EntryIdFromHex(m_bstrStoreID.Get(), storeId)))
        return traced(E_INVALIDARG);
    ComPtr<IMsgStore> store;
    HR_TRY(traced, OpenStoreById(*m_pSession, m_bstrStoreID.Get(), MDB_NO_MAIL | MDB_WRITE, store));
    return Apply(
        *store,
        [&](BSTR id, ComPtr<IMAPIFolder>& folder) { return OpenEntryById(*store, id, MAPI_MODIFY, folder); },
        [&](IMessage& local) { return ReplaceLocal(local); },
        [&](LocalMessageId& id, IMAPIFolder& folder) {
            DatabaseSession session;
            if (SUCCEEDED(m_pSession->Database().OpenSession(session)))
                return DeleteWithRow(session, id, folder);
            HR_IGNORE(DBDelete(), "the deletion of the message decides");
            return id.DeleteFrom(folder);
        });
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
