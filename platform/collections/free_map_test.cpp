#include "platform/collections/free_map.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>
#include <vector>

namespace quorvane {
namespace {

TEST(FreeMapTest, AnEmptyMapHasNoFirst)
{
    const FreeMap map;
    EXPECT_EQ(FreeMap::kNone, map.FirstFrom(0));
    EXPECT_EQ(FreeMap::kNone, map.FirstFrom(0xFFFFFFFE));
    EXPECT_EQ(0u, map.RunBefore(1000));
    EXPECT_FALSE(map.Contains(0));
}

TEST(FreeMapTest, AddingTwiceCountsOnce)
{
    FreeMap map;
    map.Add(7);
    map.Add(7);
    EXPECT_EQ(1u, map.Count());
    map.Remove(7);
    map.Remove(7);
    EXPECT_EQ(0u, map.Count());
}

TEST(FreeMapTest, FindsMembersFarApart)
{
    FreeMap map;
    for (const std::uint32_t number : {0u, 63u, 64u, 4095u, 4096u, 262144u, 20000000u})
        map.Add(number);
    EXPECT_EQ(0u, map.FirstFrom(0));
    EXPECT_EQ(63u, map.FirstFrom(1));
    EXPECT_EQ(64u, map.FirstFrom(64));
    EXPECT_EQ(4095u, map.FirstFrom(65));
    EXPECT_EQ(262144u, map.FirstFrom(4097));
    EXPECT_EQ(20000000u, map.FirstFrom(262145));
    EXPECT_EQ(FreeMap::kNone, map.FirstFrom(20000001));
}

TEST(FreeMapTest, DoesWhatASetDoes)
{
    FreeMap map;
    std::set<std::uint32_t> set;
    std::mt19937 random(1);
    for (unsigned i = 0; i < 20000; ++i) {
        const std::uint32_t number = random() % 3000;
        if (random() % 2 == 0) {
            map.Add(number);
            set.insert(number);
        } else {
            map.Remove(number);
            set.erase(number);
        }
        const std::uint32_t from = random() % 3100;
        const auto first = set.lower_bound(from);
        ASSERT_EQ(first == set.end() ? FreeMap::kNone : *first, map.FirstFrom(from));
        std::uint32_t run = 0;
        while (run < from && set.contains(from - run - 1))
            ++run;
        ASSERT_EQ(run, map.RunBefore(from));
        ASSERT_EQ(set.size(), map.Count());
    }
    map.RemoveFrom(1000);
    EXPECT_EQ(FreeMap::kNone, map.FirstFrom(1000));
    EXPECT_EQ(*set.begin(), map.FirstFrom(0));
}

TEST(FreeMapTest, WhereThereAreNoMembersNoMemoryIsTaken)
{
    FreeMap map;
    map.AddRun(0, 100 * 4096);
    const std::size_t whole = map.Held();
    EXPECT_LT(0u, whole);
    std::vector<std::uint32_t> taken;
    map.TakeMany(50 * 4096, &taken);
    EXPECT_EQ(whole / 2, map.Held());
    map.RemoveFrom(51 * 4096);
    EXPECT_EQ(whole / 100, map.Held());
    for (std::uint32_t number = 50 * 4096; number < 51 * 4096; ++number)
        map.Remove(number);
    EXPECT_EQ(0u, map.Held());
    map.Add(3);
    EXPECT_EQ(whole / 100, map.Held());
}

// As the table of a file that grows: what is added is taken soon, and some of it comes back.
TEST(FreeMapTest, RunsAreAddedAndTakenOverManyBlocks)
{
    FreeMap map;
    std::set<std::uint32_t> set;
    std::mt19937 random(2);
    std::uint32_t end = 0;
    for (unsigned i = 0; i < 300; ++i) {
        const std::uint32_t begin = random() % 4 == 0 ? random() % (end + 1) : end;
        const std::uint32_t count = random() % 6000;
        map.AddRun(begin, begin + count);
        for (std::uint32_t number = begin; number < begin + count; ++number)
            set.insert(number);
        end = std::max(end, begin + count);
        std::vector<std::uint32_t> taken;
        map.TakeMany(i % 3 == 0 ? map.Count() : map.Count() / 2, &taken);
        for (const std::uint32_t number : taken) {
            ASSERT_EQ(*set.begin(), number);
            set.erase(set.begin());
        }
        const std::uint32_t from = random() % (end + 1);
        const auto first = set.lower_bound(from);
        ASSERT_EQ(first == set.end() ? FreeMap::kNone : *first, map.FirstFrom(from));
        ASSERT_EQ(set.contains(from), map.Contains(from));
        ASSERT_EQ(set.size(), map.Count());
    }
}

}  // namespace
}  // namespace quorvane
