// What logons leave in the process, as the system counts it.
#include <gtest/gtest.h>

#include "tests/support/process_counts.h"
#include "tests/support/test_host.h"

namespace quorvane::test {
namespace {

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
    const size_t threads = CountThreads();
    const size_t handles = CountHandles();
    ASSERT_GT(threads, 0u);
    ASSERT_GT(handles, 0u);
    for (int i = 0; i < kLogons; ++i)
        work();

    EXPECT_EQ(CountThreads(), threads);
    EXPECT_EQ(CountHandles(), handles);
}

}  // namespace
}  // namespace quorvane::test
