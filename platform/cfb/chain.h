// platform/cfb/chain.h: the sectors of one chain by their place in it.
#ifndef QUORVANE_PLATFORM_CFB_CHAIN_H_
#define QUORVANE_PLATFORM_CFB_CHAIN_H_

#include <vector>

#include "platform/cfb/link_table.h"

namespace quorvane::cfb {

// Finds the sector at a place of a chain without walking all of it again: remembers where the last walk
// stood and a bounded number of places spread over the chain, so that memory doesn't grow with its length.
//
// The table outlives the chain. One call at a time. Throws std::bad_alloc.
class Chain {
public:
    // How many places are remembered: of a stream's chain, and of one that the whole file rests on.
    enum class Marks { kFew, kMany };

    explicit Chain(LinkTable& table, SectorId first = kEndOfChain, Marks marks = Marks::kFew) noexcept
        : table_(&table), first_(first), many_(marks == Marks::kMany), strideShift_(FirstShift())
    {}

    // Begins anew: another first sector, or links that changed.
    void Reset(SectorId first) noexcept;
    // The chain ends before `length` now, which isn't 0.
    void Cut(SectorId length) noexcept;
    SectorId First() const noexcept { return first_; }
    bool IsEmpty() const noexcept { return first_ > kMaxSector; }

    // The sector at `index`, which counts from 0. STG_E_DOCFILECORRUPT: the chain ends before, or leads
    // where no sector is.
    [[nodiscard]] HRESULT At(SectorId index, SectorId* sector)
    {
        if (index >= length_)
            return AtAppended(index, sector);
        if (index == 0 && first_ < table_->Slots()) {
            *sector = first_;
            last_ = {0, first_};
            return S_OK;
        }
        // Most often every sector is remembered.
        if (strideShift_ > 0 || index == 0 || index > marks_.size())
            return WalkTo(index, sector);
        *sector = marks_[index - 1];
        last_ = {index, *sector};
        return S_OK;
    }
    // The sector at `index`, and how many of the chain's sectors from there on, `most` at the most, lie
    // behind each other in the file.
    [[nodiscard]] HRESULT RunAt(SectorId index, SectorId most, SectorId* sector, SectorId* count);
    // The number of sectors. STG_E_DOCFILECORRUPT: a loop, or a link that leads out of the table.
    [[nodiscard]] HRESULT Length(SectorId* length);

    // Sectors that come behind the chain's present `length`, and are chained among themselves. The table
    // isn't told before Link is called.
    void Append(SectorId length, std::vector<SectorId> sectors);
    [[nodiscard]] HRESULT Link();

private:
    std::size_t MostMarks() const noexcept { return many_ ? 524288 : 4096; }
    unsigned FirstShift() const noexcept { return many_ ? 0 : 3; }

    struct Place {
        SectorId index = 0;
        SectorId sector = kEndOfChain;
    };

    [[nodiscard]] HRESULT AtAppended(SectorId index, SectorId* sector);
    [[nodiscard]] HRESULT WalkTo(SectorId index, SectorId* sector);
    void Mark(const Place& place);
    void MarkRun(const Place& first, SectorId count);
    Place Nearest(SectorId index) const noexcept;

    LinkTable* table_;
    SectorId first_;
    bool many_;
    Place last_;
    std::vector<SectorId> marks_;  // the sectors at stride, 2 * stride, 3 * stride...
    unsigned strideShift_;
    SectorId length_ = kFreeSector;  // of what the table has, when sectors were appended
    std::vector<SectorId> appended_;
};

}  // namespace quorvane::cfb

#endif  // QUORVANE_PLATFORM_CFB_CHAIN_H_
