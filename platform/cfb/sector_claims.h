// platform/cfb/sector_claims.h: which sectors were met in a chain.
#ifndef QUORVANE_PLATFORM_CFB_SECTOR_CLAIMS_H_
#define QUORVANE_PLATFORM_CFB_SECTOR_CLAIMS_H_

#include <algorithm>

#include "platform/cfb/format.h"
#include "platform/collections/bits.h"

namespace quorvane::cfb {

// Notices a sector that two links lead to, or that a chain begins with and a link leads to: two chains share
// it, or one has a loop. What is known comes from the chains as they are walked, so that nothing is read for
// it; the chain that comes second to a shared sector is the one that is refused.
//
// Two bits a sector. Throws std::bad_alloc.
class SectorClaims {
public:
    // A chain begins with `sector`, or holds it otherwise. False: something else does.
    bool Claim(SectorId sector)
    {
        const bool first = !IsClaimed(sector);
        claimed_.Set(sector);
        return first;
    }
    // A walk goes from `from` to `to`. False: something else leads to `to`.
    bool Follow(SectorId from, SectorId to)
    {
        if (IsFollowed(from))
            return true;
        if (!Claim(to))
            return false;
        followed_.Set(from);
        return true;
    }
    // A walk goes from `from` on over `count` links to sectors with numbers one behind the other. False:
    // something else leads to one of them.
    bool FollowRun(SectorId from, SectorId count)
    {
        for (const SectorId end = from + count; from < end;) {
            const SectorId part = std::min(end - from, Bits::kWordBits - from % Bits::kWordBits);
            if (!FollowInWord(from, part))
                return false;
            from += part;
        }
        return true;
    }

    bool IsClaimed(SectorId sector) const noexcept { return claimed_.Has(sector); }
    // Whether a walk went on from that sector, so that the one behind it is claimed.
    bool IsFollowed(SectorId sector) const noexcept { return followed_.Has(sector); }

    // Whether anything may be known of that sector, or of one behind it.
    bool MayKnow(SectorId sector) const noexcept
    {
        return claimed_.MayHave(sector) || followed_.MayHave(sector);
    }

    // The sector's link is about to change.
    void Unfollow(SectorId from) noexcept { followed_.Unset(from); }
    // No chain holds the sector any more.
    void Release(SectorId sector) noexcept { claimed_.Unset(sector); }
    void Clear() noexcept
    {
        claimed_.Clear();
        followed_.Clear();
    }

private:
    // Of a run whose links are in one word.
    bool FollowInWord(SectorId from, SectorId count)
    {
        const std::uint64_t links = ~std::uint64_t{0} >> (Bits::kWordBits - count) << from % Bits::kWordBits;
        const std::uint64_t fresh = links & ~followed_.WordOf(from);
        if (fresh == 0)
            return true;
        const bool outside = fresh >> (Bits::kWordBits - 1) != 0;  // the last link leads into the next word
        if ((claimed_.WordOf(from) & fresh << 1) != 0 || (outside && IsClaimed(from + count)))
            return FollowEach(from, count);
        claimed_.Reach(from) |= fresh << 1;
        if (outside)
            claimed_.Set(from + count);
        followed_.Reach(from) |= fresh;
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
