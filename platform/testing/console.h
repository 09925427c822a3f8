// platform/testing/console.h: what the process's console would show.
#ifndef QUORVANE_PLATFORM_TESTING_CONSOLE_H_
#define QUORVANE_PLATFORM_TESTING_CONSOLE_H_

#include <cstdint>
#include <string>

#include "platform/testing/test_directory.h"

namespace quorvane::test {

// While it lives, what the process writes to its console goes into a file; off Windows that is its standard
// output. One at a time. Throws std::runtime_error when the system refuses.
class ConsoleForTest {
public:
    ConsoleForTest();
    ConsoleForTest(const ConsoleForTest&) = delete;
    ConsoleForTest& operator=(const ConsoleForTest&) = delete;
    ~ConsoleForTest();

    // What was written so far.
    std::string Text() const;

private:
    const TestDirectory directory_;
    const std::string path_ = directory_.File("console.txt");
    // Descriptors, or handles on Windows.
    const std::intptr_t file_;
    const std::intptr_t before_;
};

}  // namespace quorvane::test

#endif  // QUORVANE_PLATFORM_TESTING_CONSOLE_H_
