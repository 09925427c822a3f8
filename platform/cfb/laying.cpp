#include "platform/cfb/laying.h"

#include <algorithm>
#include <cstring>

#include "platform/com/result.h"

namespace quorvane::cfb {

HRESULT Laying::Lay(const std::vector<Draft*>& drafts)
{
    for (const Draft* draft : drafts)
        Count(*draft);
    QV_TRY(Reserve());
    // Their entries, which get links later, lie side by side.
    for (Draft* draft : drafts) {
        Number(*draft);
        draft->entry.SetLinks(kNoEntry, kNoEntry, Color::kBlack);
    }
    for (Draft* draft : drafts)
        QV_TRY(Fill(*draft));
    return Finish();
}

HRESULT Laying::LayBelow(Draft& storage, DirEntry* entry)
{
    for (const Draft* draft = storage.firstDraft; draft; draft = draft->next)
        Count(*draft);
    QV_TRY(Reserve());
    QV_TRY(FillStorage(storage));
    *entry = storage.entry;
    return Finish();
}

// What is to be taken for a draft and all below it.
void Laying::Count(const Draft& draft) noexcept
{
    ++entries_;
    Contents& contents = ContentsFor(draft.size);
    contents.count += contents.CountFor(draft.size);
    for (const Draft* child = draft.firstDraft; child; child = child->next)
        Count(*child);
}

// The tables grow once, and what is taken lies as close together as the file's free space lets it.
HRESULT Laying::Reserve()
{
    SectorId forEntries = 0;
    SectorId minis = 0;
    QV_TRY(volume_.directory.Lacking(entries_ + kForTheTree, &forEntries));
    QV_TRY(volume_.mini.Lacking(minis_.count, &minis));
    const SectorId forMinis = minis > 0 ? volume_.mini.SectorsFor(minis) : 0;
    QV_TRY(volume_.fat.Reserve(forEntries + sectors_.count + forMinis));
    QV_TRY(volume_.directory.Append(forEntries, entries_));
    QV_TRY(volume_.mini.Append(minis));
    for (Contents* const contents : {&minis_, &sectors_})
        contents->bytes.reserve(std::min(std::size_t{contents->count} << contents->shift, 2 * kGathered));
    laid_.reserve(entries_);
    volume_.directory.AllocateMany(entries_, &ids_);
    QV_TRY(volume_.mini.TakeMany(minis_.count, &minis_.taken));
    return volume_.fat.TakeMany(sectors_.count, &sectors_.taken);
}

HRESULT Laying::Finish()
{
    QV_TRY(Write(minis_, true));
    QV_TRY(Write(sectors_, true));
    QV_TRY(WriteEntries());
    QV_TRY(volume_.fat.LinkGrowth());
    volume_.file.Order();
    QV_TRY(volume_.directory.LinkGrowth());
    QV_TRY(volume_.mini.LinkGrowth());
    volume_.file.Order();
    return S_OK;
}

// Takes the content of a stream along, and has its entry tell where it comes to lie.
HRESULT Laying::Gather(Draft& stream)
{
    stream.entry.SetSize(stream.size);
    stream.entry.SetStart(kEndOfChain);
    if (stream.size == 0)
        return S_OK;
    Contents& contents = ContentsFor(stream.size);
    stream.entry.SetStart(contents.taken[contents.next]);
    for (std::size_t done = 0; done < stream.size;) {
        const std::size_t part = std::min(kGathered, stream.size - done);
        const SectorId count = contents.CountFor(part);
        const std::size_t at = contents.bytes.size();
        contents.bytes.insert(contents.bytes.end(), stream.bytes + done, stream.bytes + done + part);
        contents.bytes.resize(at + (std::size_t{count} << contents.shift));
        const auto first = contents.taken.begin() + static_cast<std::ptrdiff_t>(contents.next);
        contents.links.insert(contents.links.end(), first + 1, first + count);
        contents.next += count;
        done += part;
        contents.links.push_back(done < stream.size ? contents.taken[contents.next] : kEndOfChain);
        if (contents.bytes.size() >= kGathered)
            QV_TRY(Write(contents, false));
    }
    return S_OK;
}

// Writes what was gathered. all: the last run too, which what comes next may continue.
HRESULT Laying::Write(Contents& contents, bool all)
{
    const auto count = static_cast<SectorId>(contents.links.size());
    const SectorId* const sectors = contents.taken.data() + contents.next - count;
    SectorId done = 0;
    while (done < count) {
        SectorId run = RunLength(sectors + done, count - done);
        SectorId at = sectors[done];
        std::size_t offset = 0;
        std::size_t bytes = std::size_t{run} << contents.shift;
        if (&contents == &minis_)
            QV_TRY(volume_.mini.Locate(sectors[done], run, &at, &offset, &bytes));
        run = static_cast<SectorId>(bytes >> contents.shift);
        if (!all && done > 0 && done + run == count)
            break;
        QV_TRY(contents.table.SetNexts(sectors[done], contents.links.data() + done, run));
        QV_TRY(volume_.sectors.WriteData(
            at, offset, contents.bytes.data() + (std::size_t{done} << contents.shift), bytes));
        done += run;
    }
    contents.links.erase(contents.links.begin(), contents.links.begin() + done);
    contents.bytes.erase(contents.bytes.begin(),
                         contents.bytes.begin() + (std::ptrdiff_t{done} << contents.shift));
    return S_OK;
}

void Laying::Number(Draft& draft)
{
    draft.place = ids_[laid_.size()];
    laid_.push_back(&draft);
    if (draft.open)
        open_.push_back(&draft);
}

// Writes the content of a draft, or all below it, and has its entry tell where that is.
HRESULT Laying::Fill(Draft& draft)
{
    if (draft.entry.Type() != EntryType::kStream)
        return FillStorage(draft);
    return draft.HoldsBytes() ? Gather(draft) : S_OK;
}

// The entries of a storage's elements lie behind each other in the order of their names, so that whoever
// enumerates and opens them reads them in one go.
HRESULT Laying::FillStorage(Draft& storage)
{
    const std::size_t laid = laid_.size();
    const std::size_t count = storage.children.Count();
    children_.clear();
    children_.reserve(count);
    storage.children.Each([this](DraftChild& child) {
        children_.push_back(&child);
        if (!child.IsPlaced())
            Number(static_cast<Draft&>(child));
    });
    EntryId top = kNoEntry;
    const auto hang = [this](std::size_t i, EntryId left, EntryId right, Color color, EntryId* id) {
        return Link(*children_[i], left, right, color, id);
    };
    QV_TRY(HangBalanced(0, count, count, 0, hang, &top));
    storage.entry.SetChild(top);
    if (storage.place != kNoEntry)
        volume_.owners.SetChanged(storage.place);
    for (std::size_t i = laid, end = laid_.size(); i < end; ++i)
        QV_TRY(Fill(*laid_[i]));
    return S_OK;
}

// Gives an element its place in the tree of its storage.
HRESULT Laying::Link(DraftChild& child, EntryId left, EntryId right, Color color, EntryId* id)
{
    if (!child.IsPlaced()) {
        static_cast<Draft&>(child).entry.SetLinks(left, right, color);
        *id = static_cast<Draft&>(child).place;
        return S_OK;
    }
    *id = child.id;
    DirEntry entry;
    QV_TRY(volume_.directory.Read(child.id, &entry));
    entry.SetName(child.Name());
    entry.SetLinks(left, right, color);
    return volume_.directory.Write(child.id, entry);
}

HRESULT Laying::WriteEntries()
{
    std::vector<BYTE> bytes;
    for (std::size_t begin = 0; begin < laid_.size(); begin += bytes.size() / kEntryBytes) {
        const std::size_t most = std::min(kGathered / kEntryBytes, laid_.size() - begin);
        const EntryId numbered = RunLength(&ids_[begin], static_cast<EntryId>(most));
        EntryId run = 0;
        QV_TRY(volume_.directory.RunAt(ids_[begin], numbered, &run));
        bytes.resize(run * kEntryBytes);
        for (std::size_t i = 0; i < run; ++i)
            std::memcpy(&bytes[i * kEntryBytes], laid_[begin + i]->entry.Bytes(), kEntryBytes);
        QV_TRY(volume_.directory.WriteRun(ids_[begin], run, bytes.data()));
    }
    return S_OK;
}

}  // namespace quorvane::cfb
