// platform/collections/free_map.h: a set of small numbers that finds its least member without a search.
#ifndef QUORVANE_PLATFORM_COLLECTIONS_FREE_MAP_H_
#define QUORVANE_PLATFORM_COLLECTIONS_FREE_MAP_H_

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

namespace quorvane {

// A bitmap with summaries: a bit of each higher level says whether a word of the level below has members. The
// lowest level lies in blocks of 4,096 numbers, which take memory only while they have members: of a table
// that grows and is filled few have.
// One call at a time. Throws std::bad_alloc.
class FreeMap {
public:
    static constexpr std::uint32_t kNone = 0xFFFFFFFF;

    void Clear() noexcept;
    bool Contains(std::uint32_t number) const noexcept;
    // Adding a member twice, or removing what isn't there, changes nothing.
    void Add(std::uint32_t number) { AddRun(number, number + 1); }
    void AddRun(std::uint32_t begin, std::uint32_t end);
    void Remove(std::uint32_t number) noexcept;
    // Removes the least `count` members, of which there are at least as many, and appends them to *taken.
    void TakeMany(std::uint32_t count, std::vector<std::uint32_t>* taken);
    // Removes all members from `end` on.
    void RemoveFrom(std::uint32_t end) noexcept;

    std::uint32_t Count() const noexcept { return count_; }
    // What the blocks take of memory.
    std::size_t Held() const noexcept;
    // The least member that is at least `from`; kNone if there is none.
    std::uint32_t FirstFrom(std::uint32_t from) const noexcept;
    // How many numbers before `end`, counted downwards without a gap, are members.
    std::uint32_t RunBefore(std::uint32_t end) const noexcept;

private:
    static constexpr std::size_t kLevels = 5;  // above the lowest: 64 to the sixth is more than 32 bits
    static constexpr std::uint32_t kBlockWords = 64;

    using Block = std::array<std::uint64_t, kBlockWords>;

    // A word of the lowest level.
    std::uint64_t WordAt(std::uint64_t word) const noexcept
    {
        const std::uint64_t block = word / kBlockWords;
        return block < blocks_.size() && blocks_[block] ? (*blocks_[block])[word % kBlockWords] : 0;
    }
    std::uint64_t& WordOf(std::uint32_t word) noexcept
    {
        return (*blocks_[word / kBlockWords])[word % kBlockWords];
    }
    // Makes the levels reach that word, and then the list of blocks, which tells how far they reach.
    void Widen(std::uint32_t word);
    // Whether a word of the lowest level has bits, to be told to the levels above.
    void Announce(std::uint32_t word) noexcept;
    void Withdraw(std::uint32_t word) noexcept;

    std::vector<std::unique_ptr<Block>> blocks_;
    std::array<std::vector<std::uint64_t>, kLevels> levels_;
    std::uint32_t count_ = 0;
};

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_COLLECTIONS_FREE_MAP_H_
