#include "host/sharing/check_rest.h"

#include <gtest/gtest.h>

namespace quorvane::host {

namespace {

using namespace std::chrono_literals;

TEST(CheckRestTest, IsTwoHundredTimesWhatAComparisonTookWithinLimits)
{
    EXPECT_EQ(RestAfterCheck(100ms, true), 20s);
    EXPECT_EQ(RestAfterCheck(1ms, true), 3s);
    EXPECT_EQ(RestAfterCheck(10s, true), 60s);
}

TEST(CheckRestTest, IsShortAfterOneThatFoundSomething)
{
    EXPECT_EQ(RestAfterCheck(10s, false), 3s);
}

}  // namespace

}  // namespace quorvane::host
