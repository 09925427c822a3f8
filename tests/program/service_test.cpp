// A run as a service: what it tells the service manager that started it.
#include <sqlite3.h>

#include <algorithm>

#include "platform/testing/notify_socket_posix.h"
#include "tests/program/program.h"

namespace quorvane::test {

namespace {

using namespace std::chrono_literals;

constexpr auto kWatchdog = 1500ms;

class ServiceTest : public ProgramTest {
protected:
    void SetUp() override
    {
        if (TestedProgram().isForWindows)
            GTEST_SKIP() << "there is no such service manager";
        ProgramTest::SetUp();
        MakeMailboxes({"alice", "bob"});
    }
    static std::ptrdiff_t CountOf(const std::vector<std::string>& told, const std::string& line)
    {
        return std::count(told.begin(), told.end(), line);
    }
    static void ExpectOrderlyEnd(Process& run)
    {
        run.AskToEnd();
        Outcome outcome;
        ASSERT_TRUE(run.WaitFor(3s, outcome));
        EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
    }
};

TEST_F(ServiceTest, ARunTellsThatItIsReadyGoesOnAndStops)
{
    NotifySocket socket(Path("notify"), kWatchdog);
    Process run = Start({"run", Mailbox("alice")});
    EXPECT_EQ(socket.Next(30s), "READY=1");
    EXPECT_EQ(socket.Next(30s), "STATUS=0 changes sent in 0 packages, 0 applied from 0");
    // In time, for as long as it has nothing to do, too.
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(socket.Next(kWatchdog), "WATCHDOG=1") << i;
    ExpectOrderlyEnd(run);
    const std::vector<std::string> last = socket.Until("STOPPING=1");
    EXPECT_EQ(last.back(), "STOPPING=1");
    EXPECT_EQ(CountOf(last, "READY=1"), 0);
    EXPECT_EQ(socket.Next(0ms), "");
}

TEST_F(ServiceTest, ARunThatEndsByItselfTellsItToo)
{
    NotifySocket socket(Path("notify"), 0ms);
    MustRun({"run", Mailbox("alice"), "--until-idle", "--idle-seconds", "0.2"});
    EXPECT_EQ(socket.Until("READY=1").back(), "READY=1");
    EXPECT_EQ(socket.Until("STOPPING=1", 5s).back(), "STOPPING=1");
}

TEST_F(ServiceTest, WhatItDidIsItsStatus)
{
    MustRun({"import", Mailbox("alice"), "Shared", Sample("01-plain").string()});
    MustRun({"share", Mailbox("alice"), "Shared", "--with", "bob"});
    NotifySocket socket(Path("notify"), 0ms);
    Process run = Start({"run", Mailbox("alice")});
    std::string status;
    while (status.find("STATUS=0 changes sent in 1 package,") != 0) {
        status = socket.Next(30s);
        ASSERT_NE(status, "");
    }
    std::filesystem::rename(Exchange(), Path("elsewhere"));
    status = socket.Next(30s);
    EXPECT_TRUE(status.starts_with("STATUS=the exchange can't be used just now; ")) << status;
    ExpectOrderlyEnd(run);
}

TEST_F(ServiceTest, ARunThatFailsIsNeverReady)
{
    std::filesystem::rename(Exchange(), Path("elsewhere"));
    NotifySocket socket(Path("notify"), kWatchdog);
    EXPECT_EQ(Run({"run", Mailbox("alice")}).exitCode, 1);
    EXPECT_EQ(socket.Next(0ms), "");
}

// Its other threads live on while the run's own waits for a database that somebody has locked.
TEST_F(ServiceTest, ARunThatHangsGivesNoSignOfLife)
{
    NotifySocket socket(Path("notify"), kWatchdog);
    Process run = Start({"run", Mailbox("alice")});
    EXPECT_EQ(socket.Until("READY=1").back(), "READY=1");
    NotifySocket::Hide();
    sqlite3* records = nullptr;
    ASSERT_EQ(sqlite3_open((Path("alice") / "host.db").string().c_str(), &records), SQLITE_OK);
    sqlite3_busy_timeout(records, 10000);
    ASSERT_EQ(sqlite3_exec(records, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
    MustRun({"import", Mailbox("bob"), "Shared", Sample("01-plain").string()});
    MustRun({"share", Mailbox("bob"), "Shared", "--with", "alice"});
    MustRun({"run", Mailbox("bob"), "--until-idle", "--idle-seconds", "0.2"});
    const auto deadline = std::chrono::steady_clock::now() + 15s;
    while (!socket.Next(2 * kWatchdog).empty() && std::chrono::steady_clock::now() < deadline) {
    }
    EXPECT_LT(std::chrono::steady_clock::now(), deadline) << "it gives signs of life";
    sqlite3_exec(records, "COMMIT", nullptr, nullptr, nullptr);
    sqlite3_close(records);
    EXPECT_EQ(socket.Until("WATCHDOG=1").back(), "WATCHDOG=1");
    ExpectOrderlyEnd(run);
}

}  // namespace

}  // namespace quorvane::test
