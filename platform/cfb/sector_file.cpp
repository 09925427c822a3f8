#include "platform/cfb/sector_file.h"

#include <algorithm>
#include <cstring>

#include "platform/com/result.h"

namespace quorvane::cfb {

void SectorFile::Open(unsigned shift) noexcept
{
    shift_ = shift;
    const std::uint64_t sectors = (file_.Size() + SectorBytes() - 1) >> shift;
    count_ = static_cast<SectorId>(std::min<std::uint64_t>(sectors > 0 ? sectors - 1 : 0, kMaxSector));
}

HRESULT SectorFile::Write(SectorId sector, std::uint64_t offset, const void* from, std::size_t count)
{
    return Within(sector, offset, count) ? file_.Write(OffsetOf(sector) + offset, from, count)
                                         : STG_E_DOCFILECORRUPT;
}

HRESULT SectorFile::WriteData(SectorId sector, std::uint64_t offset, const void* from, std::size_t count)
{
    return Within(sector, offset, count) ? file_.WriteData(OffsetOf(sector) + offset, from, count)
                                         : STG_E_DOCFILECORRUPT;
}

HRESULT SectorFile::Fill(SectorId sector, BYTE value)
{
    BYTE block[512];
    std::memset(block, value, sizeof block);
    for (std::size_t at = 0; at < SectorBytes(); at += sizeof block)
        QV_TRY(Write(sector, at, block, sizeof block));
    return S_OK;
}

HRESULT SectorFile::Cut(SectorId count)
{
    count_ = std::min(count_, count);
    return file_.Cut(OffsetOf(count_));
}

}  // namespace quorvane::cfb
