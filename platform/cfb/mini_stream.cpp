#include "platform/cfb/mini_stream.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "platform/com/result.h"

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
    FreeOnes().Reset(count_);
    Claims().Clear();
    ForgetLinks();
    grown_ = false;
}

HRESULT MiniStream::PeekLinks(SectorId first, SectorId count, const BYTE** links)
{
    SectorId at = 0;
    if (first >= count_)
        return STG_E_DOCFILECORRUPT;
    QV_TRY(links_.At(LinkSector(first), &at));
    return sectors_.Peek(at, LinkPlace(first), count * 4, links);
}

HRESULT MiniStream::BlocksBeside(SectorId first, SectorId* blocks)
{
    SectorId at = 0;
    SectorId run = 0;
    if (FAILED(links_.RunAt(LinkSector(first), OrderedFile::kPage >> sectors_.Shift(), &at, &run)))
        return S_OK;  // the block itself may be sound all the same
    const std::uint64_t begin = sectors_.OffsetOf(at) + LinkPlace(first);
    const std::uint64_t page = begin - begin % OrderedFile::kPage + OrderedFile::kPage;
    const std::uint64_t links = (std::min(page, sectors_.OffsetOf(at + run)) - begin) / 4;
    *blocks = (static_cast<SectorId>(std::min<std::uint64_t>(links, count_ - first)) + kBlock - 1) / kBlock;
    return S_OK;
}

HRESULT MiniStream::SetLinks(SectorId first, const BYTE* links, SectorId count)
{
    SectorId at = 0;
    QV_TRY(links_.At(LinkSector(first), &at));
    return sectors_.Write(at, LinkPlace(first), links, count * 4);
}

HRESULT MiniStream::Locate(SectorId sector, SectorId most, SectorId* at, std::size_t* offset,
                           std::size_t* bytes)
{
    const SectorId within = sector & (PerSector() - 1);
    const SectorId wanted = (within + most + PerSector() - 1) >> (sectors_.Shift() - kMiniShift);
    SectorId run = 0;
    QV_TRY(data_.RunAt(sector >> (sectors_.Shift() - kMiniShift), wanted, at, &run));
    *offset = within * kMiniBytes;
    *bytes = std::min<std::size_t>(most, std::size_t{run} * PerSector() - within) * kMiniBytes;
    return S_OK;
}

HRESULT MiniStream::StoreRoot(SectorId start, SectorId count)
{
    DirEntry root;
    QV_TRY(directory_.Read(kRootEntry, &root));
    root.SetStart(start);
    root.SetSize(std::uint64_t{count} * kMiniBytes);
    return directory_.Write(kRootEntry, root);
}

// The lengths of the two chains. STG_E_DOCFILECORRUPT: one is shorter than it has to be, or has no end.
HRESULT MiniStream::Measure(SectorId* data, SectorId* links)
{
    QV_TRY(data_.Length(data));
    QV_TRY(links_.Length(links));
    return *data < DataSectors() || *links < LinkSectors(count_) ? STG_E_DOCFILECORRUPT : S_OK;
}

HRESULT MiniStream::Append(SectorId wanted)
{
    if (wanted == 0)
        return S_OK;
    if (grown_) {
        sectors_.File().Order();
        QV_TRY(LinkGrowth());
        sectors_.File().Order();
    }
    SectorId data = 0;
    SectorId links = 0;
    QV_TRY(Measure(&data, &links));
    // The chain is longer than the mini stream when an earlier growth was refused half-way.
    const SectorId length = std::max(data, DataSectors() + (wanted + PerSector() - 1) / PerSector());
    const SectorId count = length * PerSector();
    QV_TRY(fat_.Enlarge(data_, data, length - data, false));
    QV_TRY(fat_.Enlarge(links_, links, LinkSectors(count) - std::min(links, LinkSectors(count)), true));
    const SectorId old = std::exchange(count_, count);
    ForgetLinks();
    // Behind what it covered, an older mini FAT of another program may hold anything.
    const SectorId covered = std::clamp(links * LinksPerSector(), old, count);
    const std::vector<SectorId> nexts(covered - old, kFreeSector);
    QV_TRY(SetNexts(old, nexts.data(), covered - old));
    linkSectors_ = std::max(links, LinkSectors(count));
    grown_ = true;
    FreeOnes().GiveUnused(old, count);
    return S_OK;
}

HRESULT MiniStream::Lacking(SectorId count, SectorId* wanted)
{
    if (FreeOnes().Known() < count)
        QV_TRY(FreeOnes().Look(*this, kLookAt));
    *wanted = count - std::min(count, FreeOnes().Known());
    return S_OK;
}

HRESULT MiniStream::LinkGrowth()
{
    if (!std::exchange(grown_, false))
        return S_OK;
    QV_TRY(data_.Link());
    QV_TRY(links_.Link());
    sectors_.File().Order();
    // A mini FAT that covers more than there is does no harm; the reverse would.
    header_.firstMiniFat = links_.First();
    header_.miniFatSectors = linkSectors_;
    QV_TRY(header_.Write(sectors_.File()));
    sectors_.File().Order();
    return StoreRoot(data_.First(), count_);
}

HRESULT MiniStream::Grow(SectorId* sector)
{
    const SectorId most = static_cast<SectorId>(kMaxGrowthBytes / kMiniBytes);
    QV_TRY(Append(std::clamp<SectorId>(count_ / 4, 1, most)));
    sectors_.File().Order();
    QV_TRY(LinkGrowth());
    *sector = FreeOnes().TakeWithin(0, FreeSlots::kNone);
    return S_OK;
}

HRESULT MiniStream::Trim(SectorId least)
{
    SectorId before = 0;
    SectorId links = 0;
    const HRESULT hr = Measure(&before, &links);
    if (FAILED(hr))
        return hr == STG_E_DOCFILECORRUPT ? S_OK : hr;  // what is damaged is left alone
    SectorId kept = 0;
    QV_TRY(FreeOnes().FindTail(*this, count_, &kept));
    const SectorId after = (kept + PerSector() - 1) / PerSector();
    if (after < before && before - after >= least) {
        count_ = after * PerSector();
        FreeOnes().Shrink(count_);
        QV_TRY(StoreRoot(after > 0 ? data_.First() : kEndOfChain, count_));
        QV_TRY(fat_.Shorten(data_, after, before));
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
    QV_TRY(header_.Write(sectors_.File()));
    return kept < links ? fat_.Shorten(links_, kept, links) : S_OK;
}

}  // namespace quorvane::cfb
