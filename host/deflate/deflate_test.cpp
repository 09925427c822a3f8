#include "host/deflate/deflate.h"

#include <gtest/gtest.h>

namespace quorvane::host {

namespace {

TEST(DeflateTest, IsSmallerAndComesBack)
{
    const std::string text(10'000, 'a');
    const std::string deflated = Deflate(text);
    EXPECT_LT(deflated.size(), 100U);
    EXPECT_EQ(Inflate(deflated, text.size()), text);
}

TEST(DeflateTest, EverythingComesBackInAnyRoomThatIsLargeEnough)
{
    for (std::size_t same = 0; same < 40; ++same)
        for (std::size_t other = 0; other < 40; ++other) {
            std::string bytes(same, 'a');
            for (std::size_t i = 0; i < other; ++i)
                bytes += static_cast<char>(i * 37);
            EXPECT_EQ(Inflate(Deflate(bytes), bytes.size()), bytes);
            EXPECT_EQ(Inflate(Deflate(bytes), bytes.size() + 1000), bytes);
        }
}

// A page of zlib's own making, and what it says: "quorvane" three times.
TEST(DeflateTest, WhatZlibMadeIsRead)
{
    const unsigned char made[] = {0x78, 0x9C, 0x2B, 0x2C, 0xCD, 0x2F, 0x2A, 0x4B, 0xCC,
                                  0x4B, 0x2D, 0x44, 0xA3, 0x01, 0x82, 0x11, 0x0A, 0x54};
    EXPECT_EQ(Inflate({reinterpret_cast<const char*>(made), sizeof made}, 100), "quorvanequorvanequorvane");
}

TEST(DeflateTest, MoreThanTheLimitOrSomethingElseIsNothing)
{
    const std::string deflated = Deflate(std::string(10'000, 'a'));
    EXPECT_FALSE(Inflate(deflated, 9'999));
    EXPECT_FALSE(Inflate(deflated.substr(0, deflated.size() - 1), 10'000));
    EXPECT_FALSE(Inflate(deflated + "x", 10'000));
    EXPECT_FALSE(Inflate("something else", 10'000));
    EXPECT_FALSE(Inflate("", 10'000));
    std::string damaged = deflated;
    damaged.back() ^= 1;  // the checksum
    EXPECT_FALSE(Inflate(damaged, 10'000));
}

}  // namespace

}  // namespace quorvane::host
