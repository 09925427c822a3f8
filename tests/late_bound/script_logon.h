// tests/late_bound/script_logon.h: a script host logged on to the engine.
#ifndef QUORVANE_TESTS_LATE_BOUND_SCRIPT_LOGON_H_
#define QUORVANE_TESTS_LATE_BOUND_SCRIPT_LOGON_H_

#include <filesystem>
#include <string>

#include "tests/late_bound/automation.h"
#include "tests/late_bound/script_host.h"
#include "tests/support/test_mailbox.h"

namespace quorvane::test {

// Throws std::runtime_error.
class ScriptLogon {
public:
    explicit ScriptLogon(const TestMailbox& mailbox);
    ScriptLogon(const ScriptLogon&) = delete;
    ScriptLogon& operator=(const ScriptLogon&) = delete;

    ScriptHost& Host() const noexcept { return *host_; }
    const Automation& Library() const noexcept { return library_; }
    const Automation& Session() const noexcept { return session_; }

    // Shares a folder under an ID; the shared folder.
    Automation Share(const TestFolder& folder, const std::string& id) const;

    // Takes the package for these recipients from the list; its path.
    std::filesystem::path TakePackage(const std::string& recipients) const;
    // Hands a package over and waits until the engine is done with it, which deletes it. With `pump`, calls
    // into this thread's apartment are answered meanwhile.
    void Process(const std::filesystem::path& package, const std::string& tag, bool pump = false) const;

private:
    ComPtr<ScriptHost> host_;
    Automation library_;
    Automation session_;
};

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_LATE_BOUND_SCRIPT_LOGON_H_
