#include "msgstore/store/msg_store.h"

#include <cstring>

#include "msgstore/store/identity.h"
#include "msgstore/store/store_rows.h"
#include "platform/com/bstr.h"
#include "quorvane3/message_store.h"

namespace quorvane {
namespace {

struct FirstFolder {
    FolderRole role;
    ULONG tag;
};
constexpr FirstFolder kFirstFolders[] = {
    {FolderRole::IpmSubtree, PR_IPM_SUBTREE_ENTRYID},
    {FolderRole::Outbox, PR_IPM_OUTBOX_ENTRYID},
    {FolderRole::SentItems, PR_IPM_SENTMAIL_ENTRYID},
    {FolderRole::DeletedItems, PR_IPM_WASTEBASKET_ENTRYID},
};
constexpr LONG kValidFolders = FOLDER_IPM_SUBTREE_VALID | FOLDER_IPM_INBOX_VALID | FOLDER_IPM_OUTBOX_VALID |
                               FOLDER_IPM_WASTEBASKET_VALID | FOLDER_IPM_SENTMAIL_VALID;

HRESULT FirstFolderId(StoreCore& core, FolderRole role, Bytes& id)
{
    return core.Read([&](SqliteConnection& connection) {
        FolderRow row;
        QV_RETURN_IF_FAILED(FindFolder(connection, static_cast<std::int64_t>(role), row));
        id = LongTermId(core.Guid(), MAPI_FOLDER, row.guid);
        return S_OK;
    });
}

// A copy in a buffer of MAPI's, for a caller.
HRESULT GiveBytes(const void* bytes, std::size_t size, void** result) noexcept
{
    QV_RETURN_IF_FAILED(MAPIAllocateBuffer(static_cast<ULONG>(size), result));
    std::memcpy(*result, bytes, size);
    return S_OK;
}

}  // namespace

CMsgStore::~CMsgStore()
{
    for (const ULONG connection : m_connections)
        (void)Store().session->Hub().Unadvise(
            connection);         // one that the session has ended already is no failure
    (void)PutOffWaiting(FALSE);  // can't fail
    (void)Gather(FALSE);         // who wants to know asks before
}

HRESULT CMsgStore::PutOffWaiting(BOOL putOff)
{
    if (m_putsOff.exchange(putOff != FALSE) != (putOff != FALSE))
        Store().core->PutOffSaves(putOff != FALSE);
    return S_OK;
}

HRESULT CMsgStore::Gather(BOOL gather)
{
    const bool isNew = m_gathers.exchange(gather != FALSE) != (gather != FALSE);
    return isNew ? Store().core->Gather(gather != FALSE) : S_OK;
}

HRESULT CMsgStore::LookForChanges()
{
    Store().core->TellListeners();
    return S_OK;
}

HRESULT CMsgStore::OpenObject(ULONG tag, REFIID iid, ULONG interfaceOptions, ULONG flags,
                              LPUNKNOWN* object) noexcept
{
    if (tag != kPrTestSwitches)
        return StoreProp::OpenObject(tag, iid, interfaceOptions, flags, object);
    return GiveTestSwitches(Store().core, iid, object);
}

HRESULT CMsgStore::ReadKept(PropertyBag& bag)
{
    return Store().core->Read([&](SqliteConnection& connection) {
        QV_RETURN_IF_FAILED(ReadStoreProperties(connection, bag));
        bool shortTermIds = false;
        QV_RETURN_IF_FAILED(ReadShortTermIds(connection, shortTermIds));
        bag.Put(PropertyValue::Boolean(kPrMessageStoreShortTermIds, shortTermIds));
        return S_OK;
    });
}

HRESULT CMsgStore::WriteKept(const PropertyBag& bag)
{
    PropertyBag kept = bag;
    const PropertyValue* const flag = kept.Find(kPrMessageStoreShortTermIds);
    const bool shortTermIds = flag && flag->AsInteger() != 0;
    kept.Erase(PROP_ID(kPrMessageStoreShortTermIds));
    return Store().core->Write(Durability::AtReturn, [&](SqliteConnection& connection) {
        QV_RETURN_IF_FAILED(WriteShortTermIds(connection, shortTermIds));
        return WriteStoreProperties(connection, kept);
    });
}

HRESULT CMsgStore::MakeDurable()
{
    return Store().core->Write(Durability::AtReturn, TouchStore);
}

HRESULT CMsgStore::ReadMade(ULONG, PropertyBag& bag)
{
    const StoreCore& core = *Store().core;
    PutStoreIdentity(core.Guid(), bag);
    bag.Put(BinaryProperty(PR_ENTRYID, StoreEntryId(core.Guid())));
    bag.Put(GuidProperty(PR_RECORD_KEY, core.Guid()));
    bag.Put(PropertyValue::Long(PR_OBJECT_TYPE, MAPI_STORE));
    bag.Put(PropertyValue::Long(PR_VALID_FOLDER_MASK, kValidFolders));
    bag.Put(PropertyValue::String8(kPrMessageStorePath, core.Path()));
    const StoreService* const service = Store().session->FindService(core.Guid());
    if (service)
        bag.Put(PropertyValue::Unicode(PR_DISPLAY_NAME_W, FromUtf8(service->displayName)));
    bag.Put(PropertyValue::Boolean(PR_DEFAULT_STORE, service == Store().session->Services().data()));
    return PutFirstFolders(bag);
}

HRESULT CMsgStore::PutFirstFolders(PropertyBag& bag)
{
    for (const FirstFolder& folder : kFirstFolders) {
        Bytes id;
        QV_RETURN_IF_FAILED(FirstFolderId(*Store().core, folder.role, id));
        bag.Put(BinaryProperty(folder.tag, id));
    }
    return S_OK;
}

HRESULT CMsgStore::Advise(ULONG idSize, LPENTRYID id, ULONG eventMask, LPMAPIADVISESINK sink,
                          ULONG* connection)
{
    return Guarded([&] {
        QV_RETURN_IF_FAILED(AdviseObjects(Store(), idSize, id, eventMask, sink, connection));
        const MutexLock lock(m_connectionsLock);
        m_connections.insert(*connection);
        return S_OK;
    });
}

HRESULT CMsgStore::Unadvise(ULONG connection)
{
    {
        const MutexLock lock(m_connectionsLock);
        if (m_connections.erase(connection) == 0)
            return MAPI_E_INVALID_PARAMETER;
    }
    (void)Store().session->Hub().Unadvise(
        connection);  // one that the session has ended already is no failure
    return S_OK;
}

HRESULT CMsgStore::CompareEntryIDs(ULONG size1, LPENTRYID id1, ULONG size2, LPENTRYID id2, ULONG,
                                   ULONG* result)
{
    if (!result || (size1 != 0 && !id1) || (size2 != 0 && !id2))
        return MAPI_E_INVALID_PARAMETER;
    return Guarded([&] {
        bool same = false;
        const ByteView first(reinterpret_cast<const BYTE*>(id1), size1);
        const ByteView second(reinterpret_cast<const BYTE*>(id2), size2);
        QV_RETURN_IF_FAILED(AreSameObject(*Store().core, first, second, same));
        *result = same;
        return S_OK;
    });
}

HRESULT CMsgStore::OpenEntry(ULONG idSize, LPENTRYID id, LPCIID iid, ULONG flags, ULONG* type,
                             LPUNKNOWN* object)
{
    return Guarded([&] { return quorvane::OpenObject(Store(), idSize, id, iid, flags, type, object); });
}

HRESULT CMsgStore::SetReceiveFolder(LPTSTR, ULONG, ULONG, LPENTRYID)
{
    return MAPI_E_NO_SUPPORT;
}

HRESULT CMsgStore::GetReceiveFolder(LPTSTR, ULONG, ULONG* idSize, LPENTRYID* id, LPTSTR* explicitClass)
{
    if (!idSize || !id)
        return MAPI_E_INVALID_PARAMETER;
    return Guarded([&] {
        Bytes inbox;
        QV_RETURN_IF_FAILED(FirstFolderId(*Store().core, FolderRole::Inbox, inbox));
        // One folder receives everything: the class that it is set for is the empty one, in either width.
        constexpr OLECHAR empty = 0;
        if (explicitClass)
            QV_RETURN_IF_FAILED(GiveBytes(&empty, sizeof(empty), reinterpret_cast<void**>(explicitClass)));
        QV_RETURN_IF_FAILED(GiveBytes(inbox.data(), inbox.size(), reinterpret_cast<void**>(id)));
        *idSize = static_cast<ULONG>(inbox.size());
        return S_OK;
    });
}

HRESULT CMsgStore::GetReceiveFolderTable(ULONG, LPMAPITABLE*)
{
    return MAPI_E_NO_SUPPORT;
}

HRESULT CMsgStore::StoreLogoff(ULONG*)
{
    // There is nothing to send and nothing to wait for.
    return S_OK;
}

HRESULT CMsgStore::AbortSubmit(ULONG, LPENTRYID, ULONG)
{
    return MAPI_E_NO_SUPPORT;
}

HRESULT CMsgStore::GetOutgoingQueue(ULONG, LPMAPITABLE*)
{
    return MAPI_E_NO_SUPPORT;
}

HRESULT CMsgStore::SetLockState(LPMESSAGE, ULONG)
{
    return MAPI_E_NO_SUPPORT;
}

HRESULT CMsgStore::FinishedMsg(ULONG, ULONG, LPENTRYID)
{
    return MAPI_E_NO_SUPPORT;
}

HRESULT CMsgStore::NotifyNewMail(LPNOTIFICATION)
{
    return MAPI_E_NO_SUPPORT;
}

HRESULT GiveStore(const std::shared_ptr<SessionState>& session, const ObjectGuid& store, LPCIID iid,
                  ULONG flags, LPUNKNOWN* object)
{
    OpenedStore opened{session, nullptr};
    QV_RETURN_IF_FAILED(session->OpenStore(store, opened.core));
    const auto made = MakeComObject<CMsgStore>(opened, (flags & (MDB_WRITE | MAPI_BEST_ACCESS)) != 0);
    if (!made)
        return E_OUTOFMEMORY;
    return made->QueryInterface(iid ? *iid : IID_IMsgStore, reinterpret_cast<void**>(object));
}

}  // namespace quorvane
