// platform/cfb/link_table.h: what a FAT and a mini FAT have in common.
#ifndef QUORVANE_PLATFORM_CFB_LINK_TABLE_H_
#define QUORVANE_PLATFORM_CFB_LINK_TABLE_H_

#include "platform/cfb/format.h"

namespace quorvane::cfb {

// For each sector the next one of its chain, or a mark. One call at a time. Throws std::bad_alloc.
class LinkTable {
public:
    virtual ~LinkTable() = default;

    // STG_E_DOCFILECORRUPT: there is no such sector. Others come from the byte store.
    [[nodiscard]] virtual HRESULT Next(SectorId sector, SectorId* next) = 0;
    [[nodiscard]] virtual HRESULT SetNext(SectorId sector, SectorId next) = 0;
    // How many sectors there are: no chain is longer.
    virtual SectorId Slots() const noexcept = 0;
};

}  // namespace quorvane::cfb

#endif  // QUORVANE_PLATFORM_CFB_LINK_TABLE_H_
