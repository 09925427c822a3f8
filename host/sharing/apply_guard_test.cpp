#include "host/sharing/apply_guard.h"

#include <gtest/gtest.h>

#include <future>

namespace quorvane::host {

namespace {

constexpr auto kAtOnce = std::chrono::milliseconds(0);
constexpr auto kLong = std::chrono::seconds(30);

TEST(ApplyGuardTest, AnItemIsInHandFromItsBeginningToItsEnd)
{
    ApplyGuard guard;
    EXPECT_TRUE(guard.InHand().id.empty());

    guard.Begin("{1}", "{F}");
    EXPECT_EQ(guard.InHand().id, "{1}");
    EXPECT_EQ(guard.InHand().folderId, "{F}");
    EXPECT_FALSE(guard.AwaitEnd(guard.InHand(), kAtOnce));

    guard.End();
    EXPECT_TRUE(guard.InHand().id.empty());
}

TEST(ApplyGuardTest, AWaitEndsWithTheItemThoughItIsAppliedOnceMore)
{
    ApplyGuard guard;
    guard.Begin("{1}", "{F}");
    const ApplyGuard::Item first = guard.InHand();

    guard.End();
    guard.Begin("{1}", "{F}");

    EXPECT_TRUE(guard.AwaitEnd(first, kAtOnce));
    EXPECT_FALSE(guard.AwaitEnd(guard.InHand(), kAtOnce));
}

TEST(ApplyGuardTest, TheEndOnOneThreadEndsTheWaitOnAnother)
{
    ApplyGuard guard;
    std::async(std::launch::async, [&] { guard.Begin("{1}", "{F}"); }).wait();
    const ApplyGuard::Item item = guard.InHand();
    auto ended = std::async(std::launch::async, [&] { return guard.AwaitEnd(item, kLong); });

    guard.End();

    ASSERT_EQ(ended.wait_for(kLong / 2), std::future_status::ready);
    EXPECT_TRUE(ended.get());
}

}  // namespace

}  // namespace quorvane::host
