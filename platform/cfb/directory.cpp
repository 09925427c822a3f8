#include "platform/cfb/directory.h"

#include <algorithm>
#include <vector>

#include "platform/com/result.h"

namespace quorvane::cfb {

void Directory::Reset() noexcept
{
    chain_.Reset(header_.firstDirectory);
    measured_ = false;
    ++version_;
    slots_.Reset(0);
    taken_.Clear();
}

HRESULT Directory::OffsetOf(EntryId id, std::uint64_t* offset)
{
    SectorId sector = 0;
    QV_TRY(chain_.At(IndexOf(id), &sector));
    *offset = sectors_.OffsetOf(sector) + PlaceOf(id);
    return S_OK;
}

// Finds the entry's page, and which others lie around it there.
HRESULT Directory::PeekNear(EntryId id, std::size_t ahead)
{
    SectorId sector = 0;
    SectorId begin = 0;
    SectorId end = 0;
    const BYTE* bytes = nullptr;
    near_.count = 0;
    QV_TRY(chain_.At(IndexOf(id), &sector));
    QV_TRY(sectors_.Peek(sector, PlaceOf(id), kEntryBytes, &bytes, ahead));
    chain_.RunAround(&begin, &end);
    end = std::min(end, IndexOf(id) + (sectors_.Count() - sector));
    const std::uint64_t at = sectors_.OffsetOf(sector) + PlaceOf(id);
    const auto before = static_cast<EntryId>(at % OrderedFile::kPage / kEntryBytes);
    const EntryId behind = std::min<EntryId>(kPageEntries - before, end * PerSector() - id);
    near_.first = id - std::min(before, id - begin * PerSector());
    near_.count = id - near_.first + behind;
    near_.bytes = bytes - (id - near_.first) * kEntryBytes;
    near_.moves = sectors_.File().Moves();
    return S_OK;
}

HRESULT Directory::Write(EntryId id, const DirEntry& entry)
{
    SectorId sector = 0;
    ++version_;
    QV_TRY(chain_.At(IndexOf(id), &sector));
    return sectors_.Write(sector, PlaceOf(id), entry.Bytes(), kEntryBytes);
}

HRESULT Directory::Measure()
{
    if (measured_)
        return S_OK;
    QV_TRY(chain_.Length(&length_));
    slots_.Reset(length_ * PerSector());
    measured_ = true;
    return S_OK;
}

HRESULT Directory::Capacity(EntryId* count)
{
    QV_TRY(Measure());
    *count = length_ * PerSector();
    return S_OK;
}

HRESULT Directory::FindFree(EntryId begin, EntryId end, FreeMap& free)
{
    for (EntryId id = begin; id < end; ++id) {
        const DirEntry* entry = nullptr;
        const HRESULT hr = Peek(id, &entry);
        if (FAILED(hr) && hr != STG_E_DOCFILECORRUPT)
            return hr;
        if (SUCCEEDED(hr) && entry->Type() == EntryType::kFree && id != kRootEntry)
            free.Add(id);
    }
    return S_OK;
}

HRESULT Directory::Allocate(EntryId* id)
{
    QV_TRY(Take(id));
    taken_.Set(*id);
    return S_OK;
}

HRESULT Directory::Take(EntryId* id)
{
    QV_TRY(Measure());
    QV_TRY(slots_.Take(*this, id));
    if (*id != FreeSlots::kNone)
        return S_OK;
    // A small directory grows by sectors, a larger one by pages.
    QV_TRY(Append(length_ * PerSector() < kPageEntries ? 1 : kPageEntries / PerSector()));
    sectors_.File().Order();
    QV_TRY(LinkGrowth());
    sectors_.File().Order();
    *id = slots_.TakeWithin(0, FreeSlots::kNone);
    return S_OK;
}

HRESULT Directory::AllocateNear(EntryId neighbor, EntryId* id)
{
    QV_TRY(Measure());
    const EntryId page = neighbor - neighbor % kPageEntries;
    *id = slots_.TakeWithin(page, page + kPageEntries);
    if (*id == FreeSlots::kNone)
        return Allocate(id);
    taken_.Set(*id);
    return S_OK;
}

HRESULT Directory::Lacking(EntryId count, SectorId* sectors)
{
    QV_TRY(Measure());
    if (slots_.Known() < count)
        QV_TRY(slots_.Look(*this, kLookAt));
    *sectors = (count - std::min(count, slots_.Known()) + PerSector() - 1) / PerSector();
    return S_OK;
}

HRESULT Directory::Append(SectorId sectors, EntryId written)
{
    if (sectors == 0)
        return S_OK;
    QV_TRY(fat_.Enlarge(chain_, length_, sectors, false));
    const EntryId first = length_ * PerSector();
    // The least ones are taken first.
    const EntryId free = first + (written - std::min(written, slots_.Known()));
    length_ += sectors;
    slots_.GiveUnused(first, length_ * PerSector());
    return WriteFree(free, length_ * PerSector());
}

HRESULT Directory::WriteFree(EntryId begin, EntryId end)
{
    const DirEntry free;
    for (EntryId id = begin; id < end; ++id)
        QV_TRY(Write(id, free));
    return S_OK;
}

HRESULT Directory::RunAt(EntryId first, EntryId most, EntryId* count)
{
    const EntryId within = first & (PerSector() - 1);
    SectorId sector = 0;
    SectorId run = 0;
    QV_TRY(chain_.RunAt(IndexOf(first), IndexOf(within + most - 1) + 1, &sector, &run));
    *count = std::min(most, run * PerSector() - within);
    return S_OK;
}

HRESULT Directory::WriteRun(EntryId first, EntryId count, const BYTE* bytes)
{
    SectorId sector = 0;
    ++version_;
    QV_TRY(chain_.At(IndexOf(first), &sector));
    return sectors_.WriteData(sector, PlaceOf(first), bytes, count * kEntryBytes);
}

HRESULT Directory::LinkGrowth()
{
    QV_TRY(chain_.Link());
    sectors_.File().Order();
    return NoteLength(length_);
}

HRESULT Directory::NoteLength(SectorId length)
{
    length_ = length;
    if (header_.version == 3)
        return S_OK;
    header_.directorySectors = length;
    return header_.Write(sectors_.File());
}

HRESULT Directory::Free(EntryId id)
{
    QV_TRY(Measure());
    QV_TRY(Write(id, DirEntry()));
    slots_.Give(id);
    taken_.Unset(id);
    return S_OK;
}

HRESULT Directory::Trim(SectorId least)
{
    const HRESULT hr = Measure();
    if (FAILED(hr))
        return hr == STG_E_DOCFILECORRUPT ? S_OK : hr;  // what is damaged is left alone
    EntryId tail = 0;
    QV_TRY(slots_.FindTail(*this, length_ * PerSector(), &tail));
    const SectorId spare = length_ - (tail + PerSector() - 1) / PerSector();
    if (spare == 0 || spare < least || spare >= length_)
        return NoteLength(length_);  // which a refused growth may have left unsaid
    near_.count = 0;
    slots_.Shrink((length_ - spare) * PerSector());
    QV_TRY(NoteLength(length_ - spare));
    return fat_.Shorten(chain_, length_, length_ + spare);
}

}  // namespace quorvane::cfb
