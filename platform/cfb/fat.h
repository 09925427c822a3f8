// platform/cfb/fat.h: the file allocation table, the list of the sectors that it lies in (DIFAT), and the
// sectors that are taken by it and given back.
#ifndef QUORVANE_PLATFORM_CFB_FAT_H_
#define QUORVANE_PLATFORM_CFB_FAT_H_

#include <vector>

#include "platform/cfb/chain.h"
#include "platform/cfb/header.h"
#include "platform/cfb/sector_file.h"

namespace quorvane::cfb {

class Fat final : public LinkTable {
public:
    Fat(SectorFile& sectors, Header& header) noexcept : LinkTable(kLookAt), sectors_(sectors), header_(header)
    {}

    // Reads the list of FAT sectors. Sectors that no FAT sector covers don't belong to the file afterwards.
    // STG_E_DOCFILECORRUPT: the list leads outside of the file, or names a sector twice.
    [[nodiscard]] HRESULT Load();

    SectorId Slots() const noexcept override { return static_cast<SectorId>(fat_.size() << EntriesShift()); }

    [[nodiscard]] HRESULT TakeMany(SectorId count, std::vector<SectorId>* sectors) override;
    // Sees to it that the next `count` sectors are taken without one more growth of the table, as far as the
    // format's limit goes. LinkGrowth is to follow before anything leads to what is written into them.
    [[nodiscard]] HRESULT Reserve(SectorId count);
    [[nodiscard]] HRESULT LinkGrowth();
    // Adds `count` sectors to a chain of `length` that the file rests on; it isn't linked before Chain::Link.
    // free: they are filled with free entries of a table.
    [[nodiscard]] HRESULT Enlarge(Chain& chain, SectorId length, SectorId count, bool free);
    // Ends such a chain of `before` sectors after `length`, once what counts them is in the store, and frees
    // the rest.
    [[nodiscard]] HRESULT Shorten(Chain& chain, SectorId length, SectorId before);
    // Gives back the end of the file when at least `least` sectors there are free, and what the store has
    // behind the last sector. For use between a commit and the next operation.
    [[nodiscard]] HRESULT Trim(SectorId least);

private:
    static constexpr std::uint32_t kLookAt = 1024;

    unsigned EntriesShift() const noexcept { return sectors_.Shift() - 2; }
    std::size_t Entries() const noexcept { return std::size_t{1} << EntriesShift(); }
    std::size_t SlotOf(SectorId sector) const noexcept { return sector & (Entries() - 1); }
    std::size_t PerDifat() const noexcept { return Entries() - 1; }
    std::size_t DifatSlot(std::size_t index) const noexcept
    {
        return (index - kHeaderDifatCount) % PerDifat();
    }
    // How many DIFAT sectors a list of `count` FAT sectors takes.
    std::size_t DifatSectors(std::size_t count) const noexcept
    {
        return count > kHeaderDifatCount ? (count - kHeaderDifatCount + PerDifat() - 1) / PerDifat() : 0;
    }
    [[nodiscard]] HRESULT PeekLinks(SectorId first, SectorId count, const BYTE** links) override;
    [[nodiscard]] HRESULT SetLinks(SectorId first, const BYTE* links, SectorId count) override;
    SectorId End() const noexcept override { return sectors_.Count(); }
    [[nodiscard]] HRESULT Grow(SectorId* sector) override;
    SectorId Limit() const noexcept;
    [[nodiscard]] HRESULT LoadList(std::size_t count);
    bool HasTwice() const;
    [[nodiscard]] HRESULT StoreEntry(SectorId sector, std::size_t slot, SectorId value);
    [[nodiscard]] HRESULT Append();
    [[nodiscard]] HRESULT ListInDifat(SectorId fat, bool newDifat);
    [[nodiscard]] HRESULT Retract(SectorId* count);
    [[nodiscard]] HRESULT RetractAll(SectorId* end);
    [[nodiscard]] HRESULT Unlist(bool difatGoes);

    SectorFile& sectors_;
    Header& header_;
    std::vector<SectorId> fat_;    // the FAT sectors, in order
    std::vector<SectorId> difat_;  // the DIFAT sectors, in order
};

}  // namespace quorvane::cfb

#endif  // QUORVANE_PLATFORM_CFB_FAT_H_
