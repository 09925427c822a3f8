#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

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

TEST(StopSignalsTest, AnOrderlyEndTakesItsTime)
{
    StopSignals signals;
    signals.EndWithin(1h, [] { std::_Exit(1); });
    kill(getpid(), SIGINT);
    EXPECT_TRUE(signals.Wait(30s));
    signals.EndInOrder();  // doesn't return where the time is taken for over
}

TEST(StopSignalsTest, WhoEndsInOrderIsNotEnded)
{
    StopSignals signals;
    signals.EndWithin(0ms, [] { std::_Exit(1); });
    signals.EndInOrder();
    kill(getpid(), SIGTERM);
    EXPECT_TRUE(signals.Wait(30s));
    signals.EndInOrder();  // doesn't return where the first one was forgotten
}

}  // namespace
}  // namespace quorvane::host
