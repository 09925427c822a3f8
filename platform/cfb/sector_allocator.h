// platform/cfb/sector_allocator.h: takes sectors for use and gives them back.
#ifndef QUORVANE_PLATFORM_CFB_SECTOR_ALLOCATOR_H_
#define QUORVANE_PLATFORM_CFB_SECTOR_ALLOCATOR_H_

#include "platform/cfb/fat.h"
#include "platform/collections/free_slots.h"

namespace quorvane::cfb {

// Sectors come from the free ones, lowest first, and else from the end of the file. One that was freed comes
// back after the next commit. One call at a time. Throws std::bad_alloc.
class SectorAllocator {
public:
    SectorAllocator(SectorFile& sectors, const Header& header, Fat& fat) noexcept
        : sectors_(sectors), header_(header), fat_(fat)
    {}

    // To be called after the FAT was loaded.
    void Reset() noexcept { slots_.Reset(sectors_.Count()); }

    // Takes a sector, whose FAT entry the caller sets. STG_E_MEDIUMFULL: the format's limit.
    [[nodiscard]] HRESULT Take(SectorId* sector);
    // The same with `count` sectors, which are appended to *sectors.
    [[nodiscard]] HRESULT TakeMany(SectorId count, std::vector<SectorId>* sectors);
    // Sees to it that the next `count` sectors are taken without one more growth of the FAT, as far as the
    // format's limit goes. Fat::LinkGrowth is to follow before anything leads to what is written into them.
    [[nodiscard]] HRESULT Reserve(SectorId count);
    // Frees up to `most` sectors of the chain that begins at *at, which becomes the rest of the chain. A
    // chain that leads to sectors that aren't in use, or out of the file, ends there.
    [[nodiscard]] HRESULT FreeChain(SectorId* at, std::uint32_t most)
    {
        return fat_.FreeChain(at, most, sectors_.Count(), slots_);
    }

    // The operation is in the store.
    void Committed() { slots_.Committed(); }
    // How many sectors are known as free.
    SectorId Known() const noexcept { return slots_.Known(); }
    bool HasFreed() const noexcept { return slots_.HasHeld(); }
    // Gives back the end of the file when at least `least` sectors there are free, and what the store has
    // behind the last sector. For use between a commit and the next operation.
    [[nodiscard]] HRESULT Trim(SectorId least);

private:
    static constexpr std::uint32_t kLookAt = 1024;

    SectorId Limit() const noexcept;
    [[nodiscard]] HRESULT RetractFat(SectorId* end);
    [[nodiscard]] HRESULT Append(SectorId* sector);

    SectorFile& sectors_;
    const Header& header_;
    Fat& fat_;
    FreeSlots slots_{kLookAt};
};

}  // namespace quorvane::cfb

#endif  // QUORVANE_PLATFORM_CFB_SECTOR_ALLOCATOR_H_
