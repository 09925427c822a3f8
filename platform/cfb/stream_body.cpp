#include "platform/cfb/stream_body.h"

#include <algorithm>
#include <array>

#include "platform/com/result.h"

namespace quorvane::cfb {

HRESULT StreamBody::Load(EntryId id)
{
    DirEntry entry;
    QV_TRY(volume_->directory.Read(id, &entry));
    return entry.Type() == EntryType::kStream ? Load(id, entry) : STG_E_DOCFILECORRUPT;
}

HRESULT StreamBody::Load(EntryId id, const DirEntry& entry)
{
    QV_TRY(Take(entry));
    QV_TRY(volume_->ClaimChain(id, Table(IsMini(size_)), chain_.First()));
    id_ = id;
    unlinked_ = nullptr;
    return S_OK;
}

HRESULT StreamBody::Load(DirEntry& entry)
{
    unlinked_ = &entry;
    return Take(entry);
}

// Takes over what an entry tells.
HRESULT StreamBody::Take(const DirEntry& entry)
{
    const std::uint64_t size = entry.Size(volume_->header.version);
    const std::uint64_t room = IsMini(size)
                                   ? std::uint64_t{volume_->mini.Slots()} * kMiniBytes
                                   : std::uint64_t{volume_->sectors.Count()} << volume_->sectors.Shift();
    if (size > room)
        return STG_E_DOCFILECORRUPT;
    size_ = size;
    chain_.Reset(Table(IsMini(size)), size > 0 ? entry.Start() : kEndOfChain);
    return S_OK;
}

LinkTable& StreamBody::Table(bool mini) noexcept
{
    return mini ? static_cast<LinkTable&>(volume_->mini) : volume_->fat;
}

unsigned StreamBody::UnitShift(bool mini) const noexcept
{
    return mini ? kMiniShift : volume_->sectors.Shift();
}

SectorId StreamBody::Units(std::uint64_t size, bool mini) const noexcept
{
    return static_cast<SectorId>((size + UnitBytes(mini) - 1) >> UnitShift(mini));
}

// Where the byte at `offset` of a chain stands, and how many bytes of the chain, `most` at the most, lie
// behind each other in the file there.
HRESULT StreamBody::Locate(Chain& chain, bool mini, std::uint64_t offset, std::size_t most, SectorId* sector,
                           std::size_t* within, std::size_t* bytes)
{
    const std::size_t unit = UnitBytes(mini);
    const auto index = static_cast<SectorId>(offset >> UnitShift(mini));
    const std::size_t inUnit = offset & (unit - 1);
    SectorId first = 0;
    SectorId run = 0;
    QV_TRY(chain.RunAt(index, Units(inUnit + most, mini), &first, &run));
    *sector = first;
    *within = inUnit;
    *bytes = std::min(most, std::size_t{run} * unit - inUnit);
    if (!mini)
        return S_OK;
    std::size_t located = 0;
    QV_TRY(volume_->mini.Locate(first, run, sector, within, &located));
    *within += inUnit;
    *bytes = std::min(most, located - inUnit);
    return S_OK;
}

HRESULT StreamBody::ReadChain(std::uint64_t offset, BYTE* to, std::size_t count)
{
    while (count > 0) {
        SectorId sector = 0;
        std::size_t within = 0;
        std::size_t bytes = 0;
        QV_TRY(Locate(chain_, IsMini(size_), offset, std::min(count, kPart), &sector, &within, &bytes));
        QV_TRY(volume_->sectors.Read(sector, within, to, bytes, SectorFile::kPagesTogether));
        offset += bytes;
        to += bytes;
        count -= bytes;
    }
    return S_OK;
}

HRESULT StreamBody::Read(std::uint64_t offset, void* to, std::size_t count, std::size_t* read)
{
    *read = 0;
    if (offset >= size_)
        return S_OK;
    const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(count, size_ - offset));
    QV_TRY(ReadChain(offset, static_cast<BYTE*>(to), wanted));
    *read = wanted;
    return S_OK;
}

