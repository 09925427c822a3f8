#include "platform/cfb/volume.h"

#include <algorithm>

#include "platform/com/result.h"

namespace quorvane::cfb {
namespace {

// Trimming while elements still come and go waits until this many sectors can be given back, so that a
// file isn't cut and enlarged by turns.
constexpr SectorId kWorthTrimming = 256;

}  // namespace

Volume::Volume(ByteStore& store)
    : file(store),
      sectors(file),
      fat(sectors, header),
      directory(sectors, header, fat),
      mini(sectors, header, fat, directory),
      tree(directory),
      edit(file, directory)
{}

HRESULT Volume::Format(Layout layout)
{
    QV_TRY(file.Open());
    QV_TRY(file.Cut(0));
    header = Header::For(layout);
    header.fatSectors = 1;
    header.difat[0] = 0;
    header.firstDirectory = 1;
    header.directorySectors = 1;
    sectors.Open(header.sectorShift);
    sectors.GrowTo(2);

    BYTE link[4];
    QV_TRY(sectors.FillFree(0));
    StoreU32(link, kFatSector);
    QV_TRY(sectors.Write(0, 0, link, sizeof link));
    StoreU32(link, kEndOfChain);
    QV_TRY(sectors.Write(0, 4, link, sizeof link));

    ElementName name;
    QV_TRY(name.Assign(OLESTR("Root Entry")));
    DirEntry root(EntryType::kRoot, name);
    root.SetColor(Color::kBlack);
    for (std::size_t at = 0; at < sectors.SectorBytes(); at += kEntryBytes) {
        const DirEntry entry = at == 0 ? root : DirEntry();
        QV_TRY(sectors.Write(1, at, entry.Bytes(), kEntryBytes));
    }
    file.Order();
    QV_TRY(header.Write(file));
    QV_TRY(sectors.Commit());
    return LoadTables();
}

HRESULT Volume::Open()
{
    QV_TRY(file.Open());
    QV_TRY(header.Read(file));
    sectors.Open(header.sectorShift);
    return LoadTables();
}

bool Volume::Leave() noexcept
{
    tree.DropMarks();
    owners.DropOwners();
    changed_ = false;
    return !fat.HasFreed() && !file.HasPending();
}

HRESULT Volume::GoOn(ByteStore& store, bool* same)
{
    DirEntry root;
    std::uint64_t rootAt = 0;
    QV_TRY(file.MoveTo(store));
    file.ReadAnew(0);
    QV_TRY(header.Compare(file, same));
    if (!*same)
        return S_OK;
    QV_TRY(directory.OffsetOf(kRootEntry, &rootAt));
    if (!OrderedFile::SamePage(0, rootAt))
        file.ReadAnew(rootAt);
    QV_TRY(directory.Read(kRootEntry, &root));
    *same = root.Type() == EntryType::kRoot && mini.IsThatOf(root);
    return S_OK;
}

HRESULT Volume::Reload()
{
    changed_ = true;  // by what the failed operation had done so far
    QV_TRY(file.Forget());
    QV_TRY(header.Read(file));
    sectors.Open(header.sectorShift);
    return LoadTables();
}

HRESULT Volume::LoadTables()
{
    QV_TRY(fat.Load());
    directory.Reset();
    DirEntry root;
    QV_TRY(directory.Read(kRootEntry, &root));
    if (root.Type() != EntryType::kRoot)
        return STG_E_DOCFILECORRUPT;
    mini.Reset(root);
    owners.Clear();
    probed = kNoEntry;
    return ClaimTables(root);
}

// The directory, the mini FAT and the mini stream are the first to have their sectors.
HRESULT Volume::ClaimTables(const DirEntry& root)
{
    const SectorId miniFat = mini.Slots() > 0 ? header.firstMiniFat : kEndOfChain;
    const SectorId miniStream = mini.Slots() > 0 ? root.Start() : kEndOfChain;
    for (const SectorId first : {header.firstDirectory, miniFat, miniStream}) {
        if (first < fat.Slots() && !fat.Claims().Claim(first))
            return STG_E_DOCFILECORRUPT;
    }
    return S_OK;
}

HRESULT Volume::ClaimChain(EntryId stream, LinkTable& table, SectorId first)
{
    if (first >= table.Slots() || owners.HoldsChain(stream))
        return S_OK;
    if (!table.Claims().Claim(first))
        return STG_E_DOCFILECORRUPT;
    owners.SetHoldsChain(stream, true);
    return S_OK;
}

void Volume::Moved(EntryId from, EntryId to)
{
    owners.Moved(from, to);
    if (probed == from)
        probed = to;
}

void Volume::Freed(EntryId entry) noexcept
{
    owners.Freed(entry);
    if (probed == entry)
        probed = kNoEntry;
}

HRESULT Volume::Commit()
{
    changed_ = true;
    QV_TRY(sectors.Commit());
    fat.Committed();
    directory.Committed();
    mini.Committed();
    return S_OK;
}

HRESULT Volume::Trim(bool all)
{
    if (!changed_)
        return S_OK;
    const SectorId least = all ? 1 : std::max(kWorthTrimming, sectors.Count() / 8);
    if (!all) {
        // A look at the end may cost more than what was freed: not before as much as may be worth it is free.
        const SectorId known = fat.Known() + mini.KnownSectors() + directory.KnownSectors();
        knownAtTrim_ = std::min(knownAtTrim_, known);
        if (known < least || known - knownAtTrim_ < kWorthTrimming)
            return S_OK;
        knownAtTrim_ = known;
    }
    QV_TRY(mini.Trim(least));
    QV_TRY(directory.Trim(least));
    QV_TRY(Commit());
    QV_TRY(fat.Trim(least));
    return all ? sectors.Complete() : S_OK;
}

HRESULT Volume::FreeChain(SectorId first, LinkTable& table)
{
    for (SectorId at = first; at <= kMaxSector;) {
        QV_TRY(table.FreeChain(&at, kFreedAtOnce));
        if (at <= kMaxSector)
            QV_TRY(Commit());
    }
    return S_OK;
}

std::uint64_t Volume::MaxStream() const noexcept
{
    return header.version == 3 ? kVersion3Limit : std::uint64_t{kMaxSector} << sectors.Shift();
}

}  // namespace quorvane::cfb
