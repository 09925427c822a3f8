// platform/testing/debugger.h: what a debugger would be told.
#ifndef QUORVANE_PLATFORM_TESTING_DEBUGGER_H_
#define QUORVANE_PLATFORM_TESTING_DEBUGGER_H_

#include <filesystem>

namespace quorvane::test {

// While it lives, text for the debugger is appended to a file. One at a time; on Windows no real debugger.
class DebuggerForTest {
public:
    explicit DebuggerForTest(const std::filesystem::path& file);
    DebuggerForTest(const DebuggerForTest&) = delete;
    DebuggerForTest& operator=(const DebuggerForTest&) = delete;
    ~DebuggerForTest();

private:
    [[maybe_unused]] void* const handler_;  // on Windows
};

}  // namespace quorvane::test

#endif  // QUORVANE_PLATFORM_TESTING_DEBUGGER_H_
