#include "host/sharing/text_set.h"

#include <gtest/gtest.h>

#include <string>

namespace quorvane::host {
namespace {

TEST(TextSetTest, HasWhatWasAddedAndNothingElse)
{
    TextSet set;
    EXPECT_FALSE(set.Has(""));
    for (int number = 0; number < 3000; number += 3)
        set.Add(std::to_string(number));

    for (int number = 0; number < 3000; ++number)
        EXPECT_EQ(set.Has(std::to_string(number)), number % 3 == 0) << number;
}

TEST(TextSetTest, TakesMoreAfterAQuestion)
{
    TextSet set;
    set.Add("b");
    set.Add("b");
    EXPECT_TRUE(set.Has("b"));
    EXPECT_FALSE(set.Has("a"));

    set.Add("a");
    EXPECT_TRUE(set.Has("a"));
    EXPECT_TRUE(set.Has("b"));
}

}  // namespace
}  // namespace quorvane::host
