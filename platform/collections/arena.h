// platform/collections/arena.h: memory for many small blocks that come and go together.
#ifndef QUORVANE_PLATFORM_COLLECTIONS_ARENA_H_
#define QUORVANE_PLATFORM_COLLECTIONS_ARENA_H_

#include <cstddef>
#include <cstdint>

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/asan_interface.h>
#endif

namespace quorvane {

// Blocks are cut from chunks one behind the other; a chunk whose blocks were all given back is used anew.
// Large blocks have memory of their own. What nobody gave back goes with the arena; nothing in it is
// destroyed.
//
// One call at a time. Throws std::bad_alloc.
class Arena {
public:
    Arena() noexcept = default;
    Arena(const Arena&) = delete;
    Arena& operator=(const Arena&) = delete;
    ~Arena();

    // A block for anything that a pointer's alignment is enough for; `bytes` isn't 0.
    void* Take(std::size_t bytes)
    {
        const std::size_t size = RoundedUp(bytes);
        if (size > kMostSmall)
            return TakeLarge(size);
        if (size > left_)
            NextChunk();
        char* const block = at_;
        at_ += size;
        left_ -= size;
        ++current_->blocks;
        SetUsable(block, size, true);
        return block;
    }
    // bytes: as they were asked for.
    void Give(void* block, std::size_t bytes) noexcept
    {
        const std::size_t size = RoundedUp(bytes);
        if (size > kMostSmall) {
            Free(*(static_cast<Region*>(block) - 1));
            return;
        }
        SetUsable(block, size, false);
        if (Region& chunk = ChunkOf(block); --chunk.blocks == 0)
            Empty(chunk);
    }
    // What chunks in use and large blocks take of memory.
    std::size_t Held() const noexcept { return held_; }

private:
    // What a chunk, or a large block, begins with. All of an arena are in one list, spare ones in another.
    struct Region {
        Region* next;
        Region* previous;
        std::size_t bytes;
        std::size_t blocks;  // of a chunk: how many are in use
    };

    static constexpr std::size_t kChunk = 32768;  // a power of two, and the alignment of chunks
    // What the C library keeps before each fits in, so that neighbours leave no gap.
    static constexpr std::size_t kChunkBytes = kChunk - 64;
    static constexpr std::size_t kMostSmall = kChunk / 8;
    static constexpr unsigned kMostSpare = 32;

    static std::size_t RoundedUp(std::size_t bytes) noexcept
    {
        return (bytes + alignof(void*) - 1) & ~(alignof(void*) - 1);
    }
    // The address sanitizer tells of whoever touches what isn't in use.
    static void SetUsable([[maybe_unused]] void* at, [[maybe_unused]] std::size_t bytes,
                          [[maybe_unused]] bool usable) noexcept
    {
#ifdef __SANITIZE_ADDRESS__
        usable ? __asan_unpoison_memory_region(at, bytes) : __asan_poison_memory_region(at, bytes);
#endif
    }
    static Region& ChunkOf(void* block) noexcept
    {
        const auto address = reinterpret_cast<std::uintptr_t>(block);
        return *reinterpret_cast<Region*>(address & ~std::uintptr_t{kChunk - 1});
    }
    Region* Make(std::size_t bytes);
    void Free(Region& region) noexcept;
    [[nodiscard]] void* TakeLarge(std::size_t size);
    void NextChunk();
    void Begin(Region& chunk) noexcept;
    void Empty(Region& chunk) noexcept;
    void CutFrom(Region& chunk) noexcept;

    Region* regions_ = nullptr;
    Region* spare_ = nullptr;  // chunks without blocks, by their `next`
    unsigned spares_ = 0;
    Region* current_ = nullptr;
    char* at_ = nullptr;
    std::size_t left_ = 0;
    std::size_t held_ = 0;
};

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_COLLECTIONS_ARENA_H_
