// The elements of a compound file that haven't landed yet.
#include <algorithm>
#include <utility>

#include "platform/cfb/compound_file.h"
#include "platform/cfb/laying.h"
#include "platform/com/result.h"

namespace quorvane::cfb {

// A new storage of this one that hasn't landed.
OpenElement* CompoundFile::FindNew(const OpenElement& storage, const ElementName& name) const noexcept
{
    OpenElement* child = storage.firstChild;
    while (child && !(child->top && child->name.Compare(name) == 0))
        child = child->nextSibling;
    return child;
}

// The first of them in the order of names, or the first one after a name.
OpenElement* CompoundFile::NextNew(const OpenElement& storage, const ElementName* after) const noexcept
{
    OpenElement* next = nullptr;
    for (OpenElement* child = storage.firstChild; child; child = child->nextSibling) {
        const bool follows = child->top && (!after || child->name.Compare(*after) > 0);
        if (follows && (!next || child->name.Compare(next->name) < 0))
            next = child;
    }
    return next;
}

OpenElementPtr CompoundFile::MakeOpenDraft(Draft& draft, OpenElement& parent)
{
    OpenElementPtr element = MakeOpen(kNoEntry, draft.entry, &parent);
    element->draft = &draft;
    draft.open = element.get();
    return element;
}

// Begins a storage that lands when it is released. One of its name stays in the file until then, and can't be
// reached any more.
HRESULT CompoundFile::BeginDraft(OpenElement& storage, const ElementName& name, bool replace,
                                 OpenElementPtr* child)
{
    OpenElement* const other = FindNew(storage, name);
    bool exists = false;
    QV_TRY(BeginEdit(storage, name, false, &exists));
    if ((other || exists) && !replace)
        return STG_E_FILEALREADYEXISTS;
    EntryId old = kNoEntry;
    const DirEntry* entry = nullptr;
    if (exists)
        QV_TRY(Lookup(storage, name, false, &old, &entry));
    Draft* const draft = MakeDraft(EntryType::kStorage, name);
    *child = MakeOpenDraft(*draft, storage);
    (*child)->top = draft;
    if (other)
        open_.Revert(*other);
    open_.RevertEntry(old);
    FreeDropped();
    return S_OK;
}

Draft* CompoundFile::MakeDraft(EntryType type, const ElementName& name)
{
    Draft* const draft = drafts_.Make(type, name);
    if (type == EntryType::kStorage) {
        draft->entry.SetCreated(Now());
        draft->entry.SetModified(draft->entry.Created());
    }
    return draft;
}

HRESULT CompoundFile::CreateInDraft(OpenElement& storage, const ElementName& name, EntryType type,
                                    bool replace, OpenElementPtr* child)
{
    DraftChildren& children = storage.draft->children;
    bool behindAll = children.IsBehindAll(name);  // as most are
    DraftChild* const old = behindAll ? nullptr : children.Find(name);
    if (old && !replace)
        return STG_E_FILEALREADYEXISTS;
    if (old) {
        DestroyInDraft(storage, *old, name);
        behindAll = children.IsBehindAll(name);
    }
    Draft* const draft = MakeDraft(type, name);
    *child = MakeOpenDraft(*draft, storage);
    draft->LinkInto(*storage.draft);
    children.Add(*draft, name, behindAll);
    return S_OK;
}

HRESULT CompoundFile::OpenInDraft(OpenElement& storage, const ElementName& name, EntryType type,
                                  OpenElementPtr* child)
{
    DraftChild* const found = storage.draft->children.Find(name);
    DirEntry entry;
    if (!found)
        return STG_E_FILENOTFOUND;
    QV_TRY(StatDraft(*found, &entry));
    if (entry.Type() != type)
        return STG_E_FILENOTFOUND;
    if (IsOpen(*found))
        return STG_E_ACCESSDENIED;
    if (found->IsPlaced())
        return OpenEntry(storage, found->id, entry, child);
    auto& draft = static_cast<Draft&>(*found);
    StreamBody body(*volume_);
    if (type == EntryType::kStream && !draft.HoldsBytes())
        QV_TRY(body.Load(draft.entry));
    *child = MakeOpenDraft(draft, storage);
    (*child)->body = std::move(body);
    return S_OK;
}

bool CompoundFile::IsOpen(const DraftChild& child) const noexcept
{
    return child.IsPlaced() ? open_.IsOpen(child.id) : static_cast<const Draft&>(child).open != nullptr;
}

void CompoundFile::DestroyInDraft(OpenElement& storage, DraftChild& child, const ElementName& name)
{
    storage.draft->children.Remove(child, name);
    if (child.IsPlaced()) {
        open_.RevertEntry(child.id);
    } else {
        auto& draft = static_cast<Draft&>(child);
        draft.UnlinkFrom(*storage.draft);
        if (draft.open)
            open_.Revert(*draft.open);
    }
    open_.Drop(child);
    FreeDropped();
}

HRESULT CompoundFile::RenameInDraft(OpenElement& storage, const ElementName& from, const ElementName& to)
{
    DraftChildren& children = storage.draft->children;
    DraftChild* child = children.Find(from);
    DraftChild* const there = children.Find(to);
    if (!child)
        return STG_E_FILENOTFOUND;
    if (there && there != child)
        return STG_E_FILEALREADYEXISTS;
    if (IsOpen(*child))
        return STG_E_ACCESSDENIED;
    DraftChild* const placed = child->IsPlaced() ? drafts_.MakePlaced(to) : nullptr;
    children.Remove(*child, from);
    if (placed) {
        placed->id = child->id;
        drafts_.Discard(*std::exchange(child, placed));
    } else {
        static_cast<Draft*>(child)->entry.SetName(to);
    }
    children.Add(*child, to, children.IsBehindAll(to));
    return S_OK;
}

HRESULT CompoundFile::StatDraft(const DraftChild& child, DirEntry* entry)
{
    if (child.IsPlaced()) {
        QV_TRY(volume_->directory.Read(child.id, entry));
        entry->SetName(child.Name());
        return S_OK;
    }
    const auto& draft = static_cast<const Draft&>(child);
    *entry = draft.entry;
    if (entry->Type() == EntryType::kStream && draft.HoldsBytes())
        entry->SetSize(draft.size);
    return S_OK;
}

HRESULT CompoundFile::NextInDraft(const Draft& storage, const ElementName* after, DirEntry* entry)
{
    const DraftChild* const next = storage.children.After(after);
    return next ? StatDraft(*next, entry) : STG_E_NOMOREFILES;
}

// Sees to it that the content of a new stream may become `size` bytes, in memory if that is not too much, and
// that there is room for it in the file.
HRESULT CompoundFile::MakeRoom(OpenElement& stream, std::uint64_t size)
{
    if (size > kMostOfOne)
        return MoveToFile(stream);
    const std::size_t before = stream.draft->size;
    const std::size_t held =
        drafts_.Held() + static_cast<std::size_t>(size) - std::min<std::size_t>(before, size);
    if (held > roomAt_) {
        QV_TRY(PlaceClosed(stream));
        if (drafts_.Held() > kMostHeld && before >= kMiniCutoff)
            QV_TRY(MoveToFile(stream));
        roomAt_ = std::max(kMostHeld, 2 * drafts_.Held());
    }
    // Tables take their part, and what isn't full of the last sectors.
    const std::uint64_t wanted = held + held / 16 + 4 * OrderedFile::kPage;
    const std::uint64_t free = std::uint64_t{volume_->fat.Known()} << volume_->sectors.Shift();
    const std::uint64_t end = volume_->sectors.OffsetOf(volume_->sectors.Count());
    return wanted > free ? volume_->file.Reserve(end + wanted - free) : S_OK;
}

HRESULT CompoundFile::MoveToFile(OpenElement& stream)
{
    Draft& draft = *stream.draft;
    StreamBody body(*volume_);
    std::size_t written = 0;
    draft.entry.SetStart(kEndOfChain);
    draft.entry.SetSize(0);
    QV_TRY(body.Load(draft.entry));
    const HRESULT hr = Operate([&] { return body.Write(0, draft.bytes, draft.size, &written); });
    if (FAILED(hr)) {
        draft.entry.SetStart(kEndOfChain);
        draft.entry.SetSize(0);
        return hr;
    }
    drafts_.DropBytes(draft);
    draft.inSectors = true;
    stream.body = body;
    return S_OK;
}

// Puts what nobody has open, of the draft that an element belongs to, into the file, so that it takes no
// memory.
HRESULT CompoundFile::PlaceClosed(const OpenElement& element)
{
    struct Closed {
        Draft* storage;
        DraftChild* placed;
    };
    const OpenElement* top = &element;
    while (!top->top)
        top = top->parent;
    std::vector<Draft*> drafts;
    std::vector<Closed> closed;
    CollectClosed(*top->top, [&](Draft& storage, Draft& draft) {
        drafts.push_back(&draft);
        closed.push_back({&storage, drafts_.MakePlaced(draft.Name())});
    });
    if (drafts.empty())
        return S_OK;
    std::reverse(drafts.begin(), drafts.end());  // as they were made
    std::reverse(closed.begin(), closed.end());
    Laying laying(*volume_);
    const HRESULT hr = Operate([&]() -> HRESULT {
        QV_TRY(laying.Lay(drafts));
        return volume_->Commit();
    });
    for (std::size_t i = 0; i < closed.size(); ++i) {
        Draft& draft = *drafts[i];
        DraftChild& placed = *closed[i].placed;
        if (FAILED(hr)) {
            drafts_.Discard(placed);
            continue;
        }
        placed.id = draft.place;
        closed[i].storage->children.Replace(draft, placed, draft.Name());
        draft.UnlinkFrom(*closed[i].storage);
        drafts_.Discard(draft);
    }
    return hr;
}

// Calls visit(Draft& storage, Draft&) for the highest drafts below a storage that nobody has open.
template <class Visit>
void CompoundFile::CollectClosed(Draft& storage, const Visit& visit)
{
    for (Draft* draft = storage.firstDraft; draft; draft = draft->next) {
        if (draft->open)
            CollectClosed(*draft, visit);
        else
            visit(storage, *draft);
    }
}

// Puts a new storage with all below it into the file, by one link, in the place of one of its name.
HRESULT CompoundFile::Land(OpenElement& element)
{
    OpenElement& storage = *element.parent;
    Draft& top = *element.top;
    const ElementName name = top.Name();
    bool exists = false;
    QV_TRY(BeginEdit(storage, name, false, &exists));
    EntryId id = kNoEntry;
    Laying laying(*volume_);
    const HRESULT hr = Operate([&]() -> HRESULT {
        DirEntry entry;
        QV_TRY(laying.LayBelow(top, &entry));
        // The link isn't to share a write with what it leads to: on a failing disk half of a write may be
        // done.
        QV_TRY(volume_->sectors.Commit());
        QV_TRY(volume_->edit.Begin(storage.id));
        return Hang(entry, &id);
    });
    if (FAILED(hr) && !HasLanded(storage, name, id))
        return hr;
    for (const Draft* draft : laying.LaidOpen()) {
        OpenElement* const open = draft->open;
        open_.Landed(*open, draft->place);
        if (open->type == EntryType::kStream && FAILED(open->body.Load(draft->place)))
            failed_ = true;
    }
    open_.Landed(element, id);
    drafts_.Discard(*std::exchange(element.top, nullptr));
    roomAt_ = std::max(kMostHeld, 2 * drafts_.Held());
    if (SUCCEEDED(hr) && exists)
        TrimIfWorth();
    return hr;
}

// Whether a landing that failed came as far as the one link: then what it wrote is reached, and what it was
// to free is wasted.
bool CompoundFile::HasLanded(OpenElement& storage, const ElementName& name, EntryId id)
{
    EntryId found = kNoEntry;
    const DirEntry* entry = nullptr;
    return id != kNoEntry && SUCCEEDED(Ready()) && !storage.reverted &&
           SUCCEEDED(volume_->tree.Find(storage.id, name, &found, &entry)) && found == id;
}

// The element itself, or one that was opened through it, that hasn't landed; the ones below before those
// above.
OpenElement* CompoundFile::FindUnlanded(OpenElement& element) noexcept
{
    for (OpenElement* child = element.firstChild; child; child = child->nextSibling) {
        if (OpenElement* const found = FindUnlanded(*child))
            return found;
    }
    return element.top ? &element : nullptr;
}

HRESULT CompoundFile::LandAll(OpenElement& element)
{
    while (FindUnlanded(element)) {
        QV_TRY(Ready());
        OpenElement* const next = element.reverted ? nullptr : FindUnlanded(element);
        if (!next)
            break;
        QV_TRY(Land(*next));
    }
    return S_OK;
}

HRESULT CompoundFile::Commit(OpenElement& element)
{
    if (element.draft && !element.top)
        return S_OK;
    QV_TRY(LandAll(element));
    if (element.type == EntryType::kRoot)
        Tidy();
    return S_OK;
}

void CompoundFile::Revert(OpenElement& element) noexcept
{
    if (!element.top)
        return;
    open_.Revert(element);
    FreeDropped();
}

void CompoundFile::Close(OpenElement& element) noexcept
{
    if (element.reverted)
        return;
    HRESULT hr = S_OK;
    try {
        if (element.top || element.firstChild)
            hr = LandAll(element);
    } catch (const std::bad_alloc&) {
        Failed();
        hr = E_OUTOFMEMORY;
    }
    if (FAILED(hr) && SUCCEEDED(landing_))
        landing_ = hr;
    open_.Revert(element);
    FreeDropped();
}

// Frees what drafts that nobody can reach any more have in the file. What can't be freed is wasted.
void CompoundFile::FreeDropped() noexcept
{
    while (DraftChild* const dropped = open_.TakeDropped()) {
        try {
            if (dropped->IsInFile() && SUCCEEDED(Ready()) && FAILED(Operate([&]() -> HRESULT {
                    QV_TRY(FreeInFile(*dropped));
                    return volume_->Commit();
                })))
                failed_ = true;
        } catch (const std::bad_alloc&) {
            Failed();
        }
        drafts_.Discard(*dropped);
    }
}

HRESULT CompoundFile::FreeInFile(DraftChild& child)
{
    if (child.IsPlaced())
        return FreeElement(child.id);
    const auto& draft = static_cast<const Draft&>(child);
    if (draft.inSectors)
        QV_TRY(FreeContent(kNoEntry, draft.entry));
    HRESULT hr = S_OK;
    draft.children.Each([&](DraftChild& below) { hr = FAILED(hr) ? hr : FreeInFile(below); });
    return hr;
}

}  // namespace quorvane::cfb
