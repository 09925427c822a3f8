#include "engine/session/context/notification_gate.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

namespace quorvane {
namespace {

TEST(NotificationGateTest, AnOpenGateLetsBatchesIn)
{
    const auto gate = NotificationGate::Create();
    const GatePass first(gate);
    const GatePass second(gate);

    EXPECT_TRUE(first.IsHeld());
    EXPECT_TRUE(second.IsHeld());
}

TEST(NotificationGateTest, AClosedGateTurnsBatchesAway)
{
    const auto gate = NotificationGate::Create();
    gate->CloseAndWait();

    EXPECT_FALSE(GatePass(gate).IsHeld());
}

TEST(NotificationGateTest, WithoutAGateNobodyGetsIn)
{
    EXPECT_FALSE(GatePass(nullptr).IsHeld());
}

TEST(NotificationGateTest, ClosingWaitsForThoseInside)
{
    const auto gate = NotificationGate::Create();
    std::atomic<int> left{0};
    Event go;
    ASSERT_EQ(go.Create(false), S_OK);
    std::vector<std::thread> batches;
    for (int i = 0; i < 8; ++i) {
        batches.emplace_back([&left, &go, pass = GatePass(gate)] {
            go.Wait();
            ++left;
        });
    }
    std::thread starter([&go] { go.Set(); });
    gate->CloseAndWait();

    EXPECT_EQ(left, 0 + 8);
    starter.join();
    for (auto& batch : batches)
        batch.join();
}

TEST(NotificationGateTest, AWaitUntilItIsEmptyLeavesItOpen)
{
    const auto gate = NotificationGate::Create();
    std::atomic<bool> left{false};
    std::thread batch([&left, pass = GatePass(gate)]() mutable {
        left = true;
        const GatePass leaves(std::move(pass));
    });
    gate->WaitUntilEmpty();

    EXPECT_TRUE(left);
    EXPECT_TRUE(GatePass(gate).IsHeld());
    batch.join();
}

}  // namespace
}  // namespace quorvane
