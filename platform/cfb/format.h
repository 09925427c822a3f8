// platform/cfb/format.h: the constants of the compound-file format. docs/compound-files.md has the byte
// tables.
#ifndef QUORVANE_PLATFORM_CFB_FORMAT_H_
#define QUORVANE_PLATFORM_CFB_FORMAT_H_

#include <cstddef>
#include <cstdint>

#include "platform/bytes/little_endian.h"

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

}  // namespace quorvane::cfb

#endif  // QUORVANE_PLATFORM_CFB_FORMAT_H_
