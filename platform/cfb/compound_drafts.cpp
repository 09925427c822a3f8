// The elements of a compound file that haven't landed yet.
#include <algorithm>
#include <utility>

#include "platform/cfb/compound_file.h"
#include "platform/cfb/laying.h"
#include "platform/cfb/result.h"

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
    auto element = std::make_shared<OpenElement>(kNoEntry, draft.entry.Type(), draft.name, *volume_);
    element->draft = &draft;
    open_.Add(*element, &parent);
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
    CFB_TRY(BeginEdit(storage, name, false, &exists));
    if ((other || exists) && !replace)
        return STG_E_FILEALREADYEXISTS;
    EntryId old = kNoEntry;
    DirEntry entry;
    if (exists)
        CFB_TRY(Lookup(storage, name, false, &old, &entry));
    auto draft = std::make_unique<Draft>(EntryType::kStorage, name);
    draft->entry.SetCreated(Now());
    draft->entry.SetModified(draft->entry.Created());
    *child = MakeOpenDraft(*draft, storage);
    (*child)->top = std::move(draft);
    held_ += Draft::kCost;
    if (other)
        open_.Revert(*other);
    open_.RevertEntry(old);
    FreeDropped();
    return S_OK;
}

HRESULT CompoundFile::CreateInDraft(OpenElement& storage, const ElementName& name, EntryType type,
                                    bool replace, OpenElementPtr* child)
{
    Draft::Children& children = storage.draft->children;
    auto place = storage.draft->Seek(name);
    if (place != children.end() && (*place)->name.Compare(name) == 0) {
        if (!replace)
            return STG_E_FILEALREADYEXISTS;
        Draft& old = **place++;
        DestroyInDraft(storage, old);
    }
    auto draft = std::make_unique<Draft>(type, name);
    if (type == EntryType::kStorage) {
        draft->entry.SetCreated(Now());
        draft->entry.SetModified(draft->entry.Created());
    }
    std::vector<Draft*>& unplaced = storage.draft->unplaced;
    unplaced.push_back(draft.get());
    try {
        *child = MakeOpenDraft(*draft, storage);
        children.insert(place, std::move(draft));
    } catch (const std::bad_alloc&) {
        unplaced.pop_back();
        if (*child)
            open_.Revert(**child);
        throw;
    }
    held_ += Draft::kCost;
    return S_OK;
}

HRESULT CompoundFile::OpenInDraft(OpenElement& storage, const ElementName& name, EntryType type,
                                  OpenElementPtr* child)
{
    Draft* const draft = storage.draft->Find(name);
    if (!draft || draft->entry.Type() != type)
        return STG_E_FILENOTFOUND;
    if (draft->open || open_.IsOpen(draft->id))
        return STG_E_ACCESSDENIED;
    StreamBody body(*volume_);
    if (type == EntryType::kStream && !draft->HoldsBytes())
        CFB_TRY(draft->IsPlaced() ? body.Load(draft->id) : body.Load(draft->entry));
    *child = draft->IsPlaced() ? MakeOpen(draft->id, type, name, &storage) : MakeOpenDraft(*draft, storage);
    (*child)->body = body;
    return S_OK;
}

void CompoundFile::DestroyInDraft(OpenElement& storage, Draft& draft)
{
    if (draft.open)
        open_.Revert(*draft.open);
    open_.RevertEntry(draft.id);
    Draft::Children& children = storage.draft->children;
    std::erase(storage.draft->unplaced, &draft);
    open_.Drop(std::move(children.extract(children.find(draft.name)).value()));
    FreeDropped();
}

HRESULT CompoundFile::RenameInDraft(OpenElement& storage, const ElementName& from, const ElementName& to)
{
    Draft::Children& children = storage.draft->children;
    Draft* const draft = storage.draft->Find(from);
    Draft* const there = storage.draft->Find(to);
    if (!draft)
        return STG_E_FILENOTFOUND;
    if (there && there != draft)
        return STG_E_FILEALREADYEXISTS;
    if (draft->open || open_.IsOpen(draft->id))
        return STG_E_ACCESSDENIED;
    auto node = children.extract(children.find(from));
    draft->name = to;
    draft->entry.SetName(to);
    children.insert(std::move(node));
    return S_OK;
}

