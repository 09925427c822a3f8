#include "platform/cfb/free_map.h"

#include <bit>

namespace quorvane::cfb {

void FreeMap::Clear() noexcept
{
    for (auto& level : levels_)
        level.clear();
    count_ = 0;
}

bool FreeMap::Contains(std::uint32_t number) const noexcept
{
    const std::size_t word = number / 64;
    return word < levels_[0].size() && (levels_[0][word] >> number % 64 & 1) != 0;
}

void FreeMap::Add(std::uint32_t number)
{
    if (Contains(number))
        return;
    // All levels first, so that none has changed when there is no memory for one.
    if (levels_[0].size() <= number / 64) {
        std::uint32_t place = number;
        for (auto& level : levels_) {
            place /= 64;
            if (level.size() <= place)
                level.resize(place + 1);
        }
    }
    std::uint32_t at = number;
    for (auto& level : levels_) {
        std::uint64_t& word = level[at / 64];
        const bool known = word != 0;  // to the levels above
        word |= std::uint64_t{1} << at % 64;
        if (known)
            break;
        at /= 64;
    }
    ++count_;
}

void FreeMap::Remove(std::uint32_t number) noexcept
{
    if (!Contains(number))
        return;
    std::uint32_t at = number;
    for (auto& level : levels_) {
        std::uint64_t& word = level[at / 64];
        word &= ~(std::uint64_t{1} << at % 64);
        if (word != 0)
            break;
        at /= 64;
    }
    --count_;
}

void FreeMap::RemoveFrom(std::uint32_t end) noexcept
{
    for (std::uint32_t at = FirstFrom(end); at != kNone; at = FirstFrom(at))
        Remove(at);
}

std::uint32_t FreeMap::FirstFrom(std::uint32_t from) const noexcept
{
    std::uint64_t at = from;
    for (std::size_t up = 0; up < kLevels; ++up) {
        const auto& level = levels_[up];
        if (at / 64 >= level.size())
            return kNone;
        const std::uint64_t word = level[at / 64] >> at % 64;
        if (word != 0) {
            at += static_cast<unsigned>(std::countr_zero(word));
            for (std::size_t down = up; down > 0; --down)
                at = at * 64 + static_cast<unsigned>(std::countr_zero(levels_[down - 1][at]));
            return static_cast<std::uint32_t>(at);
        }
        at = at / 64 + 1;
    }
    return kNone;
}

std::uint32_t FreeMap::RunBefore(std::uint32_t end) const noexcept
{
    std::uint32_t run = 0;
    while (run < end) {
        const std::uint32_t last = end - run - 1;
        if (!Contains(last))
            break;
        const unsigned bits = last % 64 + 1;
        const std::uint64_t word = levels_[0][last / 64] << (64 - bits);
        const unsigned ones = static_cast<unsigned>(std::countl_one(word));
        run += ones < bits ? ones : bits;
        if (ones < bits)
            break;
    }
    return run;
}

}  // namespace quorvane::cfb