HRESULT StreamBody::WriteChain(Chain& chain, bool mini, std::uint64_t offset, const BYTE* from,
                               std::size_t count)
{
    while (count > 0) {
        SectorId sector = 0;
        std::size_t within = 0;
        std::size_t bytes = 0;
        QV_TRY(Locate(chain, mini, offset, count, &sector, &within, &bytes));
        QV_TRY(volume_->sectors.WriteData(sector, within, from, bytes));
        offset += bytes;
        from += bytes;
        count -= bytes;
    }
    return S_OK;
}

HRESULT StreamBody::ZeroChain(Chain& chain, bool mini, std::uint64_t offset, std::uint64_t end)
{
    static constexpr std::array<BYTE, 16384> kZeros{};
    while (offset < end) {
        SectorId sector = 0;
        std::size_t within = 0;
        std::size_t bytes = 0;
        const auto most = static_cast<std::size_t>(std::min<std::uint64_t>(end - offset, kPart));
        QV_TRY(Locate(chain, mini, offset, most, &sector, &within, &bytes));
        // What the store doesn't have yet it will have as zeros.
        const std::uint64_t at = volume_->sectors.OffsetOf(sector) + within;
        for (std::size_t done = 0; done < bytes && at + done < volume_->file.StoredSize();
             done += kZeros.size()) {
            const std::size_t part = std::min(kZeros.size(), bytes - done);
            QV_TRY(volume_->sectors.WriteData(sector, within + done, kZeros.data(), part));
        }
        offset += bytes;
    }
    return S_OK;
}

HRESULT StreamBody::NewChain(bool mini, SectorId count, Chain* chain)
{
    LinkTable& table = Table(mini);
    std::vector<SectorId> sectors;
    QV_TRY(table.TakeMany(count, &sectors));
    QV_TRY(table.SetChain(sectors));
    *chain = Chain(table, count > 0 ? sectors.front() : kEndOfChain);
    return S_OK;
}

// Writes what the range [from, to) of the stream gets of the content, and zeros before the content. The
// chain begins at `base` of the stream.
HRESULT StreamBody::Fill(Chain& chain, bool mini, std::uint64_t from, std::uint64_t to, std::uint64_t base,
                         const Content& content)
{
    const std::uint64_t zerosEnd = std::clamp(content.offset, from, to);
    QV_TRY(ZeroChain(chain, mini, from - base, zerosEnd - base));
    const std::uint64_t end = std::clamp(content.offset + content.count, zerosEnd, to);
    if (zerosEnd == end || content.count == 0)
        return S_OK;
    return WriteChain(chain, mini, zerosEnd - base, content.bytes + (zerosEnd - content.offset),
                      static_cast<std::size_t>(end - zerosEnd));
}

HRESULT StreamBody::Write(std::uint64_t offset, const void* from, std::size_t count, std::size_t* written)
{
    *written = 0;
    const auto* in = static_cast<const BYTE*>(from);
    while (count > 0) {
        const std::size_t part = std::min(count, kPart);
        const Content content{offset, in, part};
        if (offset + part <= size_) {
            QV_TRY(WriteChain(chain_, IsMini(size_), offset, in, part));
            QV_TRY(volume_->Commit());
        } else {
            const std::uint64_t inside = std::min<std::uint64_t>(offset + part, size_);
            if (offset < inside)
                QV_TRY(
                    WriteChain(chain_, IsMini(size_), offset, in, static_cast<std::size_t>(inside - offset)));
            QV_TRY(Extend(offset + part, content));
        }
        offset += part;
        in += part;
        count -= part;
        *written += part;
    }
    return S_OK;
}

// Enlarges the stream; writes zeros and what of the content lies behind the old end.
HRESULT StreamBody::Extend(std::uint64_t size, const Content& content)
{
    if (size_ > 0 && IsMini(size_) && !IsMini(size))
        return ChangeTable(size, content);
    const bool mini = IsMini(size);
    const SectorId before = Units(size_, mini);
    const SectorId added = Units(size, mini) - before;
    const std::uint64_t border = std::uint64_t{before} * UnitBytes(mini);
    Chain tail(Table(mini));
    QV_TRY(NewChain(mini, added, &tail));
    QV_TRY(Fill(chain_, mini, size_, std::min(border, size), 0, content));
    if (added > 0)
        QV_TRY(Fill(tail, mini, border, size, border, content));

    SectorId rest = kEndOfChain;
    if (added > 0)
        QV_TRY(LinkBehind(before, mini, tail.First(), &rest));
    QV_TRY(Switch(before == 0 ? tail.First() : chain_.First(), size));
    if (before == 0)
        chain_ = tail;
    if (rest <= kMaxSector)
        QV_TRY(volume_->FreeChain(rest, Table(mini)));
    return volume_->Commit();
}

