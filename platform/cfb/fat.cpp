#include "platform/cfb/fat.h"

#include <algorithm>
#include <array>

#include "platform/com/result.h"

namespace quorvane::cfb {

HRESULT Fat::Load()
{
    fat_.clear();
    difat_.clear();
    Claims().Clear();
    ForgetLinks();
    const SectorId limit = sectors_.Count();
    const std::size_t needed = (std::size_t{limit} + Entries() - 1) / Entries();
    const std::size_t said = std::min<std::size_t>(header_.fatSectors, limit);
    QV_TRY(LoadList(said));
    // A table may be longer than the file, and a count may lie; what goes wrong behind the end of the file is
    // left out.
    if (fat_.size() < std::min(said, needed) || fat_.empty())
        return STG_E_DOCFILECORRUPT;
    if (HasTwice()) {
        fat_.resize(std::min(fat_.size(), needed));
        difat_.resize(std::min(difat_.size(), DifatSectors(fat_.size())));
        if (HasTwice())
            return STG_E_DOCFILECORRUPT;
    }
    for (const auto* list : {&fat_, &difat_}) {
        for (const SectorId sector : *list)
            Claims().Claim(sector);
    }
    header_.fatSectors = static_cast<std::uint32_t>(fat_.size());
    sectors_.Disown(Slots());
    FreeOnes().Reset(sectors_.Count());
    return S_OK;
}

// Whether a sector is in the list, or holds a part of the list, for the second time.
bool Fat::HasTwice() const
{
    std::vector<SectorId> sorted = fat_;
    sorted.insert(sorted.end(), difat_.begin(), difat_.end());
    std::sort(sorted.begin(), sorted.end());
    return std::adjacent_find(sorted.begin(), sorted.end()) != sorted.end();
}

// Reads the list of FAT sectors as far as it leads to sectors of the file, up to `count` of them.
HRESULT Fat::LoadList(std::size_t count)
{
    const SectorId limit = sectors_.Count();
    for (std::size_t i = 0; i < std::min(count, kHeaderDifatCount); ++i) {
        if (header_.difat[i] >= limit)
            return S_OK;
        fat_.push_back(header_.difat[i]);
    }
    SectorId difat = header_.firstDifat;
    while (fat_.size() < count && difat < limit) {
        std::array<BYTE, 4096> bytes;
        QV_TRY(sectors_.Read(difat, 0, bytes.data(), sectors_.SectorBytes()));
        difat_.push_back(difat);
        for (std::size_t i = 0; i < PerDifat() && fat_.size() < count; ++i) {
            const SectorId sector = LoadU32(&bytes[4 * i]);
            if (sector >= limit)
                return S_OK;
            fat_.push_back(sector);
        }
        difat = LoadU32(&bytes[4 * PerDifat()]);
    }
    return S_OK;
}

HRESULT Fat::PeekLinks(SectorId first, SectorId count, const BYTE** links)
{
    const std::size_t index = first >> EntriesShift();
    return index < fat_.size() ? sectors_.Peek(fat_[index], SlotOf(first) * 4, count * 4, links)
                               : STG_E_DOCFILECORRUPT;
}

HRESULT Fat::SetLinks(SectorId first, const BYTE* links, SectorId count)
{
    const std::size_t index = first >> EntriesShift();
    return index < fat_.size() ? sectors_.Write(fat_[index], SlotOf(first) * 4, links, count * 4)
                               : STG_E_DOCFILECORRUPT;
}

HRESULT Fat::StoreEntry(SectorId sector, std::size_t slot, SectorId value)
{
    BYTE bytes[4];
    StoreU32(bytes, value);
    return sectors_.Write(sector, slot * 4, bytes, sizeof bytes);
}

// Makes room for more sectors: the next sector of the file becomes a FAT sector, and the one behind it a
// DIFAT sector where that is needed. The file has as many sectors as the table covers.
HRESULT Fat::Append()
{
    const SectorId fat = Slots();
    const std::size_t index = fat_.size();
    const bool inHeader = index < kHeaderDifatCount;
    const bool newDifat = !inHeader && DifatSlot(index) == 0;
    sectors_.GrowTo(fat + (newDifat ? 2 : 1));
    QV_TRY(sectors_.FillFree(fat));
    QV_TRY(StoreEntry(fat, 0, kFatSector));
    if (newDifat)
        QV_TRY(StoreEntry(fat, 1, kDifatSector));
    if (!inHeader)
        QV_TRY(ListInDifat(fat, newDifat));
    else
        header_.difat[index] = fat;
    fat_.push_back(fat);
    ForgetLinks();
    Claims().Claim(fat);
    return S_OK;
}

HRESULT Fat::LinkGrowth()
{
    sectors_.File().Order();
    header_.fatSectors = static_cast<std::uint32_t>(fat_.size());
    return header_.Write(sectors_.File());
}

// The header's count comes last: until then the new place in the list means nothing.
HRESULT Fat::ListInDifat(SectorId fat, bool newDifat)
{
    if (!newDifat)
        return StoreEntry(difat_.back(), DifatSlot(fat_.size()), fat);

    const SectorId difat = fat + 1;
    QV_TRY(sectors_.FillFree(difat));
    QV_TRY(StoreEntry(difat, PerDifat(), kEndOfChain));
    QV_TRY(StoreEntry(difat, 0, fat));
    if (difat_.empty())
        header_.firstDifat = difat;
    else {
        sectors_.File().Order();
        QV_TRY(StoreEntry(difat_.back(), PerDifat(), difat));
    }
    difat_.push_back(difat);
    Claims().Claim(difat);
    header_.difatSectors = static_cast<std::uint32_t>(difat_.size());
    return S_OK;
}

// Gives up the last FAT sector, and the DIFAT sector that it leaves empty, when the last of the file's first
// `count` sectors is it and it covers nothing else. *count becomes what is left; unchanged when there is
// nothing to give up.
HRESULT Fat::Retract(SectorId* count)
{
    if (fat_.size() < 2)
        return S_OK;
    const std::size_t index = fat_.size() - 1;
    const SectorId covered = static_cast<SectorId>(index * Entries());
    const bool difatGoes = index >= kHeaderDifatCount && DifatSlot(index) == 0;
    // In the order in which Extend placed them: the FAT sector, then the DIFAT sector.
    const bool last = fat_.back() == covered && *count == covered + (difatGoes ? 2 : 1) &&
                      (!difatGoes || difat_.back() == covered + 1);
    if (!last)
        return S_OK;
    Claims().Release(fat_.back());
    fat_.pop_back();
    QV_TRY(Unlist(difatGoes));
    *count = covered;
    return S_OK;
}

HRESULT Fat::Unlist(bool difatGoes)
{
    const std::size_t index = fat_.size();
    header_.fatSectors = static_cast<std::uint32_t>(index);
    if (index < kHeaderDifatCount) {
        header_.difat[index] = kFreeSector;
        return header_.Write(sectors_.File());
    }
    if (difatGoes) {
        Claims().Release(difat_.back());
        difat_.pop_back();
        header_.difatSectors = static_cast<std::uint32_t>(difat_.size());
        if (difat_.empty())
            header_.firstDifat = kEndOfChain;
    }
    QV_TRY(header_.Write(sectors_.File()));
    sectors_.File().Order();
    if (!difatGoes)
        return StoreEntry(difat_.back(), DifatSlot(index), kFreeSector);
    return difat_.empty() ? S_OK : StoreEntry(difat_.back(), PerDifat(), kEndOfChain);
}

SectorId Fat::Limit() const noexcept
{
    return header_.version == 3 ? static_cast<SectorId>((kVersion3Limit >> sectors_.Shift()) - 2)
                                : kMaxSector;
}

HRESULT Fat::TakeMany(SectorId count, std::vector<SectorId>* sectors)
{
    QV_TRY(LinkTable::TakeMany(count, sectors));
    if (std::find(sectors->begin(), sectors->end(), sectors_.Count() - 1) != sectors->end())
        sectors_.GrowTo(sectors_.Count());  // it may have been found cut
    return S_OK;
}

HRESULT Fat::Reserve(SectorId count)
{
    SectorId lacking = count - std::min(count, FreeOnes().Known());
    const SectorId withTables = lacking + lacking / 64 + 2;
    if (lacking == 0 || withTables > Limit() - std::min(Limit(), sectors_.Count()))
        return S_OK;
    while (lacking > 0) {
        // A new sector of the FAT says of all others that they are free; an old one may hold anything.
        const bool fresh = sectors_.Count() == Slots();
        if (fresh)
            QV_TRY(Append());
        const SectorId begin = sectors_.Count();
        const SectorId added = std::min(lacking, Slots() - begin);
        if (sectors_.OffsetOf(begin + added) > kRangeLockOffset)
            break;
        sectors_.GrowTo(begin + added);
        const std::vector<SectorId> free(fresh ? 0 : added, kFreeSector);
        QV_TRY(SetNexts(begin, free.data(), static_cast<SectorId>(free.size())));
        FreeOnes().GiveUnused(begin, begin + added);
        lacking -= added;
    }
    return S_OK;
}

// Adds a sector to the file's end.
HRESULT Fat::Grow(SectorId* sector)
{
    for (;;) {
        if (sectors_.Count() >= Limit())
            return STG_E_MEDIUMFULL;
        if (sectors_.Count() == Slots()) {
            QV_TRY(Append());
            QV_TRY(LinkGrowth());
        }
        *sector = sectors_.Count();
        sectors_.GrowTo(*sector + 1);
        const bool locked = sectors_.OffsetOf(*sector) <= kRangeLockOffset &&
                            kRangeLockOffset < sectors_.OffsetOf(*sector + 1);
        if (!locked)
            return S_OK;
        QV_TRY(SetNext(*sector, kEndOfChain));
    }
}

HRESULT Fat::Enlarge(Chain& chain, SectorId length, SectorId count, bool free)
{
    if (count == 0)
        return S_OK;
    std::vector<SectorId> added;
    QV_TRY(TakeMany(count, &added));
    QV_TRY(SetChain(added));
    for (const SectorId sector : added) {
        if (free)
            QV_TRY(sectors_.FillFree(sector));
    }
    chain.Append(length, added);
    return S_OK;
}

HRESULT Fat::Shorten(Chain& chain, SectorId length, SectorId before)
{
    SectorId rest = chain.First();
    sectors_.File().Order();
    if (length > 0) {
        SectorId last = 0;
        QV_TRY(chain.At(length - 1, &last));
        QV_TRY(Next(last, &rest));
        QV_TRY(SetNext(last, kEndOfChain));
        sectors_.File().Order();
        chain.Cut(length);
    } else {
        chain.Reset(kEndOfChain);
    }
    return FreeChain(&rest, before - length);
}

// Gives up the FAT sectors that lie at the end and cover nothing before them, with the free ones between.
HRESULT Fat::RetractAll(SectorId* end)
{
    for (SectorId was = kMaxSector; was != *end;) {
        was = *end;
        QV_TRY(Retract(end));
        QV_TRY(FreeOnes().FindTail(*this, *end, end));
    }
    return S_OK;
}

HRESULT Fat::Trim(SectorId least)
{
    const SectorId before = sectors_.Count();
    SectorId end = before;
    QV_TRY(FreeOnes().FindTail(*this, before, &end));
    if (before - end >= least)
        QV_TRY(RetractAll(&end));
    else
        end = before;
    FreeOnes().Shrink(end);
    QV_TRY(sectors_.File().Commit());
    return sectors_.Cut(end);
}

}  // namespace quorvane::cfb
