// session/context/session_context.h: what a session's children see of it.
//
// CSession2 is the one implementation. Every child object (folder, storage file, option, job, sink) is given
// a raw pointer to it and reaches all shared state through that pointer. It counts no reference: the session
// outlives its children. An item alone may be in a host's hands after the end: it has a handle that the
// ending session clears (session_link.h).
//
// Threading: any thread may call. The pointers and references returned are the session's own and live
// as long as it does; what comes through an out-parameter is a reference of the caller's.
#ifndef QUORVANE_ENGINE_SESSION_CONTEXT_SESSION_CONTEXT_H_
#define QUORVANE_ENGINE_SESSION_CONTEXT_SESSION_CONTEXT_H_

#include <memory>

#include "platform/com/bstr.h"
#include "platform/com/com_ptr.h"
#include "platform/com/mutex.h"
#include "platform/event/event.h"
#include "platform/mapi/mapi.h"
#include "quorvane3/object_model.h"

namespace quorvane {

class CCustomThreadPool;
class CHashDBMap;
class DataSource;
class NotificationGate;
class SessionLink;

class SessionContext {
public:
    // What the handles of items hold; null when memory is short.
    std::shared_ptr<SessionLink> Link() noexcept;

    // The MAPI session of the logon; null before it and after a failed one.
    virtual IMAPISession* MapiSession() noexcept = 0;

    // The sharing database. Each thread opens sessions of its own on it.
    virtual DataSource& Database() noexcept = 0;

    // The hash stores of all shared folders.
    virtual CHashDBMap& HashStores() noexcept = 0;

    // The pools; null when the logon didn't get that far.
    virtual CCustomThreadPool* ReceivePool() noexcept = 0;
    virtual CCustomThreadPool* ResendPool() noexcept = 0;

    // The host's callback object, usable on the calling thread. Asks the global interface table.
    virtual HRESULT GetAddin(ComPtr<IQuorvaneExt>& addin) noexcept = 0;

    // What the session's public interface gives, without a reference to the session itself: a counted one
    // could become the last on a thread of the engine's, which the end would then have to wait for. As the
    // operations of ISession2; E_UNEXPECTED: there is no session.
    virtual HRESULT GetFolders(ComPtr<IFolders>& folders) noexcept = 0;
    virtual HRESULT GetStorageFiles(ComPtr<IStorageFiles>& files) noexcept = 0;
    virtual HRESULT GetOptions(ComPtr<IOptions>& options) noexcept = 0;
    virtual HRESULT GetDatabasePath(Bstr& path) noexcept = 0;

    // Whether the host has locked an item, whose change is then the host's own; uses an automatic lock up.
    virtual bool TakeItemLock(BSTR entryId, BSTR storeId) noexcept = 0;

    // "ItemSubmitEvent": manual reset, signalled while no item is being written to a store.
    virtual Event& ItemSubmitEvent() noexcept = 0;

    // Held while a received item is applied to the store. Order of use by a writer: reset the event,
    // then enter the lock; set the event, then leave the lock.
    virtual Mutex& SubmitLock() noexcept = 0;

    // Where every notification batch of the session passes; null when the session was never logged on.
    virtual std::shared_ptr<NotificationGate> Notifications() noexcept = 0;

    // The moved items: an item's old ID, by its entry identifier in hexadecimal text, from the moment
    // when it turned up in another folder to the moment when its deletion is seen.
    // Remember: S_OK, E_OUTOFMEMORY. Find: S_OK, E_FAIL and `id` untouched. Forget: S_OK, E_FAIL.
    virtual HRESULT RememberMovedItem(BSTR entryId, BSTR id) noexcept = 0;
    virtual HRESULT FindMovedItem(BSTR entryId, BSTR* id) noexcept = 0;
    virtual HRESULT ForgetMovedItem(BSTR entryId) noexcept = 0;

protected:
    ~SessionContext() { EndLink(); }
    // Clears the items' handles, as session_link.h tells; while all that a call of an item uses is still
    // there.
    void EndLink() noexcept;

private:
    Mutex linkMutex_;
    std::shared_ptr<SessionLink> link_ QV_GUARDED_BY(linkMutex_);
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_SESSION_CONTEXT_SESSION_CONTEXT_H_
