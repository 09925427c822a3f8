// items/testing/test_session.h: a session for what hangs on one: the real database and hash stores, and
// whatever collections and mailbox a test gives it.
#ifndef QUORVANE_ENGINE_ITEMS_TESTING_TEST_SESSION_H_
#define QUORVANE_ENGINE_ITEMS_TESTING_TEST_SESSION_H_

#include <functional>
#include <string>

#include "engine/items/testing/test_host.h"
#include "engine/persist/database.h"
#include "engine/persist/hash_db.h"
#include "engine/session/context/session_context.h"
#include "platform/testing/test_directory.h"

namespace quorvane::testing {

class TestSession : public SessionContext {
public:
    // Makes an empty sharing database, "share.qdb", in a directory of its own, and opens it.
    TestSession();
    virtual ~TestSession();

    const test::TestDirectory directory;
    TestHost host;
    // What the session hands out.
    ComPtr<IFolders> folders;
    ComPtr<IStorageFiles> storageFiles;
    ComPtr<IOptions> options;
    ComPtr<IMAPISession> mapiSession;
    CCustomThreadPool* resendPool = nullptr;  // the test's

    std::string DatabasePath() const { return directory.File("share.qdb"); }

    // Runs a statement, and reads one text: the first column of the first row, "" when there is none, "NULL"
    // for a missing value.
    void Execute(const std::string& sql);
    std::string Ask(const std::string& sql);

    // Makes the database fail from now on.
    void CloseDatabase() { database_.Close(); }
    void OpenDatabase();

    IMAPISession* MapiSession() noexcept override { return mapiSession.Get(); }
    DataSource& Database() noexcept override { return database_; }
    CHashDBMap& HashStores() noexcept override { return hashStores_; }
    CCustomThreadPool* ReceivePool() noexcept override { return nullptr; }
    CCustomThreadPool* ResendPool() noexcept override { return resendPool; }
    HRESULT GetAddin(ComPtr<IQuorvaneExt>& addin) noexcept override;
    HRESULT GetFolders(ComPtr<IFolders>& found) noexcept override { return folders.CopyTo(found.Put()); }
    HRESULT GetStorageFiles(ComPtr<IStorageFiles>& found) noexcept override
    {
        return storageFiles.CopyTo(found.Put());
    }
    HRESULT GetOptions(ComPtr<IOptions>& found) noexcept override { return options.CopyTo(found.Put()); }
    HRESULT GetDatabasePath(Bstr& path) noexcept override;
    bool TakeItemLock(BSTR, BSTR) noexcept override { return false; }
    Event& ItemSubmitEvent() noexcept override { return submitEvent_; }
    Mutex& SubmitLock() noexcept override { return submitLock_; }
    std::shared_ptr<NotificationGate> Notifications() noexcept override { return nullptr; }
    HRESULT RememberMovedItem(BSTR, BSTR) noexcept override { return E_FAIL; }
    HRESULT FindMovedItem(BSTR, BSTR*) noexcept override { return E_FAIL; }
    HRESULT ForgetMovedItem(BSTR) noexcept override { return E_FAIL; }

    // Whether the host can be reached.
    bool hostIsThere = true;

private:
    DataSource database_;
    CHashDBMap hashStores_;
    Event submitEvent_;
    Mutex submitLock_;
    ComPtr<IQuorvaneExt> addin_;
};

}  // namespace quorvane::testing

#endif  // QUORVANE_ENGINE_ITEMS_TESTING_TEST_SESSION_H_