HRESULT CompoundFile::StatDraft(const Draft& draft, DirEntry* entry)
{
    *entry = draft.entry;
    if (draft.IsPlaced()) {
        CFB_TRY(volume_->directory.Read(draft.id, entry));
        entry->SetName(draft.name);
    } else if (draft.entry.Type() == EntryType::kStream && draft.HoldsBytes()) {
        entry->SetSize(draft.bytes.size());
    }
    return S_OK;
}

HRESULT CompoundFile::NextInDraft(const Draft& storage, const ElementName* after, DirEntry* entry)
{
    const auto next = after ? storage.children.upper_bound(*after) : storage.children.begin();
    return next == storage.children.end() ? STG_E_NOMOREFILES : StatDraft(**next, entry);
}

// Writes to a stream whose content is in memory.
HRESULT CompoundFile::WriteBytes(OpenElement& stream, std::uint64_t offset, const void* from,
                                 std::size_t count, std::size_t* written)
{
    std::vector<BYTE>& bytes = stream.draft->bytes;
    const auto at = static_cast<std::size_t>(offset);
    const auto* const in = static_cast<const BYTE*>(from);
    if (at > bytes.size())
        SetBytes(bytes, at);
    const std::size_t inside = std::min(count, bytes.size() - at);
    std::copy_n(in, inside, bytes.begin() + static_cast<std::ptrdiff_t>(at));
    bytes.insert(bytes.end(), in + inside, in + count);
    held_ += count - inside;
    *written = count;
    return S_OK;
}

void CompoundFile::SetBytes(std::vector<BYTE>& bytes, std::size_t size)
{
    const std::size_t before = bytes.size();
    bytes.resize(size);
    held_ = held_ + size - before;
}

// Sees to it that the content of a new stream may become `size` bytes, in memory if that is not too much, and
// that there is room for it in the file.
HRESULT CompoundFile::MakeRoom(OpenElement& stream, std::uint64_t size)
{
    if (size > kMostOfOne)
        return MoveToFile(stream);
    const std::size_t before = stream.draft->bytes.size();
    const std::size_t held = held_ + static_cast<std::size_t>(size) - std::min<std::size_t>(before, size);
    if (held > roomAt_) {
        CFB_TRY(PlaceClosed(stream));
        if (held_ > kMostHeld && before >= kMiniCutoff)
            CFB_TRY(MoveToFile(stream));
        roomAt_ = std::max(kMostHeld, 2 * held_);
    }
    // Tables take their part, and what isn't full of the last sectors.
    const std::uint64_t wanted = held + held / 16 + 4 * OrderedFile::kPage;
    const std::uint64_t free = std::uint64_t{volume_->allocator.Known()} << volume_->sectors.Shift();
    const std::uint64_t end = volume_->sectors.OffsetOf(volume_->sectors.Count());
    return wanted > free ? volume_->file.Reserve(end + wanted - free) : S_OK;
}

HRESULT CompoundFile::MoveToFile(OpenElement& stream)
{
    Draft& draft = *stream.draft;
    StreamBody body(*volume_);
    std::size_t written = 0;
    CFB_TRY(body.Load(draft.entry));
    const HRESULT hr =
        Operate([&] { return body.Write(0, draft.bytes.data(), draft.bytes.size(), &written); });
    if (FAILED(hr)) {
        draft.entry.SetStart(kEndOfChain);
        draft.entry.SetSize(0);
        return hr;
    }
    held_ -= draft.bytes.size();
    draft.bytes = {};
    draft.inSectors = true;
    stream.body = body;
    return S_OK;
}

