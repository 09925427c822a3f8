// platform/cfb/link_table.h: what a FAT and a mini FAT have in common.
#ifndef QUORVANE_PLATFORM_CFB_LINK_TABLE_H_
#define QUORVANE_PLATFORM_CFB_LINK_TABLE_H_

#include <algorithm>
#include <array>

#include "platform/cfb/format.h"
#include "platform/cfb/result.h"

namespace quorvane::cfb {

// For each sector the next one of its chain, or a mark. One call at a time. Throws std::bad_alloc.
class LinkTable {
public:
    virtual ~LinkTable() = default;

    // STG_E_DOCFILECORRUPT: there is no such sector. Others come from the byte store.
    [[nodiscard]] virtual HRESULT Next(SectorId sector, SectorId* next) = 0;
    // Each link takes effect by itself.
    [[nodiscard]] HRESULT SetNext(SectorId sector, SectorId next)
    {
        std::array<BYTE, 4> link;
        StoreU32(link.data(), next);
        return SetLinks(sector, link.data(), 1);
    }
    // Chains `count` sectors with numbers one behind the other, from `first` on, and hangs `next` behind
    // them.
    [[nodiscard]] HRESULT SetRun(SectorId first, SectorId count, SectorId next)
    {
        std::array<BYTE, 4 * kBlock> links;
        while (count > 0) {
            const SectorId part = std::min(count, kBlock - first % kBlock);
            for (SectorId i = 0; i < part; ++i)
                StoreU32(&links[4 * i], i + 1 < count ? first + i + 1 : next);
            CFB_TRY(SetLinks(first, links.data(), part));
            first += part;
            count -= part;
        }
        return S_OK;
    }
    // How many sectors there are: no chain is longer.
    virtual SectorId Slots() const noexcept = 0;

protected:
    // A sector of the table holds this many links, or a multiple.
    static constexpr SectorId kBlock = 128;

    // Writes the links of `count` sectors, which lie within one block.
    [[nodiscard]] virtual HRESULT SetLinks(SectorId first, const BYTE* links, SectorId count) = 0;
};

}  // namespace quorvane::cfb

#endif  // QUORVANE_PLATFORM_CFB_LINK_TABLE_H_
