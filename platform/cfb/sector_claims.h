// platform/cfb/sector_claims.h: which sectors were met in a chain.
#ifndef QUORVANE_PLATFORM_CFB_SECTOR_CLAIMS_H_
#define QUORVANE_PLATFORM_CFB_SECTOR_CLAIMS_H_

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

    bool IsClaimed(SectorId sector) const noexcept { return Has(claimed_, sector); }
    // Whether a walk went on from that sector, so that the one behind it is claimed.
    bool IsFollowed(SectorId sector) const noexcept { return Has(followed_, sector); }

    // Whether anything may be known of that sector, or of one behind it.
    bool MayKnow(SectorId sector) const noexcept
    {
        return sector < claimed_.size() || sector < followed_.size();
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
    using Bits = std::vector<bool>;

    static bool Has(const Bits& bits, SectorId sector) noexcept
    {
        return sector < bits.size() && bits[sector];
    }
    static bool Set(Bits& bits, SectorId sector)
    {
        if (sector >= bits.size())
            bits.resize((std::size_t{sector} | 4095) + 1);
        return bits[sector] = true;
    }
    static void Unset(Bits& bits, SectorId sector) noexcept
    {
        if (sector < bits.size())
            bits[sector] = false;
    }

    Bits claimed_;
    Bits followed_;
};

}  // namespace quorvane::cfb

#endif  // QUORVANE_PLATFORM_CFB_SECTOR_CLAIMS_H_
