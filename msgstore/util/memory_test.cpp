#include "msgstore/util/memory.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

namespace quorvane {
namespace {

TEST(MapiMemoryTest, AChainIsFreedThroughItsHead)
{
    void* head = nullptr;
    ASSERT_EQ(MAPIAllocateBuffer(10, &head), S_OK);
    for (int i = 0; i < 100; ++i) {
        void* more = nullptr;
        ASSERT_EQ(MAPIAllocateMore(1000, head, &more), S_OK);
        std::memset(more, i, 1000);
    }
    EXPECT_EQ(MAPIFreeBuffer(head), 0u);  // the leak checker sees what's left over
}

TEST(MapiMemoryTest, BlocksAreAlignedForAnyType)
{
    MapiBuffer<BYTE> head;
    ASSERT_EQ(MAPIAllocateBuffer(1, reinterpret_cast<void**>(head.Put())), S_OK);
    void* more = nullptr;
    ASSERT_EQ(MAPIAllocateMore(3, head.Get(), &more), S_OK);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(head.Get()) % alignof(std::max_align_t), 0u);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(more) % alignof(std::max_align_t), 0u);
}

TEST(MapiMemoryTest, AnEmptyBlockIsABlock)
{
    void* head = nullptr;
    ASSERT_EQ(MAPIAllocateBuffer(0, &head), S_OK);
    EXPECT_NE(head, nullptr);
    MAPIFreeBuffer(head);
}

TEST(MapiMemoryTest, FreeingNullDoesNothing)
{
    EXPECT_EQ(MAPIFreeBuffer(nullptr), 0u);
}

TEST(MapiMemoryTest, NoPlaceForTheResultIsRefused)
{
    EXPECT_EQ(MAPIAllocateBuffer(1, nullptr), MAPI_E_INVALID_PARAMETER);
    EXPECT_EQ(MAPIAllocateMore(1, nullptr, nullptr), MAPI_E_INVALID_PARAMETER);
}

TEST(MapiMemoryTest, ASizeBeyond32BitsGivesNoBlock)
{
    const MapiAllocator allocator;
    EXPECT_EQ(allocator.Allocate(std::size_t{1} << 40), nullptr);
}

TEST(MapiMemoryTest, TheDefaultMallocResizesAndKeepsContent)
{
    LPMALLOC const allocator = MAPIGetDefaultMalloc();
    ASSERT_NE(allocator, nullptr);
    auto* block = static_cast<char*>(allocator->Alloc(4));
    std::memcpy(block, "abc", 4);
    block = static_cast<char*>(allocator->Realloc(block, 4000));
    EXPECT_STREQ(block, "abc");
    EXPECT_EQ(allocator->GetSize(block), 4000u);
    allocator->Free(block);
    EXPECT_EQ(MAPIGetDefaultMalloc(), allocator);
}

}  // namespace
}  // namespace quorvane