// Puts what nobody has open, of the draft that an element belongs to, into the file, so that it takes no
// memory.
HRESULT CompoundFile::PlaceClosed(const OpenElement& element)
{
    const OpenElement* top = &element;
    while (!top->top)
        top = top->parent;
    std::vector<Draft*> closed;
    CollectClosed(*top->top, &closed);
    if (closed.empty())
        return S_OK;
    Laying laying(*volume_);
    const HRESULT hr = Operate([&]() -> HRESULT {
        CFB_TRY(laying.Lay(closed));
        return volume_->Commit();
    });
    CFB_TRY(hr);
    for (const Draft* draft : closed)
        held_ -= draft->Weight();
    for (const auto& [draft, id] : laying.Laid())
        draft->id = id;
    for (Draft* draft : closed) {
        draft->bytes = {};
        draft->children.clear();
        draft->unplaced = {};
    }
    ForgetPlaced(*top->top);
    return S_OK;
}

void CompoundFile::CollectClosed(const Draft& storage, std::vector<Draft*>* closed)
{
    for (Draft* child : storage.unplaced) {
        if (child->IsInUse())
            CollectClosed(*child, closed);
        else
            closed->push_back(child);
    }
}

void CompoundFile::ForgetPlaced(Draft& storage) noexcept
{
    std::erase_if(storage.unplaced, [](const Draft* child) { return child->IsPlaced(); });
    for (Draft* child : storage.unplaced)
        ForgetPlaced(*child);
}

// Puts a new storage with all below it into the file, by one link, in the place of one of its name.
HRESULT CompoundFile::Land(OpenElement& element)
{
    OpenElement& storage = *element.parent;
    const Draft& top = *element.top;
    bool exists = false;
    CFB_TRY(BeginEdit(storage, top.name, false, &exists));
    EntryId id = kNoEntry;
    Laying laying(*volume_);
    const HRESULT hr = Operate([&]() -> HRESULT {
        DirEntry entry;
        CFB_TRY(laying.LayBelow(top, &entry));
        // The link isn't to share a write with what it leads to: on a failing disk half of a write may be
        // done.
        CFB_TRY(volume_->sectors.Commit());
        CFB_TRY(volume_->edit.Begin(storage.id));
        return Hang(entry, &id);
    });
    if (FAILED(hr) && !HasLanded(storage, top.name, id))
        return hr;
    held_ -= top.Weight();
    for (const auto& [draft, place] : laying.Laid()) {
        OpenElement* const open = draft->open;
        if (!open)
            continue;
        open_.Landed(*open, place);
        if (open->type == EntryType::kStream && FAILED(open->body.Load(place)))
            failed_ = true;
    }
    open_.Landed(element, id);
    element.top.reset();
    roomAt_ = std::max(kMostHeld, 2 * held_);
    if (SUCCEEDED(hr) && exists)
        TrimIfWorth();
    return hr;
}

// Whether a landing that failed came as far as the one link: then what it wrote is reached, and what it was
// to free is wasted.
bool CompoundFile::HasLanded(OpenElement& storage, const ElementName& name, EntryId id)
{
    EntryId found = kNoEntry;
    DirEntry entry;
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
        CFB_TRY(Ready());
        OpenElement* const next = element.reverted ? nullptr : FindUnlanded(element);
        if (!next)
            break;
        CFB_TRY(Land(*next));
    }
    return S_OK;
}

HRESULT CompoundFile::Commit(OpenElement& element)
{
    if (element.draft && !element.top)
        return S_OK;
    CFB_TRY(LandAll(element));
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
    for (auto dropped = open_.TakeDropped(); dropped; dropped = std::move(dropped->nextDropped)) {
        held_ -= dropped->Weight();
        if (!dropped->IsInFile())
            continue;
        try {
            const bool ready = SUCCEEDED(Ready());
            if (ready && FAILED(Operate([&]() -> HRESULT {
                    CFB_TRY(FreeDraft(*dropped));
                    return volume_->Commit();
                })))
                failed_ = true;
        } catch (const std::bad_alloc&) {
            Failed();
        }
    }
}

HRESULT CompoundFile::FreeDraft(const Draft& draft)
{
    if (draft.IsPlaced())
        return FreeElement(draft.id);
    if (draft.inSectors)
        CFB_TRY(FreeContent(kNoEntry, draft.entry));
    for (const auto& child : draft.children)
        CFB_TRY(FreeDraft(*child));
    return S_OK;
}

}  // namespace quorvane::cfb
