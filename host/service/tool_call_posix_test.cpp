#include "host/service/tool_call.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>

namespace quorvane::host {

namespace {

using namespace std::chrono_literals;

TEST(ToolCallTest, GivesWhatItPrintedAndItsExitCode)
{
    const auto answer = CallTool({"sh", "-c", "echo out; echo err >&2; read line; exit 3"}, 20s);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->output, "out\nerr\n");
    EXPECT_EQ(answer->exitCode, 3);
}

TEST(ToolCallTest, ThereMayBeNoSuchProgram)
{
    EXPECT_FALSE(CallTool({"no-such-program-anywhere"}, 20s));
}

TEST(ToolCallTest, OneThatHangsIsKilledInTime)
{
    const auto begun = std::chrono::steady_clock::now();
    EXPECT_FALSE(CallTool({"sh", "-c", "exec sleep 60"}, 100ms));
    EXPECT_FALSE(CallTool({"sh", "-c", "exec sleep 60 >/dev/null 2>&1"}, 100ms));
    EXPECT_LT(std::chrono::steady_clock::now() - begun, 30s);
}

TEST(ToolCallTest, SignalsThatThisProcessWaitsForReachIt)
{
    sigset_t set, before;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &set, &before);
    const auto answer = CallTool({"sh", "-c", "kill -TERM $$; echo went on"}, 20s);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    EXPECT_FALSE(answer);
}

TEST(ToolCallTest, MuchOutputIsCut)
{
    const auto answer = CallTool({"sh", "-c", "head -c 300000 /dev/zero"}, 20s);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->output.size(), 65536U);
}

TEST(ToolCallTest, TheUsersOwnSettingsAreItsEnvironment)
{
    setenv("XDG_CONFIG_HOME", "/a/mailbox", 1);
    setenv("QUORVANE_USER_XDG_CONFIG_HOME", "/home/config", 1);
    setenv("QUORVANE_USER_TMPDIR", "", 1);
    const char* const own = std::getenv("TMPDIR");
    const std::string before = own ? own : "";
    setenv("TMPDIR", "/a/mailbox/packages", 1);
    const auto answer = CallTool({"sh", "-c", "echo $XDG_CONFIG_HOME ${TMPDIR-none}"}, 20s);
    for (const char* const name :
         {"XDG_CONFIG_HOME", "QUORVANE_USER_XDG_CONFIG_HOME", "QUORVANE_USER_TMPDIR"})
        unsetenv(name);
    own ? setenv("TMPDIR", before.c_str(), 1) : unsetenv("TMPDIR");
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->output, "/home/config none\n");
}

}  // namespace

}  // namespace quorvane::host
