// monitor/msg_stores.h: CMsgStores, subscriptions to whole message stores, and a sink for their object
// events.
//
// A logon makes one and nothing in the engine adds a store to it: a caller that holds the object may. The
// sinks that Add subscribes serve no folder, so that they drop every batch. The object's own sink, which
// nothing in the engine subscribes either, tells what a store's object notifications mean for the shared
// folders.
//
// Threading: one thread at a time, except for OnNotify: any.
#ifndef QUORVANE_ENGINE_MONITOR_MSG_STORES_H_
#define QUORVANE_ENGINE_MONITOR_MSG_STORES_H_

#include <map>

#include "engine/session/context/notification_gate.h"
#include "engine/session/context/operations.h"
#include "engine/session/context/session_context.h"
#include "platform/com/connection_point.h"

// The object's outgoing events: none.
struct _IMsgStoresEvents : IDispatch {};
QUORVANE_IID(_IMsgStoresEvents, DIID__IMsgStoresEvents);

namespace quorvane {

// One subscribed store.
struct StoreAdviseRecord {
    ComPtr<IMsgStore> pStore;
    ULONG ulConnection = 0;
    ComPtr<IMAPIAdviseSink> pSink;  // the thread-safe wrapper of the sink
};

class CMsgStores final : public ComObject<CMsgStores, ConnectionPointContainer<_IMsgStoresEvents>,
                                          IMAPIAdviseSink, DispatchImpl<IMsgStores>> {
public:
    // session  [in]  not counted; may be null. Its end waits for the notifications under way.
    explicit CMsgStores(SessionContext* session = nullptr) noexcept;
    // Ends all subscriptions.
    ~CMsgStores();

    // Subscribes to a store's object events; once for each store.
    //
    // pMsgStore  [in]  anything that answers IMsgStore. References are kept.
    //
    // S_OK: subscribed, now or before; or the session's option "NoListeners" is set, and nothing was done.
    // E_POINTER, E_NOINTERFACE: it is no store. E_INVALIDARG: it has no entry identifier. E_FAIL: no sink can
    // be wrapped. Others come from the store.
    HRESULT STDMETHODCALLTYPE Add(IUnknown* pMsgStore) override;

    // Looks at object notifications one after another, each as event_classifier.h tells. Blocks while an item
    // is being applied, and calls the host on this thread.
    //
    // S_OK: whatever became of each notification; also when the session is ending, and nothing was done. What
    // SessionContext::GetAddin gives, traced: the host can't be reached, and the batch is lost. E_UNEXPECTED:
    // the object has no session.
    ULONG STDMETHODCALLTYPE OnNotify(ULONG cNotif, LPNOTIFICATION lpNotifications) override;

    // How many stores are subscribed.
    size_t Count() const noexcept { return m_Stores.size(); }

private:
    HRESULT Subscribe(const ComPtr<IMsgStore>& store) noexcept;
    HRESULT AdviseStore(StoreAdviseRecord& record) noexcept;

    SessionContext* const m_pSession;
    const std::shared_ptr<NotificationGate> m_pGate;
    std::map<OleString, StoreAdviseRecord> m_Stores;  // by PR_ENTRYID in hexadecimal text
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_MONITOR_MSG_STORES_H_
