#include "platform/cfb/sector_allocator.h"

#include <algorithm>
#include <vector>

#include "platform/com/result.h"

namespace quorvane::cfb {

SectorId SectorAllocator::Limit() const noexcept
{
    return header_.version == 3 ? static_cast<SectorId>((kVersion3Limit >> sectors_.Shift()) - 2)
                                : kMaxSector;
}

HRESULT SectorAllocator::Take(SectorId* sector)
{
    QV_TRY(slots_.Take(fat_, sector));
    if (*sector == FreeSlots::kNone)
        return Append(sector);
    if (*sector + 1 == sectors_.Count())
        sectors_.GrowTo(*sector + 1);  // it may have been found cut
    return S_OK;
}

HRESULT SectorAllocator::TakeMany(SectorId count, std::vector<SectorId>* sectors)
{
    const SectorId known = std::min(count, slots_.Known());
    slots_.TakeMany(known, sectors);
    if (known > 0 && sectors->back() + 1 == sectors_.Count())
        sectors_.GrowTo(sectors_.Count());
    for (SectorId i = known; i < count; ++i) {
        SectorId sector = 0;
        QV_TRY(Take(&sector));
        sectors->push_back(sector);
    }
    return S_OK;
}

HRESULT SectorAllocator::Reserve(SectorId count)
{
    SectorId lacking = count - std::min(count, slots_.Known());
    const SectorId withTables = lacking + lacking / 64 + 2;
    if (lacking == 0 || withTables > Limit() - std::min(Limit(), sectors_.Count()))
        return S_OK;
    while (lacking > 0) {
        // A new sector of the FAT says of all others that they are free; an old one may hold anything.
        const bool fresh = sectors_.Count() == fat_.Slots();
        if (fresh)
            QV_TRY(fat_.Append());
        const SectorId begin = sectors_.Count();
        const SectorId added = std::min(lacking, fat_.Slots() - begin);
        if (sectors_.OffsetOf(begin + added) > kRangeLockOffset)
            break;
        sectors_.GrowTo(begin + added);
        const std::vector<SectorId> free(fresh ? 0 : added, kFreeSector);
        QV_TRY(fat_.SetNexts(begin, free.data(), static_cast<SectorId>(free.size())));
        slots_.GiveUnused(begin, begin + added);
        lacking -= added;
    }
    return S_OK;
}

// Adds a sector to the file's end.
HRESULT SectorAllocator::Append(SectorId* sector)
{
    for (;;) {
        if (sectors_.Count() >= Limit())
            return STG_E_MEDIUMFULL;
        if (sectors_.Count() == fat_.Slots()) {
            QV_TRY(fat_.Append());
            QV_TRY(fat_.LinkGrowth());
        }
        *sector = sectors_.Count();
        sectors_.GrowTo(*sector + 1);
        const bool locked = sectors_.OffsetOf(*sector) <= kRangeLockOffset &&
                            kRangeLockOffset < sectors_.OffsetOf(*sector + 1);
        if (!locked)
            return S_OK;
        QV_TRY(fat_.SetNext(*sector, kEndOfChain));
    }
}

// Gives up the FAT sectors that lie at the end and cover nothing before them, with the free ones between.
HRESULT SectorAllocator::RetractFat(SectorId* end)
{
    for (SectorId was = kMaxSector; was != *end;) {
        was = *end;
        QV_TRY(fat_.Retract(end));
        QV_TRY(slots_.FindTail(fat_, *end, end));
    }
    return S_OK;
}

HRESULT SectorAllocator::Trim(SectorId least)
{
    const SectorId before = sectors_.Count();
    SectorId end = before;
    QV_TRY(slots_.FindTail(fat_, before, &end));
    if (before - end >= least)
        QV_TRY(RetractFat(&end));
    else
        end = before;
    slots_.Shrink(end);
    QV_TRY(sectors_.File().Commit());
    return sectors_.Cut(end);
}

}  // namespace quorvane::cfb
