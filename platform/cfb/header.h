// platform/cfb/header.h: the first 512 bytes of a compound file.
#ifndef QUORVANE_PLATFORM_CFB_HEADER_H_
#define QUORVANE_PLATFORM_CFB_HEADER_H_

#include <array>

#include "platform/bytes/ordered_file.h"
#include "platform/cfb/docfile.h"
#include "platform/cfb/format.h"

namespace quorvane::cfb {

// The fields of a header. Reading checks what the layers above rest on: marks, sizes, byte order. Counts
// and sector numbers are checked where they are used.
struct Header {
    unsigned version = 3;
    unsigned sectorShift = 9;
    std::uint32_t directorySectors = 0;  // version 4 only
    std::uint32_t fatSectors = 0;
    SectorId firstDirectory = kEndOfChain;
    std::uint32_t miniCutoff = kMiniCutoff;
    SectorId firstMiniFat = kEndOfChain;
    std::uint32_t miniFatSectors = 0;
    SectorId firstDifat = kEndOfChain;
    std::uint32_t difatSectors = 0;
    std::array<SectorId, kHeaderDifatCount> difat;

    Header() noexcept { difat.fill(kFreeSector); }
    // The header of a new, empty file.
    static Header For(Layout layout) noexcept;

    // True when `bytes` (8 of them) begin a compound file.
    static bool HasSignature(const BYTE* bytes) noexcept;

    // STG_E_FILEALREADYEXISTS  the file doesn't begin as a compound file, or is shorter than a header.
    // STG_E_INVALIDHEADER      it does, and goes on as none that can be read.
    [[nodiscard]] HRESULT Read(OrderedFile& file);
    // Whether the file begins with what was read or written last.
    [[nodiscard]] HRESULT Compare(OrderedFile& file, bool* same) const;
    // Writes all fields, if one has changed; the bytes that mean nothing here are kept as Read found them.
    [[nodiscard]] HRESULT Write(OrderedFile& file);

private:
    template <class Visit>
    void EachField(const Visit& visit);
    [[nodiscard]] HRESULT Parse() noexcept;

    std::array<BYTE, kHeaderBytes> raw_{};  // as read or written last
};

}  // namespace quorvane::cfb

#endif  // QUORVANE_PLATFORM_CFB_HEADER_H_
