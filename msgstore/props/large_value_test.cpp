#include "msgstore/props/large_value.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace quorvane {
namespace {

// A value that claims a size.
class ClaimedValue : public LargeValue {
public:
    ClaimedValue(Bytes bytes, std::uint64_t size) : bytes_(std::move(bytes)), size_(size) {}

    std::uint64_t Size() const noexcept override { return size_; }

    HRESULT ReadAt(std::uint64_t offset, void* buffer, ULONG count, ULONG& read) noexcept override
    {
        read = 0;
        if (offset >= bytes_.size())
            return S_OK;
        read = static_cast<ULONG>(std::min<std::uint64_t>(count, bytes_.size() - offset));
        std::copy_n(bytes_.begin() + static_cast<std::ptrdiff_t>(offset), read, static_cast<BYTE*>(buffer));
        return S_OK;
    }

private:
    const Bytes bytes_;
    const std::uint64_t size_;
};

constexpr std::uint64_t kNoLimit = ~std::uint64_t{0};

TEST(LargeValueTest, IsReadWholeInPieces)
{
    Bytes written(3 * 1024 * 1024 + 5);
    for (std::size_t i = 0; i < written.size(); ++i)
        written[i] = static_cast<BYTE>(i % 251);
    ClaimedValue value(written, written.size());
    Bytes bytes;
    ASSERT_EQ(S_OK, ReadWhole(value, written.size(), bytes));
    EXPECT_EQ(written, bytes);
    EXPECT_EQ(MAPI_E_NOT_ENOUGH_MEMORY, ReadWhole(value, written.size() - 1, bytes));
    EXPECT_TRUE(bytes.empty());
}

TEST(LargeValueTest, OfNoBytesIsWhole)
{
    ClaimedValue value({}, 0);
    Bytes bytes = {1};
    EXPECT_EQ(S_OK, ReadWhole(value, kNoLimit, bytes));
    EXPECT_TRUE(bytes.empty());
}

// More than any machine has, so that asking for it first would tell of memory.
TEST(LargeValueTest, ThatClaimsMoreThanItHasCostsNoMemory)
{
    ClaimedValue value({1, 2, 3}, std::uint64_t{1} << 62);
    Bytes bytes;
    EXPECT_EQ(MAPI_E_CORRUPT_DATA, ReadWhole(value, kNoLimit, bytes));
    EXPECT_TRUE(bytes.empty());
}

}  // namespace
}  // namespace quorvane
