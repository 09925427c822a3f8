// platform/cfb/fat.h: the file allocation table, and the list of the sectors that it lies in (DIFAT).
#ifndef QUORVANE_PLATFORM_CFB_FAT_H_
#define QUORVANE_PLATFORM_CFB_FAT_H_

#include <vector>

#include "platform/cfb/header.h"
#include "platform/cfb/link_table.h"
#include "platform/cfb/sector_file.h"

namespace quorvane::cfb {

class Fat final : public LinkTable {
public:
    Fat(SectorFile& sectors, Header& header) noexcept : sectors_(sectors), header_(header) {}

    // Reads the list of FAT sectors. Sectors that no FAT sector covers don't belong to the file afterwards.
    // STG_E_DOCFILECORRUPT: the list leads outside of the file, or names a sector twice.
    [[nodiscard]] HRESULT Load();

    SectorId Slots() const noexcept override { return static_cast<SectorId>(fat_.size() << EntriesShift()); }

    // Makes room for more sectors: the next sector of the file becomes a FAT sector, and the one behind it a
    // DIFAT sector where that is needed. To be called when the file has as many sectors as the table covers.
    // LinkGrowth is to follow before anything leads to what is written into them.
    [[nodiscard]] HRESULT Append();
    [[nodiscard]] HRESULT LinkGrowth();
    // Gives up the last FAT sector, and the DIFAT sector that it leaves empty, when the last of the file's
    // first `count` sectors is it and it covers nothing else. *count becomes what is left; unchanged when
    // there is nothing to give up.
    [[nodiscard]] HRESULT Retract(SectorId* count);

private:
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
    [[nodiscard]] HRESULT LoadList(std::size_t count);
    bool HasTwice() const;
    [[nodiscard]] HRESULT StoreEntry(SectorId sector, std::size_t slot, SectorId value);
    [[nodiscard]] HRESULT ListInDifat(SectorId fat, bool newDifat);
    [[nodiscard]] HRESULT Unlist(bool difatGoes);

    SectorFile& sectors_;
    Header& header_;
    std::vector<SectorId> fat_;    // the FAT sectors, in order
    std::vector<SectorId> difat_;  // the DIFAT sectors, in order
};

}  // namespace quorvane::cfb

#endif  // QUORVANE_PLATFORM_CFB_FAT_H_
