#include "host/base/processor_time.h"

#include <gtest/gtest.h>

#include <thread>

namespace quorvane::host {
namespace {

using namespace std::chrono_literals;

TEST(ProcessorTimeTest, WorkCountsAndWaitingDoesnt)
{
    const auto before = ProcessorTimeOfThread();
    std::this_thread::sleep_for(200ms);
    const auto waited = ProcessorTimeOfThread() - before;
    EXPECT_LT(waited, 100ms);
    const auto deadline = std::chrono::steady_clock::now() + 30s;
    while (ProcessorTimeOfThread() - before - waited < 50ms)
        ASSERT_LT(std::chrono::steady_clock::now(), deadline);
}

TEST(ProcessorTimeTest, WhatOtherThreadsDoDoesntCount)
{
    const auto before = ProcessorTimeOfThread();
    std::thread([] {
        const auto begin = ProcessorTimeOfThread();
        while (ProcessorTimeOfThread() - begin < 200ms) {
        }
    }).join();
    EXPECT_LT(ProcessorTimeOfThread() - before, 100ms);
}

}  // namespace
}  // namespace quorvane::host
