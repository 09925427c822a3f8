#include "platform/testing/console.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>

namespace quorvane::test {

namespace {

int Checked(int descriptor)
{
    if (descriptor < 0)
        throw std::runtime_error("no console for a test");
    return descriptor;
}

}  // namespace

ConsoleForTest::ConsoleForTest()
    : file_(Checked(open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600))),
      before_(Checked(dup(STDOUT_FILENO)))
{
    std::fflush(stdout);
    Checked(dup2(static_cast<int>(file_), STDOUT_FILENO));
}

ConsoleForTest::~ConsoleForTest()
{
    std::fflush(stdout);
    dup2(static_cast<int>(before_), STDOUT_FILENO);
    close(static_cast<int>(before_));
    close(static_cast<int>(file_));
}

}  // namespace quorvane::test
