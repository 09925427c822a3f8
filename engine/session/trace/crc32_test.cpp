#include "engine/session/trace/crc32.h"

#include <gtest/gtest.h>

#include "platform/com/bstr.h"

namespace quorvane {
namespace {

TEST(Crc32Test, TheCheckValueOfTheAlgorithmComesOut)
{
    EXPECT_EQ(Crc32("123456789", 9), 0xCBF43926u);
}

TEST(Crc32Test, ATextCountsWithItsBytesInUtf16)
{
    EXPECT_EQ(CrcOfText(Bstr(OLESTR("AB")).Get()), Crc32("A\0B\0", 4));
}

TEST(Crc32Test, NullCountsAsEmpty)
{
    EXPECT_EQ(CrcOfText(nullptr), 0u);
    EXPECT_EQ(CrcOfText(Bstr(OleStringView()).Get()), 0u);
}

}  // namespace
}  // namespace quorvane
