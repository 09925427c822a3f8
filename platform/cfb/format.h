// platform/cfb/format.h: the constants of the compound-file format, and little-endian access to bytes.
// docs/compound-files.md has the byte tables.
#ifndef QUORVANE_PLATFORM_CFB_FORMAT_H_
#define QUORVANE_PLATFORM_CFB_FORMAT_H_

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "platform/com/com.h"

namespace quorvane::cfb {

// The number of a sector, of a mini sector or of a directory entry.
using SectorId = std::uint32_t;
using EntryId = std::uint32_t;

// Values of an entry of the FAT, the mini FAT or the DIFAT that aren't the number of a next sector.
inline constexpr SectorId kMaxSector = 0xFFFFFFFA;  // the greatest number of a sector
inline constexpr SectorId kDifatSector = 0xFFFFFFFC;
inline constexpr SectorId kFatSector = 0xFFFFFFFD;
inline constexpr SectorId kEndOfChain = 0xFFFFFFFE;
inline constexpr SectorId kFreeSector = 0xFFFFFFFF;

// A link of a directory entry that leads nowhere.
inline constexpr EntryId kNoEntry = 0xFFFFFFFF;
inline constexpr EntryId kRootEntry = 0;

inline constexpr std::size_t kHeaderBytes = 512;
inline constexpr std::size_t kHeaderDifatCount = 109;
inline constexpr std::size_t kEntryBytes = 128;
inline constexpr unsigned kMiniShift = 6;
inline constexpr std::size_t kMiniBytes = std::size_t{1} << kMiniShift;
inline constexpr std::uint32_t kMiniCutoff = 4096;  // a stream of this many bytes has sectors of its own

// The greatest size of a version 3 file, and of a stream in it.
inline constexpr std::uint64_t kVersion3Limit = std::uint64_t{1} << 31;
// The byte of a version 4 file whose sector other programs lock: it holds no data.
inline constexpr std::uint64_t kRangeLockOffset = 0x7FFFFF00;

// The longest name of an element, without its end.
inline constexpr std::size_t kMaxName = 31;

inline std::uint16_t LoadU16(const BYTE* from) noexcept
{
    return static_cast<std::uint16_t>(from[0] | from[1] << 8);
}

inline std::uint32_t LoadU32(const BYTE* from) noexcept
{
    return std::uint32_t{from[0]} | std::uint32_t{from[1]} << 8 | std::uint32_t{from[2]} << 16 |
           std::uint32_t{from[3]} << 24;
}

inline std::uint64_t LoadU64(const BYTE* from) noexcept
{
    return LoadU32(from) | std::uint64_t{LoadU32(from + 4)} << 32;
}

inline void StoreU16(BYTE* to, std::uint16_t value) noexcept
{
    to[0] = static_cast<BYTE>(value);
    to[1] = static_cast<BYTE>(value >> 8);
}

inline void StoreU32(BYTE* to, std::uint32_t value) noexcept
{
    StoreU16(to, static_cast<std::uint16_t>(value));
    StoreU16(to + 2, static_cast<std::uint16_t>(value >> 16));
}

inline void StoreU64(BYTE* to, std::uint64_t value) noexcept
{
    StoreU32(to, static_cast<std::uint32_t>(value));
    StoreU32(to + 4, static_cast<std::uint32_t>(value >> 32));
}

inline constexpr bool kLittleEndian = std::endian::native == std::endian::little;

// Text of `count` units.
inline void LoadUnits(OLECHAR* to, const BYTE* from, std::size_t count) noexcept
{
    if constexpr (kLittleEndian) {
        std::memcpy(to, from, 2 * count);
    } else {
        for (std::size_t i = 0; i < count; ++i)
            to[i] = static_cast<OLECHAR>(LoadU16(from + 2 * i));
    }
}

inline void StoreUnits(BYTE* to, const OLECHAR* from, std::size_t count) noexcept
{
    if constexpr (kLittleEndian) {
        std::memcpy(to, from, 2 * count);
    } else {
        for (std::size_t i = 0; i < count; ++i)
            StoreU16(to + 2 * i, static_cast<std::uint16_t>(from[i]));
    }
}

}  // namespace quorvane::cfb

#endif  // QUORVANE_PLATFORM_CFB_FORMAT_H_
