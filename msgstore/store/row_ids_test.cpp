#include "msgstore/store/row_ids.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace quorvane {
namespace {

// What the list must be like.
using Plain = std::vector<std::int64_t>;

Plain AllOf(const RowIds& ids)
{
    Plain all;
    for (std::size_t i = 0; i < ids.size(); ++i)
        all.push_back(ids.At(i));
    return all;
}

TEST(RowIdsTest, AnEmptyListTakesNumbers)
{
    RowIds ids;
    EXPECT_EQ(ids.IndexOf(1), std::nullopt);
    ids.Insert(0, 7);
    ids.Insert(0, 5);
    EXPECT_EQ(AllOf(ids), (Plain{5, 7}));
    ids.Erase(0);
    ids.Erase(0);
    EXPECT_EQ(ids.size(), 0u);
    ids.Insert(0, 9);
    EXPECT_EQ(AllOf(ids), (Plain{9}));
}

TEST(RowIdsTest, RandomChangesLeaveTheListThatAVectorWouldBe)
{
    std::mt19937 random(20261123);
    for (const std::size_t size : {0u, 1u, 767u, 769u, 5000u}) {
        Plain plain;
        for (std::size_t i = 0; i < size; ++i)
            plain.push_back(static_cast<std::int64_t>(i * 2 + 1));
        RowIds ids(plain);
        std::int64_t next = 1000000;
        for (int step = 0; step < 6000; ++step) {
            const std::size_t at = random() % (plain.size() + 1);
            // Most go to few places, so that blocks fill and empty.
            const std::size_t place = random() % 4 != 0 ? at / 50 : at;
            const bool grows = step < 4000 ? random() % 4 != 0 : random() % 8 == 0;
            if (grows || plain.empty()) {
                plain.insert(plain.begin() + static_cast<std::ptrdiff_t>(place), next);
                ids.Insert(place, next++);
            } else if (place < plain.size()) {
                plain.erase(plain.begin() + static_cast<std::ptrdiff_t>(place));
                ids.Erase(place);
            }
            if (step % 500 == 250 && !plain.empty()) {
                const std::int64_t wanted = plain[random() % plain.size()];
                ASSERT_EQ(
                    ids.IndexOf(wanted),
                    static_cast<std::size_t>(std::find(plain.begin(), plain.end(), wanted) - plain.begin()));
                ASSERT_EQ(ids.IndexOf(-1), std::nullopt);
            }
        }
        ASSERT_EQ(AllOf(ids), plain);
    }
}

}  // namespace
}  // namespace quorvane
