#include "platform/cfb/header.h"

#include <cstring>

#include "platform/com/result.h"

namespace quorvane::cfb {
namespace {

constexpr BYTE kSignature[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};
constexpr std::uint16_t kMinorVersion = 0x003E;
constexpr std::uint16_t kByteOrder = 0xFFFE;

// Where the fields stand.
enum Offset : std::size_t {
    kAtMinorVersion = 0x18,
    kAtMajorVersion = 0x1A,
    kAtByteOrder = 0x1C,
    kAtSectorShift = 0x1E,
    kAtMiniShift = 0x20,
    kAtDirectorySectors = 0x28,
    kAtFatSectors = 0x2C,
    kAtFirstDirectory = 0x30,
    kAtMiniCutoff = 0x38,
    kAtFirstMiniFat = 0x3C,
    kAtMiniFatSectors = 0x40,
    kAtFirstDifat = 0x44,
    kAtDifatSectors = 0x48,
    kAtDifat = 0x4C,
};

}  // namespace

Header Header::For(Layout layout) noexcept
{
    Header header;
    if (layout == Layout::kVersion4) {
        header.version = 4;
        header.sectorShift = 12;
    }
    return header;
}

bool Header::HasSignature(const BYTE* bytes) noexcept
{
    return std::memcmp(bytes, kSignature, sizeof kSignature) == 0;
}

HRESULT Header::Read(OrderedFile& file)
{
    if (file.Size() < kHeaderBytes)
        return STG_E_FILEALREADYEXISTS;
    QV_TRY(file.Read(0, raw_.data(), raw_.size()));
    return HasSignature(raw_.data()) ? Parse() : STG_E_FILEALREADYEXISTS;
}

HRESULT Header::Compare(OrderedFile& file, bool* same) const
{
    std::array<BYTE, kHeaderBytes> bytes;
    QV_TRY(file.Read(0, bytes.data(), bytes.size()));
    *same = bytes == raw_;
    return S_OK;
}

// Calls visit(std::size_t offset, std::uint32_t& field) for each field of four bytes.
template <class Visit>
void Header::EachField(const Visit& visit)
{
    visit(kAtDirectorySectors, directorySectors);
    visit(kAtFatSectors, fatSectors);
    visit(kAtFirstDirectory, firstDirectory);
    visit(kAtMiniCutoff, miniCutoff);
    visit(kAtFirstMiniFat, firstMiniFat);
    visit(kAtMiniFatSectors, miniFatSectors);
    visit(kAtFirstDifat, firstDifat);
    visit(kAtDifatSectors, difatSectors);
    for (std::size_t i = 0; i < difat.size(); ++i)
        visit(kAtDifat + 4 * i, difat[i]);
}

HRESULT Header::Parse() noexcept
{
    const BYTE* const raw = raw_.data();
    version = LoadU16(raw + kAtMajorVersion);
    sectorShift = LoadU16(raw + kAtSectorShift);
    EachField([&](std::size_t at, std::uint32_t& field) { field = LoadU32(raw + at); });

    const bool readable = LoadU16(raw + kAtByteOrder) == kByteOrder && (version == 3 || version == 4) &&
                          (sectorShift == 9 || sectorShift == 12) &&
                          LoadU16(raw + kAtMiniShift) == kMiniShift && miniCutoff == kMiniCutoff;
    return readable ? S_OK : STG_E_INVALIDHEADER;
}

HRESULT Header::Write(OrderedFile& file)
{
    std::array<BYTE, kHeaderBytes> bytes = raw_;
    BYTE* const raw = bytes.data();
    if (!HasSignature(raw)) {
        std::memcpy(raw, kSignature, sizeof kSignature);
        StoreU16(raw + kAtMinorVersion, kMinorVersion);
    }
    StoreU16(raw + kAtMajorVersion, static_cast<std::uint16_t>(version));
    StoreU16(raw + kAtByteOrder, kByteOrder);
    StoreU16(raw + kAtSectorShift, static_cast<std::uint16_t>(sectorShift));
    StoreU16(raw + kAtMiniShift, kMiniShift);
    EachField([&](std::size_t at, std::uint32_t& field) { StoreU32(raw + at, field); });
    if (version == 3)
        StoreU32(raw + kAtDirectorySectors, 0);
    if (bytes == raw_)
        return S_OK;
    raw_ = bytes;
    return file.Write(0, raw, bytes.size());
}

}  // namespace quorvane::cfb
