// msgstore/store/test_mailbox.h: for tests: mailboxes with a profile and a store in directories of their own.
#ifndef QUORVANE_MSGSTORE_STORE_TEST_MAILBOX_H_
#define QUORVANE_MSGSTORE_STORE_TEST_MAILBOX_H_

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <string>
#include <vector>

#include "msgstore/util/memory.h"
#include "platform/com/com_object.h"
#include "platform/com/com_ptr.h"
#include "platform/mapi/mapi.h"
#include "platform/testing/test_directory.h"

namespace quorvane::testing {

using test::TestDirectory;

// Points the registry at a directory for as long as it lives.
class RegistryScope {
public:
    explicit RegistryScope(const std::filesystem::path& directory);
    RegistryScope(const RegistryScope&) = delete;
    RegistryScope& operator=(const RegistryScope&) = delete;
    ~RegistryScope();

private:
    const std::filesystem::path before_;
};

// Makes a profile of that name with one store, and makes it the default one. Returns the first failure.
HRESULT MakeProfile(const std::string& name, const std::string& storePath, bool shortTermIds = false);

// Entry identifiers and other binaries of objects and rows.
using BinaryValue = std::vector<BYTE>;
BinaryValue BinaryOf(IMAPIProp& object, ULONG tag);
BinaryValue BinaryOf(const SRow& row, ULONG tag);
LONG LongOf(IMAPIProp& object, ULONG tag);
OleString TextOf(IMAPIProp& object, ULONG tag);
OleString TextOf(const SRow& row, ULONG tag);
std::uint64_t TimeOf(IMAPIProp& object, ULONG tag);

// A mailbox that somebody is logged on to.
class TestMailbox {
public:
    // Makes profile and store in the directory, and logs on.
    explicit TestMailbox(bool shortTermIds = false);

    const std::filesystem::path& Directory() const { return directory_.Path(); }
    std::string StorePath() const { return (Directory() / "mail.qvs").string(); }
    IMAPISession& Session() { return *session_; }
    IMsgStore& Store() { return *store_; }
    IMAPIFolder& Inbox() { return *inbox_; }

    void LogOn();
    void LogOff();

    BinaryValue StoreId();
    ComPtr<IMsgStore> OpenStore(ULONG flags = MDB_WRITE | MDB_NO_MAIL);
    ComPtr<IMAPIFolder> OpenFolder(const BinaryValue& id, ULONG flags = MAPI_MODIFY);
    ComPtr<IMessage> OpenMessage(const BinaryValue& id, ULONG flags = MAPI_MODIFY);
    ComPtr<IMAPIFolder> MakeFolder(IMAPIFolder& parent, const char* name);

    // Saves a message with a subject and gives its entry identifier.
    BinaryValue AddMessage(IMAPIFolder& folder, const OleString& subject, ULONG saveFlags = 0);
    void ChangeSubject(const BinaryValue& id, const OleString& subject);
    static HRESULT Delete(IMAPIFolder& folder, const BinaryValue& id);
    // Has the properties of the messages with that subject end within a value, or become what the expression
    // of SQL gives.
    void Damage(const char* subject, const std::string& become = "x'1F001A00FFFFFFFF00'");

private:
    TestDirectory directory_;
    RegistryScope registry_;
    ComPtr<IMAPISession> session_;
    ComPtr<IMsgStore> store_;
    ComPtr<IMAPIFolder> inbox_;
};

HRESULT SetText(IMAPIProp& object, ULONG tag, const OleString& text);
HRESULT SetLong(IMAPIProp& object, ULONG tag, LONG value);
HRESULT SetBinary(IMAPIProp& object, ULONG tag, const BinaryValue& value);
ComPtr<IMAPITable> ContentsOf(IMAPIFolder& folder, ULONG flags = 0);
// All rows from the beginning, as subjects; the table's columns become PR_SUBJECT_W alone.
std::vector<OleString> SubjectsOf(IMAPITable& table);

// A sink that keeps what it is told.
class CTestSink final : public ComObject<CTestSink, IMAPIAdviseSink> {
public:
    struct Event {
        ULONG type = 0;        // fnev...
        ULONG tableEvent = 0;  // TABLE_...
        BinaryValue key;       // PR_INSTANCE_KEY of a table event, the entry identifier of an object event
        ULONG columns = 0;
        BinaryValue entryId;  // PR_ENTRYID among the row's columns
        BinaryValue parent;
        BinaryValue oldParent;
    };

    ULONG STDMETHODCALLTYPE OnNotify(ULONG count, LPNOTIFICATION notifications) override;

    // Waits until the events so far meet the condition; false when they don't within ten seconds.
    template <class Condition>
    bool WaitFor(Condition condition)
    {
        std::unique_lock lock(m_lock);
        return m_changed.wait_for(lock, std::chrono::seconds(10), [&] { return condition(m_events); });
    }
    bool WaitForCount(std::size_t count)
    {
        return WaitFor([count](const std::vector<Event>& events) { return events.size() >= count; });
    }
    std::vector<Event> Events();
    std::size_t Calls();

private:
    std::mutex m_lock;
    std::condition_variable m_changed;
    std::vector<Event> m_events;
    std::size_t m_calls = 0;
};

}  // namespace quorvane::testing

#endif  // QUORVANE_MSGSTORE_STORE_TEST_MAILBOX_H_
