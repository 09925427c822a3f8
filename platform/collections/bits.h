// platform/collections/bits.h: a bit for each of many numbers.
#ifndef QUORVANE_PLATFORM_COLLECTIONS_BITS_H_
#define QUORVANE_PLATFORM_COLLECTIONS_BITS_H_

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace quorvane {

// All bits are clear at first; memory is taken up to the greatest number that was set. Throws std::bad_alloc.
class Bits {
public:
    static constexpr std::uint32_t kWordBits = 64;

    static std::uint64_t MaskOf(std::uint32_t number) noexcept
    {
        return std::uint64_t{1} << number % kWordBits;
    }

    bool Has(std::uint32_t number) const noexcept { return (WordOf(number) & MaskOf(number)) != 0; }
    void Set(std::uint32_t number) { Reach(number) |= MaskOf(number); }
    void Unset(std::uint32_t number) noexcept
    {
        if (MayHave(number))
            words_[number / kWordBits] &= ~MaskOf(number);
    }
    void Put(std::uint32_t number, bool set) { set ? Set(number) : Unset(number); }
    // False: neither that one nor any behind it is set.
    bool MayHave(std::uint32_t number) const noexcept { return number / kWordBits < words_.size(); }
    void Clear() noexcept { words_.clear(); }
    // How many bits are set in a row from `begin` on, `most` at the most.
    std::uint32_t RunFrom(std::uint32_t begin, std::uint32_t most) const noexcept
    {
        std::uint32_t run = 0;
        while (run < most) {
            const std::uint32_t at = (begin + run) % kWordBits;
            const auto part =
                std::min<std::uint32_t>(std::countr_one(WordOf(begin + run) >> at), kWordBits - at);
            run += part;
            if (part < kWordBits - at)
                break;
        }
        return std::min(run, most);
    }

    // The bits of the numbers that share a word with this one, to be read, and to be set.
    std::uint64_t WordOf(std::uint32_t number) const noexcept
    {
        return MayHave(number) ? words_[number / kWordBits] : 0;
    }
    std::uint64_t& Reach(std::uint32_t number)
    {
        if (!MayHave(number))
            Grow(number / kWordBits);
        return words_[number / kWordBits];
    }

private:
    [[gnu::noinline]] void Grow(std::size_t word)
    {
        if (word >= words_.capacity())
            words_.reserve(word + word / 8 + 64);  // little more than is needed: there are large ones
        words_.resize(word + 1);
    }

    std::vector<std::uint64_t> words_;
};

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_COLLECTIONS_BITS_H_
