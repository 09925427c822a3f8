#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <thread>

#include "host/base/change_watch.h"

namespace quorvane::host {
namespace {

using namespace std::chrono_literals;

TEST(StopSignalsTest, ASignalIsHeardByAllWhoWaitAndAgain)
{
    const StopSignals signals;
    ChangeWatch watch;
    EXPECT_FALSE(signals.IsAsked());
    kill(getpid(), SIGTERM);
    EXPECT_TRUE(signals.Wait(30s));
    EXPECT_TRUE(signals.IsAsked());
    EXPECT_EQ(watch.Wait(signals, 30s), ChangeWatch::Woken::kStop);
}

TEST(StopSignalsTest, WhatTakesTooLongAfterASignalIsEnded)
{
    const auto hang = [] {
        alarm(30);  // ends it otherwise
        StopSignals signals;
        signals.EndWithin(50ms, [] { std::fputs("the last word", stderr); });
        kill(getpid(), SIGTERM);
        while (true)
            pause();
    };
    EXPECT_EXIT(hang(), ::testing::ExitedWithCode(0), "the last word");
}

// For what is not to come: the end of this process, which would pass for one of its own.
void ExpectToLiveOn()
{
    std::this_thread::sleep_for(50ms);
}

TEST(StopSignalsTest, AnOrderlyEndTakesItsTime)
{
    StopSignals signals;
    signals.EndWithin(1h, [] { std::_Exit(1); });
    kill(getpid(), SIGINT);
    EXPECT_TRUE(signals.Wait(30s));
    ExpectToLiveOn();
    signals.EndInOrder();
}

TEST(StopSignalsTest, WhoEndsInOrderIsNotEnded)
{
    StopSignals signals;
    signals.EndWithin(0ms, [] { std::_Exit(1); });
    signals.EndInOrder();
    kill(getpid(), SIGTERM);
    EXPECT_TRUE(signals.Wait(30s));
    ExpectToLiveOn();
}

}  // namespace
}  // namespace quorvane::host
