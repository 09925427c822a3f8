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
    }
    return LinkGrowth();
}

HRESULT Laying::LayBelow(const Draft& storage, DirEntry* entry)
{
    Count(storage);
    CFB_TRY(Reserve());
    *entry = storage.entry;
    CFB_TRY(Fill(storage, entry));
    return LinkGrowth();
}

// What is to be taken for a draft and all below it.
void Laying::Count(const Draft& draft) noexcept
{
    if (draft.IsPlaced())
        return;
    ++entries_;
    if (draft.HoldsBytes() && draft.bytes.size() < kMiniCutoff)
        miniSectors_ += static_cast<SectorId>((draft.bytes.size() + kMiniBytes - 1) / kMiniBytes);
    for (const auto& child : draft.children)
        Count(*child);
}

HRESULT Laying::Reserve()
{
    CFB_TRY(volume_.directory.Reserve(entries_));
    return volume_.mini.Reserve(miniSectors_);
}

HRESULT Laying::LinkGrowth()
{
    volume_.file.Order();
    CFB_TRY(volume_.directory.LinkGrowth());
    CFB_TRY(volume_.mini.LinkGrowth());
    volume_.file.Order();
    return S_OK;
}

// Writes the content of a draft, or all below it, and has its entry tell where that is.
HRESULT Laying::Fill(const Draft& draft, DirEntry* entry)
{
    if (entry->Type() == EntryType::kStream)
        return draft.HoldsBytes() ? StreamBody::Lay(volume_, draft.bytes, entry) : S_OK;
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
        CFB_TRY(volume_.directory.Allocate(id));
        CFB_TRY(Fill(draft, &entry));
        if (entry.IsStorage())
            volume_.owners.SetChanged(*id);
        laid_.emplace_back(&draft, *id);
    }
    entry.SetLeft(left);
    entry.SetRight(right);
    entry.SetColor(color);
    return volume_.directory.Write(*id, entry);
}

}  // namespace quorvane::cfb