// rest [out]: what hung there already, though the stream's size doesn't reach that far.
HRESULT StreamBody::LinkBehind(SectorId length, bool mini, SectorId first, SectorId* rest)
{
    if (length == 0)
        return S_OK;
    SectorId last = 0;
    QV_TRY(chain_.At(length - 1, &last));
    QV_TRY(Table(mini).Next(last, rest));
    volume_->file.Order();
    return Table(mini).SetNext(last, first);
}

// Lets the entry point at what was written before, at once, and takes that over.
HRESULT StreamBody::Switch(SectorId start, std::uint64_t size)
{
    if (unlinked_) {
        QV_TRY(volume_->Commit());
        unlinked_->SetStart(start);
        unlinked_->SetSize(size_ = size);
        return S_OK;
    }
    volume_->file.Order();
    DirEntry entry;
    QV_TRY(volume_->directory.Read(id_, &entry));
    entry.SetStart(start);
    entry.SetSize(size);
    QV_TRY(volume_->directory.Write(id_, entry));
    volume_->file.Order();
    if (start != chain_.First() || IsMini(size) != IsMini(size_)) {
        volume_->owners.SetHoldsChain(id_, false);
        QV_TRY(volume_->ClaimChain(id_, Table(IsMini(size)), start));
    }
    size_ = size;
    return S_OK;
}

// Writes what stays of the content into the other table, and what comes behind it. Less than kMiniCutoff
// stays.
HRESULT StreamBody::ChangeTable(std::uint64_t size, const Content& content)
{
    std::array<BYTE, kMiniCutoff> kept;
    const auto count = static_cast<std::size_t>(std::min(size_, size));
    const bool mini = IsMini(size);
    const SectorId oldFirst = chain_.First();
    Chain chain(Table(mini));
    QV_TRY(ReadChain(0, kept.data(), count));
    QV_TRY(NewChain(mini, Units(size, mini), &chain));
    QV_TRY(WriteChain(chain, mini, 0, kept.data(), count));
    QV_TRY(Fill(chain, mini, count, size, 0, content));
    QV_TRY(Switch(chain.First(), size));
    chain_ = chain;
    QV_TRY(volume_->FreeChain(oldFirst, Table(!mini)));
    return volume_->Commit();
}

HRESULT StreamBody::SetSize(std::uint64_t size)
{
    if (size < size_)
        return Shrink(size);
    while (size_ < size) {
        const std::uint64_t next = size - size_ > kGrowthPart ? size_ + kGrowthPart : size;
        QV_TRY(Extend(next, Content{next, nullptr, 0}));
    }
    return S_OK;
}

HRESULT StreamBody::Shrink(std::uint64_t size)
{
    const bool mini = IsMini(size_);
    if (size > 0 && IsMini(size) && !mini)
        return ChangeTable(size, Content{size, nullptr, 0});
    const SectorId kept = Units(size, mini);
    SectorId rest = chain_.First();
    SectorId last = kEndOfChain;
    if (size > 0) {
        QV_TRY(chain_.At(kept - 1, &last));
        QV_TRY(Table(mini).Next(last, &rest));
    }
    QV_TRY(Switch(size > 0 ? chain_.First() : kEndOfChain, size));
    if (size > 0 && rest != kEndOfChain)
        QV_TRY(Table(mini).SetNext(last, kEndOfChain));
    volume_->file.Order();
    chain_.Reset(Table(IsMini(size)), size > 0 ? chain_.First() : kEndOfChain);
    QV_TRY(volume_->FreeChain(rest, Table(mini)));
    return volume_->Commit();
}

}  // namespace quorvane::cfb
