#include "platform/cfb/mini_stream.h"

#include <algorithm>

#include "platform/cfb/result.h"

namespace quorvane::cfb {

void MiniStream::Reset(const DirEntry& root) noexcept
{
    // A size that the file can't hold is a lie; the chain will say so where it ends.
    const std::uint64_t held = std::uint64_t{sectors_.Count()} << sectors_.Shift();
    const std::uint64_t size = std::min(root.Size(header_.version), held);
    count_ = static_cast<SectorId>(std::min<std::uint64_t>((size + kMiniBytes - 1) / kMiniBytes, kMaxSector));
    // Where there is nothing, programs leave various numbers behind.
    data_.Reset(count_ > 0 ? root.Start() : kEndOfChain);
    links_.Reset(count_ > 0 || header_.miniFatSectors > 0 ? header_.firstMiniFat : kEndOfChain);
    slots_.Reset(count_);
}

HRESULT MiniStream::Next(SectorId sector, SectorId* next)
{
    if (sector >= count_)
        return STG_E_DOCFILECORRUPT;
    SectorId at = 0;
    BYTE bytes[4];
    CFB_TRY(links_.At(LinkSector(sector), &at));
    CFB_TRY(sectors_.Read(at, LinkPlace(sector), bytes, sizeof bytes));
    *next = LoadU32(bytes);
    return S_OK;
}

HRESULT MiniStream::SetLinks(SectorId first, const BYTE* links, SectorId count)
{
    SectorId at = 0;
    CFB_TRY(links_.At(LinkSector(first), &at));
    return sectors_.Write(at, LinkPlace(first), links, count * 4);
}

HRESULT MiniStream::Locate(SectorId sector, SectorId most, SectorId* at, std::size_t* offset,
                           std::size_t* bytes)
{
    if (sector >= count_)
        return STG_E_DOCFILECORRUPT;
    const SectorId within = sector & (PerSector() - 1);
    const SectorId wanted = (within + most + PerSector() - 1) >> (sectors_.Shift() - kMiniShift);
    SectorId run = 0;
    CFB_TRY(data_.RunAt(sector >> (sectors_.Shift() - kMiniShift), wanted, at, &run));
    *offset = within * kMiniBytes;
    *bytes = std::min<std::size_t>(most, std::size_t{run} * PerSector() - within) * kMiniBytes;
    return S_OK;
}

HRESULT MiniStream::FindFree(SectorId begin, SectorId end, FreeMap& free)
{
    for (SectorId sector = begin; sector < end; ++sector) {
        SectorId next = 0;
        CFB_TRY(Next(sector, &next));
        if (next == kFreeSector)
            free.Add(sector);
    }
    return S_OK;
}

HRESULT MiniStream::Take(SectorId* sector)
{
    const auto look = [this](SectorId begin, SectorId end, FreeMap& free) {
        return FindFree(begin, end, free);
    };
    CFB_TRY(slots_.Take(look, sector));
    if (*sector == FreeSlots::kNone) {
        CFB_TRY(Grow());
        *sector = slots_.TakeWithin(0, FreeSlots::kNone);
    }
    return S_OK;
}

// Takes a chain of new sectors that nothing points at.
HRESULT MiniStream::ReserveData(SectorId sectors, SectorId* first)
{
    return TakeChain(
        fat_, [this](SectorId* sector) { return allocator_.Take(sector); }, sectors, first);
}

// Takes a chain of sectors full of free links, so that the mini FAT covers `count` mini sectors.
HRESULT MiniStream::ReserveLinks(SectorId count, SectorId* first, SectorId* sectors)
{
    SectorId length = 0;
    CFB_TRY(links_.Length(&length));
    *sectors = LinkSectors(count) - std::min(length, LinkSectors(count));
    CFB_TRY(ReserveData(*sectors, first));
    for (SectorId i = 0, at = *first; i < *sectors; ++i) {
        CFB_TRY(sectors_.Fill(at, 0xFF));
        CFB_TRY(fat_.Next(at, &at));
    }
    return S_OK;
}

// Hangs the chain that begins at `first` behind another one of `length` sectors.
HRESULT MiniStream::LinkBehind(Chain& chain, SectorId length, SectorId first)
{
    if (length == 0) {
        chain.Reset(first);
        return S_OK;
    }
    SectorId last = 0;
    CFB_TRY(chain.At(length - 1, &last));
    return fat_.SetNext(last, first);
}

HRESULT MiniStream::StoreRoot(SectorId start, SectorId count)
{
    DirEntry root;
    CFB_TRY(directory_.Read(kRootEntry, &root));
    root.SetStart(start);
    root.SetSize(std::uint64_t{count} * kMiniBytes);
    return directory_.Write(kRootEntry, root);
}

// The lengths of the two chains. STG_E_DOCFILECORRUPT: one is shorter than it has to be, or has no end.
HRESULT MiniStream::Measure(SectorId* data, SectorId* links)
{
    CFB_TRY(data_.Length(data));
    CFB_TRY(links_.Length(links));
    return *data < DataSectors() || *links < LinkSectors(count_) ? STG_E_DOCFILECORRUPT : S_OK;
}

HRESULT MiniStream::Grow()
{
    SectorId before = 0;
    SectorId oldLinks = 0;
    CFB_TRY(Measure(&before, &oldLinks));
    const SectorId most = static_cast<SectorId>(kMaxGrowthBytes >> sectors_.Shift());
    // The chain is longer than the mini stream when an earlier growth was refused half-way.
    const SectorId added = before > DataSectors() ? 0 : std::clamp<SectorId>(before / 4, 1, most);
    const SectorId count = (before + added) * PerSector();

    SectorId firstData = kEndOfChain;
    SectorId firstLinks = kEndOfChain;
    SectorId newLinks = 0;
    CFB_TRY(ReserveData(added, &firstData));
    CFB_TRY(ReserveLinks(count, &firstLinks, &newLinks));
    sectors_.File().Order();

    if (added > 0)
        CFB_TRY(LinkBehind(data_, before, firstData));
    if (newLinks > 0)
        CFB_TRY(LinkBehind(links_, oldLinks, firstLinks));
    const SectorId old = count_;
    // Behind what it covered, an older mini FAT of another program may hold anything.
    for (SectorId sector = old; sector < std::min(count, oldLinks * LinksPerSector()); ++sector)
        CFB_TRY(SetNext(sector, kFreeSector));
    sectors_.File().Order();

    // A mini FAT that covers more than there is does no harm; the reverse would.
    header_.firstMiniFat = links_.First();
    header_.miniFatSectors = oldLinks + newLinks;
    CFB_TRY(header_.Write(sectors_.File()));
    sectors_.File().Order();
    CFB_TRY(StoreRoot(data_.First(), count));
    count_ = count;
    for (SectorId sector = old; sector < count; ++sector)
        slots_.GiveUnused(sector);
    return S_OK;
}

HRESULT MiniStream::FreeChain(SectorId* at, std::uint32_t most)
{
    for (; most > 0 && *at < count_; --most) {
        const SectorId sector = *at;
        CFB_TRY(Next(sector, at));
        if (*at > kMaxSector && *at != kEndOfChain) {
            *at = kEndOfChain;
            return S_OK;
        }
        CFB_TRY(SetNext(sector, kFreeSector));
        slots_.Give(sector);
    }
    if (*at >= count_)
        *at = kEndOfChain;
    return S_OK;
}

// Frees the sectors [from, to) of a chain, once the entry that counts them is in the store.
HRESULT MiniStream::CutChain(Chain& chain, SectorId from, SectorId to)
{
    SectorId rest = chain.First();
    sectors_.File().Order();
    if (from > 0) {
        SectorId last = 0;
        CFB_TRY(chain.At(from - 1, &last));
        CFB_TRY(fat_.Next(last, &rest));
        CFB_TRY(fat_.SetNext(last, kEndOfChain));
        sectors_.File().Order();
    }
    if (from > 0)
        chain.Cut(from);
    else
        chain.Reset(kEndOfChain);
    return allocator_.FreeChain(&rest, to - from);
}

HRESULT MiniStream::Trim(SectorId least)
{
    const auto look = [this](SectorId begin, SectorId end, FreeMap& free) {
        return FindFree(begin, end, free);
    };
    SectorId before = 0;
    SectorId links = 0;
    const HRESULT hr = Measure(&before, &links);
    if (FAILED(hr))
        return hr == STG_E_DOCFILECORRUPT ? S_OK : hr;  // what is damaged is left alone
    CFB_TRY(slots_.LookAtTail(look, count_));
    const SectorId kept = count_ - slots_.Tail(count_);
    const SectorId after = (kept + PerSector() - 1) / PerSector();
    if (after < before && before - after >= least) {
        count_ = after * PerSector();
        slots_.Shrink(count_);
        CFB_TRY(StoreRoot(after > 0 ? data_.First() : kEndOfChain, count_));
        CFB_TRY(CutChain(data_, after, before));
    }
    return TrimLinks(links);
}

// Gives back the sectors of the mini FAT that cover nothing.
HRESULT MiniStream::TrimLinks(SectorId links)
{
    const SectorId kept = std::min(links, LinkSectors(count_));
    header_.miniFatSectors = kept;
    header_.firstMiniFat = kept > 0 ? links_.First() : kEndOfChain;
    sectors_.File().Order();
    CFB_TRY(header_.Write(sectors_.File()));
    return kept < links ? CutChain(links_, kept, links) : S_OK;
}

}  // namespace quorvane::cfb
