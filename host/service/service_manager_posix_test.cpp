#include <gtest/gtest.h>

#include <thread>

#include "host/service/service_manager.h"
#include "platform/testing/notify_socket_posix.h"
#include "platform/testing/test_directory.h"

namespace quorvane::host {

namespace {

using namespace std::chrono_literals;

class ServiceManagerTest : public ::testing::Test {
protected:
    std::filesystem::path SocketPath() const { return directory_.File("notify"); }

private:
    const test::TestDirectory directory_;
};

TEST_F(ServiceManagerTest, WithoutASocketNothingHappens)
{
    unsetenv("NOTIFY_SOCKET");
    setenv("WATCHDOG_USEC", "1000000", 1);
    ServiceManager manager;
    unsetenv("WATCHDOG_USEC");
    EXPECT_FALSE(manager.IsThere());
    EXPECT_GE(manager.PulseInterval(), 24h);
    manager.TellReady();
    manager.Pulse();
    manager.TellStopping();
}

TEST_F(ServiceManagerTest, ReadyAndStoppingAreToldOnce)
{
    test::NotifySocket socket(SocketPath(), 0us);
    ServiceManager manager;
    for (int i = 0; i < 2; ++i)
        manager.TellReady();
    for (int i = 0; i < 2; ++i)
        manager.TellStopping();
    EXPECT_EQ(socket.Next(1s), "READY=1");
    EXPECT_EQ(socket.Next(1s), "STOPPING=1");
    EXPECT_EQ(socket.Next(0ms), "");
}

TEST_F(ServiceManagerTest, ANewStatusIsToldInOneLineAndAtMostOnceASecond)
{
    test::NotifySocket socket(SocketPath(), 0us);
    ServiceManager manager;
    manager.TellStatus("one\nREADY=1");
    manager.TellStatus("two");
    EXPECT_EQ(socket.Next(1s), "STATUS=one READY=1");
    EXPECT_EQ(socket.Next(0ms), "");
}

TEST_F(ServiceManagerTest, PulsesComeWhereTheyAreWantedAndNoMoreOftenThanNeeded)
{
    test::NotifySocket socket(SocketPath(), 600ms);
    ServiceManager manager;
    EXPECT_EQ(manager.PulseInterval(), 200ms);
    manager.Pulse();
    manager.Pulse();
    EXPECT_EQ(socket.Next(1s), "WATCHDOG=1");
    EXPECT_EQ(socket.Next(0ms), "");
    std::string next;
    while (next.empty()) {
        manager.Pulse();
        next = socket.Next(1ms);
    }
    EXPECT_EQ(next, "WATCHDOG=1");
}

TEST_F(ServiceManagerTest, WithoutAWatchdogThereAreNoPulses)
{
    test::NotifySocket socket(SocketPath(), 0us);
    ServiceManager manager;
    manager.Pulse();
    EXPECT_EQ(socket.Next(0ms), "");
    EXPECT_GE(manager.PulseInterval(), 24h);
}

TEST_F(ServiceManagerTest, AWatchdogOfAnotherProcessIsNoneOfThisOne)
{
    test::NotifySocket socket(SocketPath(), 600ms);
    setenv("WATCHDOG_PID", "1", 1);
    ServiceManager manager;
    unsetenv("WATCHDOG_PID");
    manager.Pulse();
    EXPECT_EQ(socket.Next(0ms), "");
}

}  // namespace

}  // namespace quorvane::host
