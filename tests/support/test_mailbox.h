// tests/support/test_mailbox.h: a user's surroundings: message store and profile, sharing database, settings.
#ifndef QUORVANE_TESTS_SUPPORT_TEST_MAILBOX_H_
#define QUORVANE_TESTS_SUPPORT_TEST_MAILBOX_H_

#include <string>

#include "msgstore/store/test_switches.h"
#include "tests/support/test_directory.h"
#include "tests/support/test_folder.h"

namespace quorvane::test {

// The text that keeps the tests' settings apart.
inline constexpr OLECHAR kProductCode[] = OLESTR("Tests");

// The VFS by which SQLite reaches the sharing databases of the mailboxes that are made from now on; null: its
// own.
inline const char* sharingDatabaseVfs = nullptr;

// Throws std::runtime_error. Holds a MAPI session of its own for looking after the engine's work.
class TestMailbox {
public:
    TestMailbox();
    TestMailbox(const TestMailbox&) = delete;
    TestMailbox& operator=(const TestMailbox&) = delete;
    ~TestMailbox();

    // Makes this user the one whose settings, profile and temporary folder the process sees.
    void Select() const;

    const std::filesystem::path& Directory() const noexcept { return directory_.Path(); }
    std::filesystem::path DatabasePath() const { return Directory() / "share.mdb"; }
    // The engine keeps its first log file until the process ends, so that all mailboxes have one in common.
    static const std::filesystem::path& LogPath();
    std::filesystem::path InboxPath() const { return Directory() / "inbox"; }

    IMsgStore& Store() const noexcept { return *store_; }
    // By which the store behaves as others do. They hold until it is closed.
    ComPtr<IStoreTestSwitches> StoreSwitches() const;
    TestFolder MakeFolder(const std::string& name) const;
    TestFolder OpenFolder(const std::string& entryId) const;

    // Lets go of the mailbox's own session and store. Folders and messages got from them keep the store open.
    void LogOff();
    void LogOn();
    // Takes the profile from the user's settings, so that nobody can log on any more.
    void DeleteProfile() const;
    std::filesystem::path StorePath() const { return Directory() / "store.sqlite"; }

    // The one number that a query on the sharing database gives.
    long Query(const std::string& sql) const;
    void Execute(const std::string& sql) const;

    // What the engine has logged since the mailbox was made.
    std::string Log() const;

private:
    void MakeProfile() const;

    // The engine is called on threads of COM's; where the test has an apartment of its own it stays one.
    const FreeThreadScope freeThread_;
    TestDirectory directory_;
    size_t logBefore_ = 0;
    ComPtr<IMAPISession> session_;
    ComPtr<IMsgStore> store_;
};

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_SUPPORT_TEST_MAILBOX_H_
