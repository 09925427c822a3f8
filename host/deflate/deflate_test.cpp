#include "host/exchange/deflate.h"

#include <gtest/gtest.h>

namespace quorvane::host::exchange {

namespace {

TEST(DeflateTest, IsSmallerAndComesBack)
{
    const std::string text(10'000, 'a');
    const auto deflated = Deflate(text);
    ASSERT_TRUE(deflated);
    EXPECT_LT(deflated->size(), 100U);
    EXPECT_EQ(Inflate(*deflated, text.size()), text);
}

TEST(DeflateTest, WhatWouldntBeSmallerStaysAsItIs)
{
    EXPECT_FALSE(Deflate(""));
    EXPECT_FALSE(Deflate("abc"));
    // Among these are some that come out as long as they were.
    for (std::size_t same = 0; same < 40; ++same)
        for (std::size_t other = 0; other < 40; ++other) {
            std::string bytes(same, 'a');
            for (std::size_t i = 0; i < other; ++i)
                bytes += static_cast<char>(i * 37);
            if (const auto deflated = Deflate(bytes)) {
                EXPECT_LT(deflated->size(), bytes.size());
            }
        }
}

TEST(DeflateTest, MoreThanTheLimitOrSomethingElseIsNothing)
{
    const std::string deflated = *Deflate(std::string(10'000, 'a'));
    EXPECT_FALSE(Inflate(deflated, 9'999));
    EXPECT_FALSE(Inflate(deflated.substr(0, deflated.size() - 1), 10'000));
    EXPECT_FALSE(Inflate(deflated + "x", 10'000));
    EXPECT_FALSE(Inflate("something else", 10'000));
    EXPECT_FALSE(Inflate("", 10'000));
}

}  // namespace

}  // namespace quorvane::host::exchange
