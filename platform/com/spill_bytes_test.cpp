#include "platform/com/spill_bytes.h"

#include <gtest/gtest.h>

#include <string>

namespace quorvane {
namespace {

constexpr std::uint64_t kLimit = SpillBytes::kMemoryLimit;

std::string Part(SpillBytes& bytes, std::uint64_t offset, std::size_t count)
{
    std::string text(count, '?');
    std::size_t read = 0;
    EXPECT_EQ(bytes.ReadAt(offset, text.data(), count, read), S_OK);
    text.resize(read);
    return text;
}

TEST(SpillBytesTest, BytesStayWhatTheyAreWhenTheyOutgrowMemory)
{
    SpillBytes bytes;
    const std::string block(64 * 1024 + 1, 'a');
    ASSERT_EQ(bytes.WriteAt(0, "begin", 5), S_OK);
    while (bytes.Size() <= 2 * kLimit)
        ASSERT_EQ(bytes.WriteAt(bytes.Size(), block.data(), block.size()), S_OK);
    ASSERT_EQ(bytes.WriteAt(kLimit - 2, "middle", 6), S_OK);

    EXPECT_EQ(Part(bytes, 0, 6), "begina");
    EXPECT_EQ(Part(bytes, kLimit - 3, 8), "amiddlea");
    EXPECT_EQ(Part(bytes, bytes.Size() - 1, 10), "a");
    EXPECT_EQ(Part(bytes, bytes.Size(), 10), "");
}

TEST(SpillBytesTest, WhatWasNeverWrittenReadsAsZeros)
{
    for (const std::uint64_t size : {std::uint64_t{10}, kLimit + 10}) {
        SpillBytes bytes;
        ASSERT_EQ(bytes.WriteAt(0, "abcdef", 6), S_OK);
        ASSERT_EQ(bytes.Resize(size), S_OK);
        EXPECT_EQ(Part(bytes, 4, 4), std::string("ef\0\0", 4));
        ASSERT_EQ(bytes.Resize(3), S_OK);
        ASSERT_EQ(bytes.WriteAt(size, "x", 1), S_OK);

        EXPECT_EQ(bytes.Size(), size + 1);
        EXPECT_EQ(Part(bytes, 1, 4), std::string("bc\0\0", 4));
        EXPECT_EQ(Part(bytes, size - 1, 9), std::string("\0x", 2));
    }
}

TEST(SpillBytesTest, AnEndBeyondAllFilesIsRefused)
{
    SpillBytes bytes;
    ASSERT_EQ(bytes.WriteAt(0, "abc", 3), S_OK);

    EXPECT_EQ(bytes.WriteAt(~std::uint64_t{0}, "xy", 2), STG_E_MEDIUMFULL);
    EXPECT_EQ(bytes.Resize(~std::uint64_t{0}), STG_E_MEDIUMFULL);
    EXPECT_EQ(Part(bytes, 0, 9), "abc");
}

}  // namespace
}  // namespace quorvane
