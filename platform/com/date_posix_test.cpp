// Where the functions of this library are stricter, or of another form, than the same ones of Windows.
#include <gtest/gtest.h>

#include <cmath>

#include "platform/com/date_for_test.h"

namespace quorvane {
namespace {

TEST(DateTest, WhatIsNoDateIsRefused)
{
    EXPECT_TRUE(std::isnan(VariantTime(Time(2011, 2, 29))));
    EXPECT_TRUE(std::isnan(VariantTime(Time(2011, 13, 1))));
    EXPECT_TRUE(std::isnan(VariantTime(Time(99, 1, 1))));
    EXPECT_TRUE(std::isnan(VariantTime(Time(2011, 1, 1, 24))));
    EXPECT_FALSE(std::isnan(VariantTime(Time(2012, 2, 29))));
}

TEST(DateTest, TheRangeOfDatesHasEnds)
{
    SYSTEMTIME time{};
    EXPECT_FALSE(VariantTimeToSystemTime(-657435.0, &time));
    EXPECT_FALSE(VariantTimeToSystemTime(2958466.0, &time));
    EXPECT_FALSE(VariantTimeToSystemTime(NAN, &time));
    EXPECT_TRUE(VariantTimeToSystemTime(-657434.0, &time));
    EXPECT_EQ(time.wYear, 100);
    EXPECT_TRUE(VariantTimeToSystemTime(2958465.0, &time));
    EXPECT_EQ(time.wYear, 9999);
}

}  // namespace
}  // namespace quorvane
