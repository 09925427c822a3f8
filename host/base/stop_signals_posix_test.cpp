#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>

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
    bool isEnded = false;
    signals.EndWithin(1h, [&] { isEnded = true; });
    kill(getpid(), SIGINT);
    EXPECT_TRUE(signals.Wait(30s));
    signals.EndInOrder();
    EXPECT_FALSE(isEnded);
}

}  // namespace
}  // namespace quorvane::host
