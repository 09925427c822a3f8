// platform/cfb/link_table.h: what a FAT and a mini FAT have in common.
#ifndef QUORVANE_PLATFORM_CFB_LINK_TABLE_H_
#define QUORVANE_PLATFORM_CFB_LINK_TABLE_H_

#include <algorithm>
#include <array>
#include <vector>

#include "platform/cfb/format.h"
#include "platform/cfb/sector_claims.h"
#include "platform/collections/free_slots.h"
#include "platform/collections/successors.h"
#include "platform/com/result.h"

namespace quorvane::cfb {

// How many of `count` sectors, from the first one on, have numbers one behind the other.
inline SectorId RunLength(const SectorId* sectors, SectorId count) noexcept
{
    SectorId run = 1;
    while (run < count && sectors[run] == sectors[0] + run)
        ++run;
    return run;
}

// For each sector the next one of its chain, or a mark, and which of them are free. A free one is taken
// before the table grows, lowest first; one that was freed comes back after the next commit. One call at a
// time. Throws std::bad_alloc.
class LinkTable {
public:
    // step: how many sectors one request looks at that finds none that is known as free.
    explicit LinkTable(std::uint32_t step) noexcept : slots_(step) {}
    virtual ~LinkTable() = default;

    // STG_E_DOCFILECORRUPT: there is no such sector. Others come from the byte store.
    [[nodiscard]] HRESULT Next(SectorId sector, SectorId* next)
    {
        const BYTE* link = nullptr;
        QV_TRY(PeekLinks(sector, 1, &link));
        *next = LoadU32(link);
        return S_OK;
    }
    // Goes along a chain from `first` on, over sectors that have numbers one behind the other, `most` at the
    // most. *count: how many these are. *next: the one behind them, when they are fewer than `most`.
    // STG_E_DOCFILECORRUPT also when another chain holds a sector that it leads to, or this one does already.
    [[nodiscard]] HRESULT FollowRun(SectorId first, SectorId most, SectorId* count, SectorId* next)
    {
        const SectorId slots = Slots();
        *count = 1;
        while (*count < most) {
            const SectorId begin = first + *count - 1;
            const SectorId part = std::min(most - *count, kBlock - begin % kBlock);
            if (begin >= slots)
                return STG_E_DOCFILECORRUPT;
            if (!straight_.Knows(begin))
                QV_TRY(Learn(begin - begin % kBlock));
            const SectorId run = std::min(straight_.RunFrom(begin, part), slots - 1 - begin);
            if (!claims_.FollowRun(begin, run))
                return STG_E_DOCFILECORRUPT;
            *count += run;
            if (run < part) {
                QV_TRY(Next(begin + run, next));
                return *next >= slots || claims_.Follow(begin + run, *next) ? S_OK : STG_E_DOCFILECORRUPT;
            }
        }
        return S_OK;
    }
    // Adds the free ones of the sectors [begin, end) to `free`.
    [[nodiscard]] HRESULT FindFree(SectorId begin, SectorId end, FreeMap& free)
    {
        for (SectorId part = 0; begin < end; begin += part) {
            const BYTE* links = nullptr;
            part = std::min(end - begin, kBlock - begin % kBlock);
            QV_TRY(PeekLinks(begin, part, &links));
            for (SectorId i = 0, run = 0; i < part; i += run + 1) {
                for (run = 0; i + run < part && LoadU32(&links[4 * (i + run)]) == kFreeSector;)
                    ++run;
                free.AddRun(begin + i, begin + i + run);
            }
        }
        return S_OK;
    }
    // What is known of the chains. It follows what is written by the functions below.
    SectorClaims& Claims() noexcept { return claims_; }

