// Threads of the pool, as the system counts and refuses them.
#include <gmock/gmock.h>

#include <filesystem>

#include "engine/session/trace/testing/traced_lines.h"
#include "engine/transfer/pool/pool_jobs_for_test.h"
#include "platform/testing/no_more_threads_posix.h"

namespace quorvane {
namespace {

using ::testing::ContainsRegex;

class PoolThreadsTest : public testing::PoolTest {};

std::ptrdiff_t CountThreads()
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"),
                         std::filesystem::directory_iterator());
}

TEST_F(PoolThreadsTest, AJobThatMayNotBeginYetHasItsThreadAlready)
{
    CCustomThreadPool pool;
    ASSERT_EQ(pool.Init(1), S_OK);
    ASSERT_EQ(pool.Add(Runner()), S_OK);
    ASSERT_TRUE(running.WaitFor(1));
    const std::ptrdiff_t before = CountThreads();
    ASSERT_EQ(pool.Add(Runner()), S_OK);

    EXPECT_EQ(CountThreads(), before + 1);
    EXPECT_FALSE(running.WaitFor(2, testing::kGrace));
    release.Set();
}

TEST_F(PoolThreadsTest, AJobWhoseThreadCantBeStartedFailsAloneAndIsTraced)
{
    CCustomThreadPool pool;
    ASSERT_EQ(pool.Init(1), S_OK);
    const std::string lines = testing::TracedLines([&] {
        const test::NoMoreThreads scope;
        EXPECT_EQ(pool.Add(Runner()), E_FAIL);
    });
    EXPECT_THAT(lines, ContainsRegex("CCustomThreadPool::Add[(][0-9]+[)] 0x80004005\r\n"));
    EXPECT_EQ(destroyed.Value(), 1);

    ASSERT_EQ(pool.Add(Runner()), S_OK);
    ASSERT_TRUE(running.WaitFor(1));
    EXPECT_EQ(pool.Shutdown(), S_OK);
    EXPECT_EQ(stopped.Value(), 1);
}

}  // namespace
}  // namespace quorvane
