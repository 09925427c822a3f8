// msgstore/store/msg_store.h: IMsgStore.
#ifndef QUORVANE_MSGSTORE_STORE_MSG_STORE_H_
#define QUORVANE_MSGSTORE_STORE_MSG_STORE_H_

#include <atomic>
#include <set>

#include "msgstore/store/made_properties.h"
#include "quorvane3/commit_groups.h"
#include "quorvane3/message_store.h"

namespace quorvane {

// One opening of a store. Subscriptions made through it end with it. Any thread may call.
class CMsgStore final : public StoreProp<CMsgStore, Answers<IMsgStore, IMAPIProp>, ICommitGroups,
                                         IGatheredSaves, IChangesOfOthers> {
public:
    CMsgStore(const OpenedStore& store, bool writable) : StoreProp(store, writable) {}
    ~CMsgStore();

    HRESULT STDMETHODCALLTYPE Advise(ULONG idSize, LPENTRYID id, ULONG eventMask, LPMAPIADVISESINK sink,
                                     ULONG* connection) override;
    HRESULT STDMETHODCALLTYPE Unadvise(ULONG connection) override;
    HRESULT STDMETHODCALLTYPE CompareEntryIDs(ULONG size1, LPENTRYID id1, ULONG size2, LPENTRYID id2,
                                              ULONG flags, ULONG* result) override;
    HRESULT STDMETHODCALLTYPE OpenEntry(ULONG idSize, LPENTRYID id, LPCIID iid, ULONG flags, ULONG* type,
                                        LPUNKNOWN* object) override;
    HRESULT STDMETHODCALLTYPE SetReceiveFolder(LPTSTR messageClass, ULONG flags, ULONG idSize,
                                               LPENTRYID id) override;
    HRESULT STDMETHODCALLTYPE GetReceiveFolder(LPTSTR messageClass, ULONG flags, ULONG* idSize, LPENTRYID* id,
                                               LPTSTR* explicitClass) override;
    HRESULT STDMETHODCALLTYPE GetReceiveFolderTable(ULONG flags, LPMAPITABLE* table) override;
    HRESULT STDMETHODCALLTYPE StoreLogoff(ULONG* flags) override;
    HRESULT STDMETHODCALLTYPE AbortSubmit(ULONG idSize, LPENTRYID id, ULONG flags) override;
    HRESULT STDMETHODCALLTYPE GetOutgoingQueue(ULONG flags, LPMAPITABLE* table) override;
    HRESULT STDMETHODCALLTYPE SetLockState(LPMESSAGE message, ULONG state) override;
    HRESULT STDMETHODCALLTYPE FinishedMsg(ULONG flags, ULONG idSize, LPENTRYID id) override;
    HRESULT STDMETHODCALLTYPE NotifyNewMail(LPNOTIFICATION notification) override;

    // ICommitGroups.
    HRESULT STDMETHODCALLTYPE PutOffWaiting(BOOL putOff) override;

    // IGatheredSaves.
    HRESULT STDMETHODCALLTYPE Gather(BOOL gather) override;

    // IChangesOfOthers.
    HRESULT STDMETHODCALLTYPE LookForChanges() override;

protected:
    [[nodiscard]] HRESULT ReadKept(PropertyBag& bag) override;
    [[nodiscard]] HRESULT WriteKept(const PropertyBag& bag) override;
    [[nodiscard]] HRESULT ReadMade(ULONG id, PropertyBag& bag) override;
    // Makes what was saved with MAPI_DEFERRED_ERRORS durable.
    [[nodiscard]] HRESULT MakeDurable() override;
    // The switches for tests.
    [[nodiscard]] HRESULT OpenObject(ULONG tag, REFIID iid, ULONG interfaceOptions, ULONG flags,
                                     LPUNKNOWN* object) noexcept override;

private:
    [[nodiscard]] HRESULT PutFirstFolders(PropertyBag& bag);

    Mutex m_connectionsLock;
    std::set<ULONG> m_connections QV_GUARDED_BY(m_connectionsLock);
    std::atomic<bool> m_putsOff{false};
    std::atomic<bool> m_gathers{false};
};

// Opens a store of the session's profile.
//
// store  the store's GUID.
// iid    null: IMsgStore.
// flags  MDB_WRITE or MAPI_BEST_ACCESS: the store's own properties may be changed; what its folders and
// messages
//        allow is told when they are opened.
//
// As SessionState::OpenStore; MAPI_E_INTERFACE_NOT_SUPPORTED.
[[nodiscard]] HRESULT GiveStore(const std::shared_ptr<SessionState>& session, const ObjectGuid& store,
                                LPCIID iid, ULONG flags, LPUNKNOWN* object);

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_STORE_MSG_STORE_H_
