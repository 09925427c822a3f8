#include "platform/collections/free_map.h"

#include <algorithm>
#include <bit>
#include <utility>

namespace quorvane {

void FreeMap::Clear() noexcept
{
    blocks_.clear();
    for (auto& level : levels_)
        level.clear();
    count_ = 0;
}

std::size_t FreeMap::Held() const noexcept
{
    const auto empty = std::count(blocks_.begin(), blocks_.end(), nullptr);
    return (blocks_.size() - static_cast<std::size_t>(empty)) * sizeof(Block);
}

bool FreeMap::Contains(std::uint32_t number) const noexcept
{
    return (WordAt(number / 64) >> number % 64 & 1) != 0;
}

void FreeMap::Widen(std::uint32_t word)
{
    const std::uint32_t blocks = word / kBlockWords + 1;
    for (auto& level : levels_) {
        word /= 64;
        if (level.size() <= word)
            level.resize(word + 1);
    }
    blocks_.resize(blocks);
}

void FreeMap::Announce(std::uint32_t word) noexcept
{
    bool known = false;
    for (std::size_t up = 0; up < kLevels && !known; ++up, word /= 64) {
        std::uint64_t& above = levels_[up][word / 64];
        known = above != 0;
        above |= std::uint64_t{1} << word % 64;
    }
}

void FreeMap::Withdraw(std::uint32_t word) noexcept
{
    const std::uint32_t block = word / kBlockWords;
    bool other = false;
    for (std::size_t up = 0; up < kLevels && !other; ++up, word /= 64) {
        std::uint64_t& above = levels_[up][word / 64];
        above &= ~(std::uint64_t{1} << word % 64);
        other = above != 0;
    }
    if (levels_[0][block] == 0)
        blocks_[block].reset();
}

void FreeMap::AddRun(std::uint32_t begin, std::uint32_t end)
{
    if (begin == end)
        return;
    const std::uint32_t last = (end - 1) / 64;
    if (last / kBlockWords >= blocks_.size())
        Widen(last);
    for (std::uint32_t word = begin / 64; word <= last; ++word) {
        std::uint64_t mask = ~std::uint64_t{0};
        if (word == begin / 64)
            mask <<= begin % 64;
        if (word == last)
            mask &= ~std::uint64_t{0} >> (63 - (end - 1) % 64);
        if (!blocks_[word / kBlockWords])
            blocks_[word / kBlockWords] = std::make_unique<Block>();
        std::uint64_t& bits = WordOf(word);
        count_ += static_cast<std::uint32_t>(std::popcount(mask & ~bits));
        if (std::exchange(bits, bits | mask) == 0)
            Announce(word);
    }
}

void FreeMap::Remove(std::uint32_t number) noexcept
{
    if (!Contains(number))
        return;
    std::uint64_t& bits = WordOf(number / 64);
    bits &= ~(std::uint64_t{1} << number % 64);
    if (bits == 0)
        Withdraw(number / 64);
    --count_;
}

void FreeMap::TakeMany(std::uint32_t count, std::vector<std::uint32_t>* taken)
{
    taken->reserve(taken->size() + count);
    for (std::uint32_t left = count; left > 0;) {
        const std::uint32_t word = FirstFrom(0) / 64;
        std::uint64_t& bits = WordOf(word);
        for (; left > 0 && bits != 0; --left, bits &= bits - 1)
            taken->push_back(word * 64 + static_cast<std::uint32_t>(std::countr_zero(bits)));
        if (bits == 0)
            Withdraw(word);
    }
    count_ -= count;
}

void FreeMap::RemoveFrom(std::uint32_t end) noexcept
{
    for (std::uint32_t at = FirstFrom(end); at != kNone; at = FirstFrom(at))
        Remove(at);
}

std::uint32_t FreeMap::FirstFrom(std::uint32_t from) const noexcept
{
    std::uint64_t at = from;
    if (const std::uint64_t word = WordAt(at / 64) >> at % 64; word != 0)
        return static_cast<std::uint32_t>(at + static_cast<unsigned>(std::countr_zero(word)));
    at = at / 64 + 1;
    for (std::size_t up = 0; up < kLevels; ++up) {
        const auto& level = levels_[up];
        if (at / 64 >= level.size())
            return kNone;
        const std::uint64_t word = level[at / 64] >> at % 64;
        if (word != 0) {
            at += static_cast<unsigned>(std::countr_zero(word));
            for (std::size_t down = up; down > 0; --down)
                at = at * 64 + static_cast<unsigned>(std::countr_zero(levels_[down - 1][at]));
            return static_cast<std::uint32_t>(at * 64 + static_cast<unsigned>(std::countr_zero(WordAt(at))));
        }
        at = at / 64 + 1;
    }
    return kNone;
}

std::uint32_t FreeMap::RunBefore(std::uint32_t end) const noexcept
{
    std::uint32_t begin = end;
    for (unsigned ones = 1; ones > 0 && begin > 0; begin -= ones) {
        const std::uint32_t last = begin - 1;
        ones = static_cast<unsigned>(std::countl_one(WordAt(last / 64) << (63 - last % 64)));
    }
    return end - begin;
}

}  // namespace quorvane
