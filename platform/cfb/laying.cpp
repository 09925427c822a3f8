#include "platform/cfb/laying.h"

#include <bit>

#include "platform/cfb/result.h"
#include "platform/cfb/stream_body.h"

namespace quorvane::cfb {

HRESULT Laying::Lay(const std::vector<Draft*>& drafts)
{
    for (const Draft* draft : drafts)
        Count(*draft);
    CFB_TRY(Reserve());
    for (Draft* draft : drafts) {
        EntryId id = kNoEntry;
        CFB_TRY(Write(*draft, kNoEntry, kNoEntry, Color::kBlack, &id));
        laid_.emplace_back(draft, id);
    }
    return Finish();
}

HRESULT Laying::LayBelow(const Draft& storage, DirEntry* entry)
{
    for (const auto& child : storage.children)
        Count(*child);
    CFB_TRY(Reserve());
    *entry = storage.entry;
    CFB_TRY(Fill(storage, entry));
    return Finish();
}

// What is to be taken for a draft and all below it.
void Laying::Count(const Draft& draft) noexcept
{
    if (draft.IsPlaced())
        return;
    ++entries_;
    const std::size_t size = draft.bytes.size();
    if (draft.HoldsBytes() && size < kMiniCutoff)
        miniSectors_ += static_cast<SectorId>((size + kMiniBytes - 1) / kMiniBytes);
    else if (draft.HoldsBytes())
        sectors_ += static_cast<SectorId>((size >> volume_.sectors.Shift()) + 1);
    for (const auto& child : draft.children)
        Count(*child);
}

// The tables grow once, and what is taken lies as close together as the file's free space lets it.
HRESULT Laying::Reserve()
{
    SectorId forEntries = 0;
    SectorId minis = 0;
    CFB_TRY(volume_.directory.Lacking(entries_ + kForTheTree, &forEntries));
    CFB_TRY(volume_.mini.Lacking(miniSectors_, &minis));
    CFB_TRY(
        volume_.allocator.Reserve(forEntries + sectors_ + (minis > 0 ? volume_.mini.SectorsFor(minis) : 0)));
    CFB_TRY(volume_.directory.Append(forEntries));
    CFB_TRY(volume_.mini.Append(minis));
    volume_.directory.AllocateMany(entries_, &ids_);
    volume_.mini.TakeMany(miniSectors_, &minis_);
    return S_OK;
}

HRESULT Laying::Finish()
{
    CFB_TRY(WriteGathered());
    CFB_TRY(volume_.fat.LinkGrowth());
    volume_.file.Order();
    CFB_TRY(volume_.directory.LinkGrowth());
    CFB_TRY(volume_.mini.LinkGrowth());
    volume_.file.Order();
    return S_OK;
}

// Takes the content of a small stream along, and has its entry tell where it comes to lie.
void Laying::Gather(const std::vector<BYTE>& content, DirEntry* entry)
{
    const std::size_t count = (content.size() + kMiniBytes - 1) / kMiniBytes;
    entry->SetStart(minis_[nextMini_]);
    entry->SetSize(content.size());
    contents_.insert(contents_.end(), content.begin(), content.end());
    contents_.resize((links_.size() + count) * kMiniBytes);
    for (std::size_t i = 1; i < count; ++i)
        links_.push_back(minis_[nextMini_ + i]);
    links_.push_back(kEndOfChain);
    nextMini_ += count;
}

HRESULT Laying::WriteGathered()
{
    const SectorId* const sectors = minis_.data() + nextMini_ - links_.size();
    CFB_TRY(volume_.mini.Lay(sectors, links_.data(), contents_.data(), static_cast<SectorId>(links_.size())));
    links_.clear();
    contents_.clear();
    return S_OK;
}

// Writes the content of a draft, or all below it, and has its entry tell where that is.
HRESULT Laying::Fill(const Draft& draft, DirEntry* entry)
{
    if (entry->Type() == EntryType::kStream) {
        if (!draft.HoldsBytes() || draft.bytes.empty())
            return S_OK;
        if (draft.bytes.size() >= kMiniCutoff)
            return StreamBody::Lay(volume_, draft.bytes, entry);
        Gather(draft.bytes, entry);
        return links_.size() >= kGathered ? WriteGathered() : S_OK;
    }
    std::vector<Draft*> children;
    children.reserve(draft.children.size());
    for (const auto& child : draft.children)
        children.push_back(child.get());
    EntryId top = kNoEntry;
    CFB_TRY(FillTree(children, 0, children.size(), 0, &top));
    entry->SetChild(top);
    return S_OK;
}

// Makes a tree of the least depth, whose last, incomplete level is red.
HRESULT Laying::FillTree(const std::vector<Draft*>& drafts, std::size_t begin, std::size_t end,
                         unsigned level, EntryId* top)
{
    *top = kNoEntry;
    if (begin == end)
        return S_OK;
    const std::size_t middle = begin + (end - begin) / 2;
    const unsigned lastLevel = static_cast<unsigned>(std::bit_width(drafts.size() + 1)) - 1;
    EntryId left = kNoEntry;
    EntryId right = kNoEntry;
    CFB_TRY(FillTree(drafts, begin, middle, level + 1, &left));
    CFB_TRY(FillTree(drafts, middle + 1, end, level + 1, &right));
    return Write(*drafts[middle], left, right, level == lastLevel ? Color::kRed : Color::kBlack, top);
}

HRESULT Laying::Write(Draft& draft, EntryId left, EntryId right, Color color, EntryId* id)
{
    *id = draft.id;
    DirEntry entry = draft.entry;
    if (draft.IsPlaced()) {
        CFB_TRY(volume_.directory.Read(*id, &entry));
        entry.SetName(draft.name);
    } else {
        *id = ids_[nextId_++];
        CFB_TRY(Fill(draft, &entry));
        if (entry.IsStorage())
            volume_.owners.SetChanged(*id);
        if (draft.open)
            laid_.emplace_back(&draft, *id);
    }
    entry.SetLeft(left);
    entry.SetRight(right);
    entry.SetColor(color);
    return volume_.directory.Write(*id, entry);
}

}  // namespace quorvane::cfb
