// session/detached_context.h: what stands for the session of an object that no session made.
//
// A class factory can make an item or a folder on its own. Such an object belongs to no session: it keeps
// what is put into it, and everything that would need a store, the database or the host fails.
#ifndef QUORVANE_ENGINE_SESSION_DETACHED_CONTEXT_H_
#define QUORVANE_ENGINE_SESSION_DETACHED_CONTEXT_H_

#include "engine/persist/database.h"
#include "engine/persist/hash_db.h"
#include "engine/session/context/session_context.h"

namespace quorvane {

// The database isn't open, the hash stores are empty, and whoever asks for the host or the session gets
// E_UNEXPECTED. Any thread may call.
class DetachedContext final : public SessionContext {
public:
    // The one of the process; lives until the process ends. Null when memory is short.
    static DetachedContext* Instance() noexcept;

    IMAPISession* MapiSession() noexcept override { return nullptr; }
    DataSource& Database() noexcept override { return database_; }
    CHashDBMap& HashStores() noexcept override { return hashStores_; }
    CCustomThreadPool* ReceivePool() noexcept override { return nullptr; }
    CCustomThreadPool* ResendPool() noexcept override { return nullptr; }
    HRESULT GetAddin(ComPtr<IQuorvaneExt>& addin) noexcept override;
    HRESULT GetFolders(ComPtr<IFolders>&) noexcept override { return E_UNEXPECTED; }
    HRESULT GetStorageFiles(ComPtr<IStorageFiles>&) noexcept override { return E_UNEXPECTED; }
    HRESULT GetOptions(ComPtr<IOptions>&) noexcept override { return E_UNEXPECTED; }
    HRESULT GetDatabasePath(Bstr&) noexcept override { return E_UNEXPECTED; }
    bool TakeItemLock(BSTR, BSTR) noexcept override { return false; }
    Event& ItemSubmitEvent() noexcept override { return submitEvent_; }
    Mutex& SubmitLock() noexcept override { return submitLock_; }
    std::shared_ptr<NotificationGate> Notifications() noexcept override { return nullptr; }
    HRESULT RememberMovedItem(BSTR, BSTR) noexcept override { return E_FAIL; }
    HRESULT FindMovedItem(BSTR, BSTR*) noexcept override { return E_FAIL; }
    HRESULT ForgetMovedItem(BSTR) noexcept override { return E_FAIL; }

private:
    DetachedContext() noexcept = default;

    DataSource database_;
    CHashDBMap hashStores_;
    Event submitEvent_;
    Mutex submitLock_;
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_SESSION_DETACHED_CONTEXT_H_