    // Each link takes effect by itself.
    [[nodiscard]] HRESULT SetNext(SectorId sector, SectorId next) { return SetNexts(sector, &next, 1); }
    // Sets the links of `count` sectors with numbers one behind the other, from `first` on.
    [[nodiscard]] HRESULT SetNexts(SectorId first, const SectorId* nexts, SectorId count)
    {
        std::array<BYTE, 4 * kBlock> links;
        while (count > 0) {
            const SectorId part = std::min(count, kBlock - first % kBlock);
            for (SectorId i = 0; i < part && claims_.MayKnow(first); ++i) {
                QV_TRY(Unfollow(first + i));
                if (nexts[i] == kFreeSector)
                    claims_.Release(first + i);
            }
            for (SectorId i = 0; i < part; ++i)
                StoreU32(&links[4 * i], nexts[i]);
            for (SectorId i = 0; i < part && straight_.Knows(first); ++i)
                straight_.Set(first + i, nexts[i]);
            QV_TRY(SetLinks(first, links.data(), part));
            first += part;
            nexts += part;
            count -= part;
        }
        return S_OK;
    }
    // Makes sectors a chain, which ends with the last of them.
    [[nodiscard]] HRESULT SetChain(std::vector<SectorId> sectors)
    {
        const auto count = static_cast<SectorId>(sectors.size());
        sectors.push_back(kEndOfChain);
        for (SectorId begin = 0, run = 0; begin < count; begin += run) {
            run = RunLength(&sectors[begin], count - begin);
            QV_TRY(SetNexts(sectors[begin], &sectors[begin + 1], run));
        }
        return S_OK;
    }
    // Takes `count` sectors, whose links the caller sets, and appends them to *sectors. STG_E_MEDIUMFULL: the
    // format's limit.
    [[nodiscard]] virtual HRESULT TakeMany(SectorId count, std::vector<SectorId>* sectors)
    {
        const SectorId known = std::min(count, slots_.Known());
        slots_.TakeMany(known, sectors);
        for (SectorId i = known; i < count; ++i) {
            SectorId sector = 0;
            QV_TRY(slots_.Take(*this, &sector));
            if (sector == FreeSlots::kNone)
                QV_TRY(Grow(&sector));
            sectors->push_back(sector);
        }
        return S_OK;
    }
    // Frees up to `most` sectors of the chain that begins at *at; *at becomes the rest of the chain. A chain
    // that leads to sectors that aren't in use, or out of the file, ends there.
    [[nodiscard]] HRESULT FreeChain(SectorId* at, std::uint32_t most)
    {
        const SectorId end = End();
        while (most > 0 && *at < end) {
            const SectorId first = *at;
            SectorId count = 0;
            QV_TRY(FollowRunFreed(at, std::min(most, end - first), &count));
            QV_TRY(SetNexts(first, kFree.data(), count));
            slots_.Give(first, first + count);
            most -= count;
        }
        if (*at >= end)
            *at = kEndOfChain;
        return S_OK;
    }
    // The operation is in the store.
    void Committed() { slots_.Committed(); }
    // How many sectors are known as free.
    SectorId Known() const noexcept { return slots_.Known(); }
    bool HasFreed() const noexcept { return slots_.HasHeld(); }
    // How many sectors the table has links for: no chain is longer.
    virtual SectorId Slots() const noexcept = 0;

protected:
    // Where the sectors end that there are.
    virtual SectorId End() const noexcept { return Slots(); }
    // Adds sectors, and takes one of them.
    [[nodiscard]] virtual HRESULT Grow(SectorId* sector) = 0;
    FreeSlots& FreeOnes() noexcept { return slots_; }
    // Links come that aren't set, in the place of others; or the whole table is another one.
    void ForgetLinks() noexcept { straight_.Clear(); }

    // A sector of the table holds this many links, or a multiple.
    static constexpr SectorId kBlock = Successors::kBlock;
    static constexpr std::array<SectorId, kBlock> kFree = [] {
        std::array<SectorId, kBlock> links{};
        links.fill(kFreeSector);
        return links;
    }();

    // Where the links of `count` sectors, which are of one block, lie in the cache, until the next call of
    // anything that reads or writes the file. STG_E_DOCFILECORRUPT: there is no such sector.
    [[nodiscard]] virtual HRESULT PeekLinks(SectorId first, SectorId count, const BYTE** links) = 0;
    // How many blocks, from the one on that begins with that sector's link, lie in one page, when it isn't 1.
    [[nodiscard]] virtual HRESULT BlocksBeside(SectorId, SectorId*) { return S_OK; }
    // Writes them.
    [[nodiscard]] virtual HRESULT SetLinks(SectorId first, const BYTE* links, SectorId count) = 0;

private:
    // Goes along a chain that is freed, over up to `most` sectors with numbers one behind the other; one that
    // runs into another chain ends there. *count: how many of them are in use.
    [[nodiscard]] HRESULT FollowRunFreed(SectorId* at, SectorId most, SectorId* count)
    {
        const BYTE* links = nullptr;
        const SectorId first = *at;
        most = std::min({most, kBlock - first % kBlock, Slots() - std::min(first, Slots())});
        QV_TRY(PeekLinks(first, most, &links));
        do {
            *at = LoadU32(&links[4 * *count]);
            if (claims_.IsClaimed(*at) && !claims_.IsFollowed(first + *count))
                *at = kEndOfChain;
            if (*at > kMaxSector && *at != kEndOfChain) {
                *at = kEndOfChain;
                return S_OK;
            }
            ++*count;
        } while (*count < most && *at == first + *count);
        return S_OK;
    }
    // Learns which links lead to the next number, of a block and of those beside it.
    [[nodiscard]] HRESULT Learn(SectorId first)
    {
        SectorId blocks = 1;
        QV_TRY(BlocksBeside(first, &blocks));
        for (const SectorId end = first + blocks * kBlock; first < end; first += kBlock) {
            const BYTE* links = nullptr;
            QV_TRY(PeekLinks(first, kBlock, &links));
            straight_.Learn(first, [&](SectorId i) { return LoadU32(&links[4 * i]); });
        }
        return S_OK;
    }
    // The sector's link is about to lead elsewhere.
    [[nodiscard]] HRESULT Unfollow(SectorId sector)
    {
        if (!claims_.IsFollowed(sector))
            return S_OK;
        SectorId next = 0;
        QV_TRY(Next(sector, &next));
        claims_.Release(next);
        claims_.Unfollow(sector);
        return S_OK;
    }

    SectorClaims claims_;
    Successors straight_;
    FreeSlots slots_;
};

}  // namespace quorvane::cfb

#endif  // QUORVANE_PLATFORM_CFB_LINK_TABLE_H_
