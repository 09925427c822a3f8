#include "platform/collections/arena.h"

#include <new>
#include <utility>

namespace quorvane {

Arena::~Arena()
{
    while (regions_)
        Free(*regions_);
    while (spare_)
        ::operator delete (std::exchange(spare_, spare_->next), std::align_val_t{kChunk});
}

Arena::Region* Arena::Make(std::size_t bytes)
{
    void* const memory =
        bytes == kChunkBytes ? ::operator new (bytes, std::align_val_t{kChunk}) : ::operator new(bytes);
    return new (memory) Region{nullptr, nullptr, bytes, 0};
}

// Puts a chunk or a large block into use.
void Arena::Begin(Region& region) noexcept
{
    region.previous = nullptr;
    region.next = regions_;
    if (regions_)
        regions_->previous = &region;
    regions_ = &region;
    held_ += region.bytes;
}

void Arena::Free(Region& region) noexcept
{
    (region.previous ? region.previous->next : regions_) = region.next;
    if (region.next)
        region.next->previous = region.previous;
    held_ -= region.bytes;
    if (region.bytes != kChunkBytes) {
        ::operator delete(&region);
    } else if (spares_ < kMostSpare) {
        region.next = std::exchange(spare_, &region);
        ++spares_;
    } else {
        ::operator delete (&region, std::align_val_t{kChunk});
    }
}

void* Arena::TakeLarge(std::size_t size)
{
    Region* const region = Make(size + sizeof(Region));
    Begin(*region);
    return region + 1;
}

void Arena::NextChunk()
{
    Region* const chunk = spare_ ? spare_ : Make(kChunkBytes);
    if (chunk == spare_) {
        spare_ = chunk->next;
        --spares_;
    }
    Begin(*chunk);
    current_ = chunk;
    CutFrom(*chunk);
}

// The last of a chunk's blocks was given back.
void Arena::Empty(Region& chunk) noexcept
{
    if (&chunk == current_)
        CutFrom(chunk);
    else
        Free(chunk);
}

// Blocks are cut from the begin of a chunk that has none.
void Arena::CutFrom(Region& chunk) noexcept
{
    at_ = reinterpret_cast<char*>(&chunk + 1);
    left_ = kChunkBytes - sizeof(Region);
    SetUsable(at_, left_, false);
}

}  // namespace quorvane
