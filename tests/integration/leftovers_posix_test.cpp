// What logons leave in the process, as the system counts it.
#include <gtest/gtest.h>

#include "tests/support/test_host.h"

namespace quorvane::test {
namespace {

std::ptrdiff_t CountEntries(const char* directory)
{
    return std::distance(std::filesystem::directory_iterator(directory),
                         std::filesystem::directory_iterator());
}

TEST(LeftoversTest, LogonsLeaveNeitherThreadsNorOpenFiles)
{
    constexpr int kLogons = 20;
    const TestMailbox mailbox;
    const TestFolder folder = mailbox.MakeFolder("Shared");
    const auto work = [&] {
        TestLogon logon(mailbox);
        const ComPtr<IFolder> shared = logon.Share(folder, "{folder}");
        EXPECT_TRUE(logon.StorageFiles());
    };
    work();
    const std::ptrdiff_t threads = CountEntries("/proc/self/task");
    const std::ptrdiff_t files = CountEntries("/proc/self/fd");
    for (int i = 0; i < kLogons; ++i)
        work();

    EXPECT_EQ(CountEntries("/proc/self/task"), threads);
    EXPECT_EQ(CountEntries("/proc/self/fd"), files);
}

}  // namespace
}  // namespace quorvane::test
