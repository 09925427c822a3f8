// monitor/advise_sink.h: CAdviseSink, the context of one subscription to a folder's contents table.
//
// Whoever subscribes makes a sink, fills in its fields, and only then hands it to IMAPITable::Advise:
//
//     auto sink = MakeComObject<CAdviseSink>();
//     sink->SetSession(m_pSession);
//     sink->m_pStore = store;           // and the other fields
//     sink->SetFolder(this);
//     m_pContentsTable->Advise(fnevTableModified, sink.Get(), &m_ulConnection);
//
// and when the folder ends: Unadvise, then sink->DropFolder(), then Release.
//
// What lives how long: MAPI and each batch under way hold a reference to the sink, and through it to store,
// table and restriction. The folder isn't counted: DropFolder cuts it off under the sink's lock, and a batch
// whose turn comes later is dropped. The session isn't counted either: each batch passes the session's
// NotificationGate, at which ~CSession2 waits before anything goes that a batch uses.
#ifndef QUORVANE_ENGINE_MONITOR_ADVISE_SINK_H_
#define QUORVANE_ENGINE_MONITOR_ADVISE_SINK_H_

#include <memory>

#include "engine/session/context/notification_gate.h"
#include "engine/session/context/operations.h"
#include "engine/session/context/session_context.h"
#include "platform/com/bstr.h"
#include "platform/com/com_object.h"
#include "platform/com/mutex.h"

namespace quorvane {

class CAdviseSink final : public ComObject<CAdviseSink, IMAPIAdviseSink, DispatchImpl<IMyAdviseSink>> {
public:
    // Filled in before the subscription, and read only from then on.
    ComPtr<IMsgStore> m_pStore;
    ComPtr<IMAPITable> m_pTable;               // of the folder's contents; empty for a whole store
    ComPtr<IQuorvaneRestrict> m_pRestriction;  // the folder's; may be empty
    Bstr m_bstrEntryID;                        // the folder's PR_ENTRYID in hexadecimal text
    Bstr m_bstrStoreID;                        // the store's, likewise
    Bstr m_bstrFolderID;                       // the folder's sharing ID
    VARIANT_BOOL m_bCompareFlags = VARIANT_FALSE;

    // The session that the sink belongs to. Before the subscription.
    void SetSession(SessionContext* session) noexcept;
    SessionContext* Session() const noexcept { return m_pSession; }

    // The folder that the sink serves; not counted. A sink without one drops every batch.
    void SetFolder(IFolder* folder) noexcept;
    // Cuts the folder off, for its destructor's first line. When it returns no thread is calling the folder
    // on the sink's behalf, and none will. Must not be called from within IFolder::get_IgnoreEvents.
    void DropFolder() noexcept { SetFolder(nullptr); }

    // How a batch stands to the folder when its turn has come.
    enum class FolderState { Gone, IgnoresEvents, Listens };
    FolderState StateOfFolder() const noexcept;

    // Takes a batch off MAPI's thread: starts a thread for it, and waits until that has copied the batch and
    // has passed the session's submit lock, so that a change that the engine is applying to the store is
    // complete when the batch is looked at. Does no other work.
    //
    // S_OK       the batch is on its way, or it was dropped because the session is ending.
    // E_POINTER  no thread could be started (traced); the batch is lost.
    ULONG STDMETHODCALLTYPE OnNotify(ULONG cNotif, LPNOTIFICATION lpNotifications) override;

private:
    SessionContext* m_pSession = nullptr;
    std::shared_ptr<NotificationGate> m_pGate;
    mutable Mutex m_csFolder;
    IFolder* m_pFolder QV_GUARDED_BY(m_csFolder) = nullptr;
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_MONITOR_ADVISE_SINK_H_
