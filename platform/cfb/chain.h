// platform/cfb/chain.h: the sectors of one chain by their place in it.
#ifndef QUORVANE_PLATFORM_CFB_CHAIN_H_
#define QUORVANE_PLATFORM_CFB_CHAIN_H_

#include <vector>

#include "platform/cfb/link_table.h"

namespace quorvane::cfb {

// Finds the sector at a place of a chain without walking all of it again: remembers the runs of sectors with
// numbers one behind the other that were met, a bounded number of them, spread over the chain.
//
// The table outlives the chain. One call at a time. Throws std::bad_alloc.
class Chain {
public:
    // How many runs are remembered: of a stream's chain, and of one that the whole file rests on.
    enum class Marks { kFew, kMany };

    explicit Chain(LinkTable& table, SectorId first = kEndOfChain, Marks marks = Marks::kFew) noexcept
        : many_(marks == Marks::kMany)
    {
        Reset(table, first);
    }

    // Begins anew: another first sector, or links that changed, or another table.
    void Reset(SectorId first) noexcept { Reset(*table_, first); }
    void Reset(LinkTable& table, SectorId first) noexcept
    {
        table_ = &table;
        head_ = {0, first, first <= kMaxSector ? 1u : 0u};
        last_ = first <= kMaxSector && first < table.Slots() ? head_ : Run{};
        others_.clear();
        stride_ = 1;
        unlinked_ = 0;
    }
    // The chain ends before `length` now, which isn't 0.
    void Cut(SectorId length) noexcept;
    SectorId First() const noexcept { return head_.sector; }

    // The sector at `index`, which counts from 0. STG_E_DOCFILECORRUPT: the chain ends before, or leads
    // where no sector is.
    [[nodiscard]] HRESULT At(SectorId index, SectorId* sector)
    {
        if (!last_.Holds(index))
            QV_TRY(Find(index));
        *sector = last_.sector + (index - last_.index);
        return S_OK;
    }
    // Which places of the chain, [*begin, *end), have sectors behind each other around the one that was asked
    // for last.
    void RunAround(SectorId* begin, SectorId* end) const noexcept
    {
        *begin = last_.index;
        *end = last_.End();
    }
    // The sector at `index`, and how many of the chain's sectors from there on, `most` at the most, lie
    // behind each other in the file.
    [[nodiscard]] HRESULT RunAt(SectorId index, SectorId most, SectorId* sector, SectorId* count)
    {
        QV_TRY(At(index, sector));
        *count = most;
        return last_.End() - index >= most ? S_OK : LongerRunAt(index, most, count);
    }
    // The number of sectors. STG_E_DOCFILECORRUPT: a loop, or a link that leads out of the table.
    [[nodiscard]] HRESULT Length(SectorId* length);

    // Sectors that come behind the chain's present `length`, and are chained among themselves. The table
    // isn't told before Link is called.
    void Append(SectorId length, const std::vector<SectorId>& sectors);
    [[nodiscard]] HRESULT Link();

private:
    // Sectors of the chain, from the one at `index` on, that have numbers one behind the other; more may
    // follow.
    struct Run {
        SectorId index = 0;
        SectorId sector = kEndOfChain;
        SectorId count = 0;

        bool Holds(SectorId at) const noexcept { return at - index < count; }
        SectorId End() const noexcept { return index + count; }
        SectorId LastSector() const noexcept { return sector + count - 1; }
    };

    std::size_t MostRuns() const noexcept { return many_ ? 65536 : 1024; }

    const Run& LastKnown() const noexcept { return others_.empty() ? head_ : others_.back(); }
    Run& LastKnown() noexcept { return others_.empty() ? head_ : others_.back(); }
    [[nodiscard]] HRESULT Find(SectorId index);
    [[nodiscard]] HRESULT LongerRunAt(SectorId index, SectorId most, SectorId* count);
    [[nodiscard]] HRESULT WalkOn(SectorId most, bool* ends);
    Run Nearest(SectorId index) const noexcept;
    void Remember(const Run& run);
    void Thin() noexcept;

    LinkTable* table_;
    bool many_;
    Run last_;                 // the one that was asked for last; empty when there is none
    Run head_;                 // the one at the chain's begin
    std::vector<Run> others_;  // in order, none nearer than `stride_` to the one before
    SectorId stride_ = 1;
    SectorId unlinked_ = 0;  // where the sectors begin that were appended and not linked yet
};

}  // namespace quorvane::cfb

#endif  // QUORVANE_PLATFORM_CFB_CHAIN_H_
