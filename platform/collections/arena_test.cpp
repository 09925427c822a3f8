#include "platform/collections/arena.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

namespace quorvane {
namespace {

struct Block {
    char* at;
    std::size_t bytes;
    char value;

    bool IsUntouched() const { return std::vector<char>(at, at + bytes) == std::vector<char>(bytes, value); }
};

TEST(ArenaTest, BlocksOfAllSizesKeepWhatIsWrittenUntilTheyAreGivenBack)
{
    Arena arena;
    std::mt19937 random(7);
    std::vector<Block> blocks;
    for (int round = 0; round < 20'000; ++round) {
        if (!blocks.empty() && random() % 9 < 4) {
            std::swap(blocks[random() % blocks.size()], blocks.back());
            ASSERT_TRUE(blocks.back().IsUntouched());
            arena.Give(blocks.back().at, blocks.back().bytes);
            blocks.pop_back();
            continue;
        }
        const std::size_t bytes = 1 + random() % (random() % 50 == 0 ? 100'000 : 300);
        blocks.push_back({static_cast<char*>(arena.Take(bytes)), bytes, static_cast<char>(round)});
        ASSERT_EQ(0u, reinterpret_cast<std::uintptr_t>(blocks.back().at) % alignof(void*));
        std::memset(blocks.back().at, blocks.back().value, bytes);
    }
    for (const Block& block : blocks)
        ASSERT_TRUE(block.IsUntouched());
}

TEST(ArenaTest, WhatWasGivenBackIsUsedAnew)
{
    Arena arena;
    std::size_t held = 0;
    for (int round = 0; round < 10; ++round) {
        std::vector<void*> blocks;
        for (int i = 0; i < 5000; ++i)
            blocks.push_back(arena.Take(200));
        blocks.push_back(arena.Take(500'000));
        if (round == 0)
            held = arena.Held();
        EXPECT_LE(arena.Held(), held);
        EXPECT_LE(1'500'000u, arena.Held());
        for (void* block : blocks)
            arena.Give(block, block == blocks.back() ? 500'000 : 200);
        EXPECT_GT(50'000u, arena.Held());
    }
}

}  // namespace
}  // namespace quorvane
