// platform/collections/successors.h: which slots of a table of links lead to the slot behind them.
#ifndef QUORVANE_PLATFORM_COLLECTIONS_SUCCESSORS_H_
#define QUORVANE_PLATFORM_COLLECTIONS_SUCCESSORS_H_

#include "platform/collections/bits.h"

namespace quorvane {

// Most chains of a table go on with the next number. What was seen of that takes a bit a slot, so that a walk
// along such a chain needs the table no more. Slots are learnt by blocks. Throws std::bad_alloc.
class Successors {
public:
    static constexpr std::uint32_t kBlock = 128;

    // Whether the block of that slot was learnt.
    bool Knows(std::uint32_t slot) const noexcept { return known_.Has(slot / kBlock); }
    // Learns the block that begins with `first`: linkAt(i) is the link of the slot `first` + i.
    template <class LinkAt>
    void Learn(std::uint32_t first, const LinkAt& linkAt)
    {
        for (std::uint32_t i = 0; i < kBlock; i += Bits::kWordBits) {
            std::uint64_t word = 0;
            for (std::uint32_t at = 0; at < Bits::kWordBits; ++at)
                word |= std::uint64_t{linkAt(i + at) == first + i + at + 1} << at;
            straight_.Reach(first + i) = word;
        }
        known_.Set(first / kBlock);
    }
    // A slot of a block that was learnt gets another link.
    void Set(std::uint32_t slot, std::uint32_t link) { straight_.Put(slot, link == slot + 1); }
    // How many slots in a row, from `begin` on, lead to the one behind them, `most` at the most; they are of
    // one block that was learnt.
    std::uint32_t RunFrom(std::uint32_t begin, std::uint32_t most) const noexcept
    {
        return straight_.RunFrom(begin, most);
    }
    void Clear() noexcept { known_.Clear(); }

private:
    Bits known_;     // by block
    Bits straight_;  // by slot
};

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_COLLECTIONS_SUCCESSORS_H_
