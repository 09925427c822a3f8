// tests/support/test_host.h: a host that notes what it hears, and a logon with it.
#ifndef QUORVANE_TESTS_SUPPORT_TEST_HOST_H_
#define QUORVANE_TESTS_SUPPORT_TEST_HOST_H_

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "quorvane3/quorvane3.h"
#include "tests/support/test_mailbox.h"

namespace quorvane::test {

// One call of the engine.
struct HostEvent {
    std::string what;     // "added", "changed", "deleted", "received", "folder", "postprocess", "resend"
    std::string id;       // the item's or folder's sharing ID; the entry identifier of "postprocess"
    std::string entryId;  // the item's
    LONG action = 0;
    std::string tag;
    IItem* item = nullptr;  // the item itself, for the time of the answer
};

// Called on the engine's threads. The answers below may be set at any time.
class TestHost : public ExtHandler {
public:
    explicit TestHost(const TestMailbox& mailbox) : mailbox_(mailbox) {}

    // What comes of an event; by default it is neither ignored nor failed. Called outside the lock.
    using Answer = std::function<HRESULT(const HostEvent& event, bool& ignore)>;
    void AnswerWith(Answer answer);

    // Waits until so many events of a kind were heard; false when the deadline passes first.
    bool Heard(const std::string& what, size_t count = 1);
    std::vector<HostEvent> Events() const;
    std::vector<HostEvent> Events(const std::string& what) const;
    void Forget();

    HRESULT OnItemResend(IItem* item, BSTR jobId, bool& ignore) override;
    HRESULT OnFolderReceived(IFolder* folder, BSTR tag) override;
    HRESULT OnItemAdded(IItem* item, bool& ignore) override;
    HRESULT OnItemChanged(IItem* item, bool& ignore) override;
    HRESULT OnItemDeleted(IItem* item, bool& ignore) override;
    HRESULT OnItemReceived(IItem* item, BSTR tag, bool& ignore) override;
    HRESULT OnPostprocess(BSTR entryId, BSTR storeId) override;
    HRESULT DatabasePath(Bstr& path) override;
    HRESULT ProductCode(Bstr& code) override;

private:
    HRESULT Hear(HostEvent event, bool& ignore);
    HRESULT HearItem(const char* what, IItem* item, BSTR text, bool& ignore);

    const TestMailbox& mailbox_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<HostEvent> events_;
    Answer answer_;
};

// A host logged on to the engine. Throws std::runtime_error.
class TestLogon {
public:
    explicit TestLogon(const TestMailbox& mailbox);
    // With a library made otherwise.
    TestLogon(const TestMailbox& mailbox, ComPtr<ILibrary> library);
    TestLogon(const TestLogon&) = delete;
    TestLogon& operator=(const TestLogon&) = delete;
    // Ends the session. A call that the host has still finds it closed.
    ~TestLogon();
    // The same now, and waits until whoever made a call that comes back late has let go of the host, and with
    // it of the item and the store. Not for a host in an apartment of its own.
    void EndWithLateCalls();

    TestHost& Host() noexcept { return host_; }
    ILibrary& Library() noexcept { return *library_; }
    ISession2& Session() noexcept { return *session_; }
    // Lets go of session and library, as a host that ends; a call that it has may still be answered.
    void EndSession() noexcept
    {
        session_.Reset();
        library_.Reset();
    }

    // Shares a folder under an ID.
    ComPtr<IFolder> Share(const TestFolder& folder, const std::string& id);
    ComPtr<IStorageFiles> StorageFiles();
    ComPtr<IOptions> Options();
    void SetOption(const OLECHAR* name, const Variant& value);

private:
    TestHost host_;
    ComPtr<ExtCallback> callback_;
    ComPtr<ILibrary> library_;
    ComPtr<ISession2> session_;
};

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_SUPPORT_TEST_HOST_H_
