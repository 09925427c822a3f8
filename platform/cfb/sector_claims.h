// platform/cfb/sector_claims.h: which sectors were met in a chain.
#ifndef QUORVANE_PLATFORM_CFB_SECTOR_CLAIMS_H_
#define QUORVANE_PLATFORM_CFB_SECTOR_CLAIMS_H_

#include <algorithm>
#include <vector>

#include "platform/cfb/format.h"

namespace quorvane::cfb {

// Notices a sector that two links lead to, or that a chain begins with and a link leads to: two chains share
// it, or one has a loop. What is known comes from the chains as they are walked, so that nothing is read for
// it; the chain that comes second to a shared sector is the one that is refused.
//
// Two bits a sector. Throws std::bad_alloc.
class SectorClaims {
public:
    // A chain begins with `sector`, or holds it otherwise. False: something else does.
    bool Claim(SectorId sector) { return !IsClaimed(sector) && Set(claimed_, sector); }
    // A walk goes from `from` to `to`. False: something else leads to `to`.
    bool Follow(SectorId from, SectorId to)
    {
        return IsFollowed(from) || (Claim(to) && Set(followed_, from));
    }
    // A walk goes from `from` on over `count` links to sectors with numbers one behind the other. False:
    // something else leads to one of them.
    bool FollowRun(SectorId from, SectorId count)
    {
        for (const SectorId end = from + count; from < end;) {
            const SectorId part = std::min(end - from, kWordBits - from % kWordBits);
            if (!FollowInWord(from, part))
                return false;
            from += part;
        }
        return true;
    }

    bool IsClaimed(SectorId sector) const noexcept { return Has(claimed_, sector); }
    // Whether a walk went on from that sector, so that the one behind it is claimed.
    bool IsFollowed(SectorId sector) const noexcept { return Has(followed_, sector); }

    // Whether anything may be known of that sector, or of one behind it.
    bool MayKnow(SectorId sector) const noexcept
    {
        return sector / kWordBits < std::max(claimed_.size(), followed_.size());
    }

    // The sector's link is about to change.
    void Unfollow(SectorId from) noexcept { Unset(followed_, from); }
    // No chain holds the sector any more.
    void Release(SectorId sector) noexcept { Unset(claimed_, sector); }
    void Clear() noexcept
    {
        claimed_.clear();
        followed_.clear();
    }

private:
    using Bits = std::vector<std::uint64_t>;
    static constexpr SectorId kWordBits = 64;

    static std::uint64_t BitOf(SectorId sector) noexcept { return std::uint64_t{1} << sector % kWordBits; }
    static std::uint64_t WordOf(const Bits& bits, SectorId sector) noexcept
    {
        return sector / kWordBits < bits.size() ? bits[sector / kWordBits] : 0;
    }
    static bool Has(const Bits& bits, SectorId sector) noexcept
    {
        return (WordOf(bits, sector) & BitOf(sector)) != 0;
    }
    static std::uint64_t& Reach(Bits& bits, SectorId sector)
    {
        const std::size_t word = sector / kWordBits;
        if (word >= bits.size())
            bits.resize((word | 63) + 1);
        return bits[word];
    }
    static bool Set(Bits& bits, SectorId sector)
    {
        Reach(bits, sector) |= BitOf(sector);
        return true;
    }
    static void Unset(Bits& bits, SectorId sector) noexcept
    {
        if (sector / kWordBits < bits.size())
            bits[sector / kWordBits] &= ~BitOf(sector);
    }
    // Of a run whose links are in one word.
    bool FollowInWord(SectorId from, SectorId count)
    {
        const std::uint64_t links = ~std::uint64_t{0} >> (kWordBits - count) << from % kWordBits;
        const std::uint64_t fresh = links & ~WordOf(followed_, from);
        if (fresh == 0)
            return true;
        const bool outside = fresh >> (kWordBits - 1) != 0;  // the last link leads into the next word
        if ((WordOf(claimed_, from) & fresh << 1) != 0 || (outside && IsClaimed(from + count)))
            return FollowEach(from, count);
        Reach(claimed_, from) |= fresh << 1;
        if (outside)
            Set(claimed_, from + count);
        Reach(followed_, from) |= fresh;
        return true;
    }
    // As far as they can be followed.
    bool FollowEach(SectorId from, SectorId count)
    {
        SectorId done = 0;
        while (done < count && Follow(from + done, from + done + 1))
            ++done;
        return done == count;
    }

    Bits claimed_;
    Bits followed_;
};

}  // namespace quorvane::cfb

#endif  // QUORVANE_PLATFORM_CFB_SECTOR_CLAIMS_H_
