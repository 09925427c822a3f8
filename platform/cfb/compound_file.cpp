#include "platform/cfb/compound_file.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "platform/cfb/known_files.h"
#include "platform/com/result.h"

namespace quorvane::cfb {
FILETIME CompoundFile::Now() noexcept
{
    using Ticks = std::chrono::duration<std::int64_t, std::ratio<1, 10'000'000>>;
    constexpr std::int64_t kFrom1601To1970 = 116'444'736'000'000'000;
    const auto since1970 = std::chrono::system_clock::now().time_since_epoch();
    const std::int64_t ticks = std::chrono::duration_cast<Ticks>(since1970).count() + kFrom1601To1970;
    FILETIME time;
    time.dwLowDateTime = static_cast<DWORD>(ticks);
    time.dwHighDateTime = static_cast<DWORD>(ticks >> 32);
    return time;
}

HRESULT CompoundFile::Format(Layout layout)
{
    volume_ = std::make_unique<Volume>(store_);
    return volume_->Format(layout);
}

HRESULT CompoundFile::Open()
{
    const auto identity = store_.Identify();
    volume_ = identity ? KnownFiles::Instance().Take(*identity) : nullptr;
    if (volume_) {
        bool same = false;
        QV_TRY(volume_->GoOn(store_, &same));
        if (same) {
            known_ = identity;
            return S_OK;
        }
    }
    volume_ = std::make_unique<Volume>(store_);
    return volume_->Open();
}

void CompoundFile::Leave() noexcept
{
    const bool changed = volume_->HasChanged();
    if (failed_ || !(known_ || changed))
        return;
    const auto identity = changed ? store_.Seal() : store_.Identify();
    const bool others = !changed && identity != known_;  // have changed it meanwhile
    if (identity && !others && volume_->Leave())
        KnownFiles::Instance().Keep(*identity, std::move(volume_));
}

HRESULT CompoundFile::TakeAnew()
{
    QV_TRY(volume_->Reload());
    if (root_) {
        for (OpenElement* child = root_->firstChild; child;) {
            OpenElement* const next = child->nextSibling;
            QV_TRY(Refind(*child));
            child = next;
        }
        open_.Renumber(*root_);
        root_->ForgetTree();
    }
    failed_ = false;
    return S_OK;
}

// Finds an open element by its name again, and those that were opened through it.
HRESULT CompoundFile::Refind(OpenElement& element)
{
    if (element.draft && !element.HoldsBytes() && element.type == EntryType::kStream)
        return element.body.Load(element.draft->entry);
    EntryId id = element.id;
    const DirEntry* entry = nullptr;
    // What belongs to a draft lies where it lay.
    const bool stays = element.draft || element.parent->draft;
    const HRESULT hr = stays ? S_OK : volume_->tree.Find(element.parent->id, element.name, &id, &entry);
    const bool gone = hr == STG_E_FILENOTFOUND || hr == STG_E_DOCFILECORRUPT || hr == kTreeTooDeep ||
                      (SUCCEEDED(hr) && !stays && entry->Type() != element.type);
    if (gone) {
        open_.Revert(element);
        return S_OK;
    }
    QV_TRY(hr);
    element.id = id;
    element.ForgetTree();
    if (element.type == EntryType::kStream)
        return element.draft ? S_OK : element.body.Load(id);
    for (OpenElement* child = element.firstChild; child;) {
        OpenElement* const next = child->nextSibling;
        QV_TRY(Refind(*child));
        child = next;
    }
    return S_OK;
}

HRESULT CompoundFile::OpenRoot(OpenElementPtr* root)
{
    ElementName name;
    QV_TRY(name.Assign(OLESTR("Root Entry")));
    *root = MakeOpen(kRootEntry, DirEntry(EntryType::kRoot, name), nullptr);
    root_ = root->get();
    return S_OK;
}

void CompoundFile::Tidy()
{
    if (SUCCEEDED(Ready()) && FAILED(volume_->Trim(true)))
        failed_ = true;
}

// What was freed is in the store; giving the end of the file back may fail without harm.
void CompoundFile::TrimIfWorth()
{
    if (FAILED(volume_->Trim(false)))
        failed_ = true;
}

// What may fail comes before it: an element that is open is to be closed, not only let go of.
OpenElementPtr CompoundFile::MakeOpen(EntryId id, const DirEntry& entry, OpenElement* parent)
{
    OpenElementPtr element(memory_, id, entry, *volume_);
    open_.Add(*element, parent);
    return element;
}

// The place of the first element in a storage's list that doesn't come before the name, or that comes behind
// it; without a name the first one of all.
HRESULT CompoundFile::FindInList(const OpenElement& storage, const ElementName* name, bool behind,
                                 std::size_t* place)
{
    *place = 0;
    for (std::size_t end = name ? storage.list.size() : 0; *place < end;) {
        const std::size_t middle = *place + (end - *place) / 2;
        const DirEntry* entry = nullptr;
        QV_TRY(volume_->directory.Peek(storage.list[middle], &entry));
        const int order = entry->Compare(*name);  // of the name, seen from the entry
        if (behind ? order >= 0 : order > 0)
            *place = middle + 1;
        else
            end = middle;
    }
    return S_OK;
}

// survey: when the element isn't found, makes sure that the tree is one that can be searched.
HRESULT CompoundFile::Lookup(OpenElement& storage, const ElementName& name, bool survey, EntryId* id,
                             const DirEntry** entry)
{
    if (told_.version == volume_->directory.Version() && told_.storage == storage.id) {
        *id = told_.id;
        QV_TRY(volume_->directory.Peek(*id, entry));
        if ((*entry)->Compare(name) == 0)
            return S_OK;
    }
    if (storage.searchable) {
        const HRESULT hr = volume_->tree.Find(storage.id, name, id, entry);
        const bool damaged = hr == kTreeTooDeep || hr == STG_E_DOCFILECORRUPT;
        if (!damaged && (hr != STG_E_FILENOTFOUND || !survey || storage.surveyed))
            return hr;
        if (storage.surveyed)
            return STG_E_DOCFILECORRUPT;
        QV_TRY(Survey(storage));
        if (storage.searchable)
            return STG_E_FILENOTFOUND;
    }
    std::size_t place = 0;
    QV_TRY(FindInList(storage, &name, false, &place));
    if (place == storage.list.size())
        return STG_E_FILENOTFOUND;
    *id = storage.list[place];
    QV_TRY(volume_->directory.Peek(*id, entry));
    return (*entry)->Compare(name) == 0 ? S_OK : STG_E_FILENOTFOUND;
}

// Walks through a storage's tree. distrusted: it is to be written anew, however it looks.
HRESULT CompoundFile::Survey(OpenElement& storage, bool distrusted)
{
    DirTree::Shape shape;
    QV_TRY(volume_->tree.Survey(storage.id, &shape));
    if (!volume_->owners.Claim(storage.id, &shape.ids))
        shape.sound = false;
    if (!shape.ordered)
        QV_TRY(volume_->tree.Sort(&shape.ids));
    storage.sound = shape.sound;
    storage.searchable = shape.ordered && shape.sound && !shape.deep && !distrusted;
    storage.list = std::move(shape.ids);
    storage.listedAt = volume_->directory.Version();
    storage.surveyed = true;
    return S_OK;
}

// Writes a storage's tree anew, from the index that stands for it; a damaged one is left as it is.
HRESULT CompoundFile::PutRight(OpenElement& storage)
{
    if (!storage.sound)
        return STG_E_DOCFILECORRUPT;
    return Operate([&]() -> HRESULT {
        std::vector<TreeEdit::Move> moves;
        QV_TRY(volume_->tree.Rebuild(volume_->file, storage.id, storage.list, &moves));
        NoteMoves(moves);
        volume_->owners.SetChanged(storage.id);
        QV_TRY(volume_->Commit());
        storage.searchable = true;
        return S_OK;
    });
}

// Before a change: sees to it that the storage's tree is none that grows without balance.
HRESULT CompoundFile::PutRightIfNeeded(OpenElement& storage)
{
    if (!storage.probed && !storage.surveyed && volume_->probed != storage.id) {
        bool deep = false;
        QV_TRY(volume_->tree.Probe(storage.id, &deep));
        if (deep)
            QV_TRY(Survey(storage));
        else
            volume_->probed = storage.id;
    }
    storage.probed = true;
    return storage.searchable ? S_OK : PutRight(storage);
}

// A change met a tree that it couldn't go on with, and was given up.
HRESULT CompoundFile::TakeAnewAndPutRight(OpenElement& storage)
{
    QV_TRY(Ready());
    if (storage.reverted)
        return STG_E_REVERTED;
    QV_TRY(Survey(storage, true));
    return PutRight(storage);
}

// A tree was changed.
void CompoundFile::NoteMoves(const std::vector<TreeEdit::Move>& moves)
{
    for (const TreeEdit::Move& move : moves) {
        open_.Moved(move.from, move.to);
        volume_->Moved(move.from, move.to);
    }
}

HRESULT CompoundFile::OpenChild(OpenElement& storage, const ElementName& name, EntryType type,
                                OpenElementPtr* child)
{
    if (storage.depth >= kMaxDepth)
        return STG_E_DOCFILECORRUPT;
    if (storage.draft)
        return OpenInDraft(storage, name, type, child);
    if (FindNew(storage, name))
        return type == EntryType::kStorage ? STG_E_ACCESSDENIED : STG_E_FILENOTFOUND;
    EntryId id = kNoEntry;
    const DirEntry* entry = nullptr;
    QV_TRY(Lookup(storage, name, true, &id, &entry));
    if (entry->Type() != type)
        return STG_E_FILENOTFOUND;
    if (open_.IsOpen(id))
        return STG_E_ACCESSDENIED;
    return OpenEntry(storage, id, *entry, child);
}

// Opens an element that has an entry in the file.
HRESULT CompoundFile::OpenEntry(OpenElement& storage, EntryId id, const DirEntry& entry,
                                OpenElementPtr* child)
{
    OpenElementPtr element(memory_, id, entry, *volume_);
    if (entry.Type() == EntryType::kStream)
        QV_TRY(element->body.Load(id, entry));
    open_.Add(*element, &storage);
    *child = std::move(element);
    return S_OK;
}

HRESULT CompoundFile::CreateChild(OpenElement& storage, const ElementName& name, EntryType type, bool replace,
                                  OpenElementPtr* child)
{
    if (storage.depth >= kMaxDepth)
        return STG_E_INVALIDFUNCTION;
    if (storage.draft)
        return CreateInDraft(storage, name, type, replace, child);
    if (type == EntryType::kStorage)
        return BeginDraft(storage, name, replace, child);
    OpenElement* const other = FindNew(storage, name);
    bool exists = false;
    QV_TRY(BeginEdit(storage, name, false, &exists));
    if ((other || exists) && !replace)
        return STG_E_FILEALREADYEXISTS;

    EntryId id = kNoEntry;
    const DirEntry entry(type, name);
    const HRESULT hung = Operate([&] { return Hang(entry, &id); });
    QV_TRY(hung);
    if (exists)
        TrimIfWorth();
    *child = MakeOpen(id, entry, &storage);
    (*child)->body.BeginEmpty(id);
    if (other)
        open_.Revert(*other);
    FreeDropped();
    return S_OK;
}

HRESULT CompoundFile::FindForEdit(OpenElement& storage, const ElementName& name, bool* exists)
{
    QV_TRY(volume_->edit.Begin(storage.id));
    return volume_->edit.Find(name, exists);
}

// Begins an edit of a storage's tree, which is put right first if it needs that. wanted: the element should
// be there, so that it is looked for in all of the tree when it isn't where the order of names says.
HRESULT CompoundFile::BeginEdit(OpenElement& storage, const ElementName& name, bool wanted, bool* exists)
{
    QV_TRY(PutRightIfNeeded(storage));
    const HRESULT hr = FindForEdit(storage, name, exists);
    const bool damaged = hr == kTreeTooDeep || hr == STG_E_DOCFILECORRUPT;
    const bool missed = SUCCEEDED(hr) && wanted && !*exists && !storage.surveyed;
    if (!damaged && !missed)
        return hr;
    QV_TRY(Survey(storage, damaged));
    if (storage.searchable)
        return S_OK;
    QV_TRY(PutRight(storage));
    return FindForEdit(storage, name, exists);
}

// Writes an element's entry and links it, in the place of one of the same name if there is one.
HRESULT CompoundFile::Hang(const DirEntry& entry, EntryId* id)
{
    EntryId replaced = kNoEntry;
    QV_TRY(volume_->directory.Allocate(id));
    QV_TRY(volume_->edit.Insert(*id, entry, &replaced));
    QV_TRY(ApplyEdit());
    if (entry.IsStorage())
        volume_->owners.SetChanged(*id);
    if (replaced != kNoEntry)
        QV_TRY(FreeElement(replaced));
    return volume_->Commit();
}

HRESULT CompoundFile::ApplyEdit()
{
    QV_TRY(volume_->edit.Apply());
    NoteMoves(volume_->edit.Moves());
    volume_->owners.SetChanged(volume_->edit.Storage());
    return S_OK;
}

HRESULT CompoundFile::Destroy(OpenElement& storage, const ElementName& name)
{
    if (storage.draft) {
        DraftChild* const child = storage.draft->children.Find(name);
        if (child)
            DestroyInDraft(storage, *child, name);
        return child ? S_OK : STG_E_FILENOTFOUND;
    }
    OpenElement* const made = FindNew(storage, name);
    if (made) {
        open_.Revert(*made);
        FreeDropped();
        QV_TRY(Ready());
        if (storage.reverted)
            return STG_E_REVERTED;
    }
    bool exists = false;
    QV_TRY(BeginEdit(storage, name, true, &exists));
    if (!exists)
        return made ? S_OK : STG_E_FILENOTFOUND;
    HRESULT destroyed = ChangeTree(storage, [&] { return DestroyInTree(storage, name, false); });
    if (destroyed == STG_E_MEDIUMFULL) {
        // Nothing can be destroyed that takes room first.
        QV_TRY(Ready());
        destroyed =
            storage.reverted ? STG_E_REVERTED : Operate([&] { return DestroyInTree(storage, name, true); });
    }
    if (SUCCEEDED(destroyed))
        TrimIfWorth();
    FreeDropped();
    return destroyed;
}

// Takes an element out of a storage's tree, and frees it. inPlace: see TreeEdit::Remove.
HRESULT CompoundFile::DestroyInTree(OpenElement& storage, const ElementName& name, bool inPlace)
{
    EntryId id = kNoEntry;
    QV_TRY(volume_->edit.Resume(storage.id));
    QV_TRY(volume_->edit.Remove(name, inPlace, &id));
    QV_TRY(ApplyEdit());
    QV_TRY(FreeElement(id));
    return volume_->Commit();
}

HRESULT CompoundFile::Rename(OpenElement& storage, const ElementName& from, const ElementName& to)
{
    if (storage.draft)
        return RenameInDraft(storage, from, to);
    if (FindNew(storage, from))
        return STG_E_ACCESSDENIED;
    if (FindNew(storage, to))
        return STG_E_FILEALREADYEXISTS;
    EntryId id = kNoEntry;
    EntryId other = kNoEntry;
    const DirEntry* found = nullptr;
    const DirEntry* there = nullptr;
    QV_TRY(Lookup(storage, from, true, &id, &found));
    DirEntry entry = *found;
    const HRESULT taken = Lookup(storage, to, true, &other, &there);
    if (SUCCEEDED(taken) && other != id)
        return STG_E_FILEALREADYEXISTS;
    if (FAILED(taken) && taken != STG_E_FILENOTFOUND)
        return taken;
    if (open_.IsOpen(id))
        return STG_E_ACCESSDENIED;
    QV_TRY(PutRightIfNeeded(storage));
    return ChangeTree(storage, [&]() -> HRESULT {
        EntryId renamed = kNoEntry;
        EntryId replaced = kNoEntry;
        entry.SetName(to);
        QV_TRY(volume_->directory.Allocate(&renamed));
        QV_TRY(volume_->edit.Begin(storage.id));
        QV_TRY(volume_->edit.Remove(from, false, &id));
        QV_TRY(volume_->edit.Insert(renamed, entry, &replaced));
        QV_TRY(ApplyEdit());
        volume_->Moved(id, renamed);
        QV_TRY(volume_->directory.Free(id));
        return volume_->Commit();
    });
}

// Whether an entry that a storage's tree leads to is another one's: it was met there, or it was free when a
// damaged tree's link led to it, and somebody has taken it since.
bool CompoundFile::IsAnothers(EntryId id, EntryId storage) const noexcept
{
    return (volume_->directory.IsTaken(id) && !volume_->owners.IsChanged(storage)) ||
           volume_->owners.BelongsToAnother(id, storage);
}

// Frees an entry that nothing links to any more, with all that hangs below it.
HRESULT CompoundFile::FreeElement(EntryId id)
{
    struct Below {
        EntryId id;
        EntryId storage;
    };
    std::vector<Below> waiting{{id, kNoEntry}};
    std::vector<EntryId> storages;
    while (!waiting.empty()) {
        const auto [at, storage] = waiting.back();
        waiting.pop_back();
        if (at != id && IsAnothers(at, storage))
            continue;
        DirEntry entry;
        const HRESULT hr = volume_->directory.Read(at, &entry);
        if (hr == STG_E_DOCFILECORRUPT)
            continue;
        QV_TRY(hr);
        if (!entry.IsElement())
            continue;  // freed already, by another link of a damaged tree
        if (at != id) {
            for (const EntryId link : {entry.Left(), entry.Right()}) {
                if (link != kNoEntry)
                    waiting.push_back({link, storage});
            }
        }
        if (entry.IsStorage() && entry.Child() != kNoEntry)
            waiting.push_back({entry.Child(), at});
        open_.RevertEntry(at);
        QV_TRY(volume_->directory.Free(at));
        QV_TRY(FreeContent(at, entry));
        if (entry.IsStorage())
            storages.push_back(at);  // whose elements are still to come
        else
            volume_->Freed(at);
    }
    for (const EntryId storage : storages)
        volume_->Freed(storage);
    return S_OK;
}

// What another element is known to hold stays.
HRESULT CompoundFile::FreeContent(EntryId id, const DirEntry& entry)
{
    const std::uint64_t size = entry.Size(volume_->header.version);
    if (entry.Type() != EntryType::kStream || size == 0)
        return S_OK;
    LinkTable& table = size < kMiniCutoff ? static_cast<LinkTable&>(volume_->mini) : volume_->fat;
    if (table.Claims().IsClaimed(entry.Start()) && !volume_->owners.HoldsChain(id))
        return S_OK;
    const HRESULT hr = volume_->FreeChain(entry.Start(), table);
    return hr == STG_E_DOCFILECORRUPT ? S_OK : hr;  // the rest of a damaged chain stays in use
}

HRESULT CompoundFile::Next(OpenElement& storage, const ElementName* after, Cursor* cursor,
                           const DirEntry** entry)
{
    told_.version = 0;
    if (storage.draft) {
        *entry = &shown_;
        return NextInDraft(*storage.draft, after, &shown_);
    }
    const HRESULT hr = NextInFile(storage, after, cursor, entry);
    const OpenElement* const made = storage.firstChild ? NextNew(storage, after) : nullptr;
    if (!made || (FAILED(hr) && hr != STG_E_NOMOREFILES))
        return hr;
    if (SUCCEEDED(hr) && (*entry)->Compare(made->name) > 0)
        return S_OK;
    cursor->version = 0;  // the one that was found comes later, or never
    told_.version = 0;
    *entry = &shown_;
    return StatDraft(*made->draft, &shown_);
}

HRESULT CompoundFile::NextInFile(OpenElement& storage, const ElementName* after, Cursor* cursor,
                                 const DirEntry** entry)
{
    const std::uint64_t version = volume_->directory.Version();
    EntryId id = kNoEntry;
    if (!storage.surveyed)
        QV_TRY(Survey(storage));
    if (storage.searchable && storage.listedAt != version) {
        QV_TRY(volume_->tree.Next(storage.id, after, &id, &shown_));
        *entry = &shown_;
    } else {
        if (cursor->version != version)
            QV_TRY(FindInList(storage, after, true, &cursor->next));
        cursor->version = version;
        // What the list of a damaged storage names may have been freed through another one since.
        do {
            if (cursor->next == storage.list.size())
                return storage.sound ? STG_E_NOMOREFILES : STG_E_DOCFILECORRUPT;
            id = storage.list[cursor->next++];
            QV_TRY(volume_->directory.Peek(id, entry));
            storage.sound = storage.sound && (*entry)->IsElement();
        } while (!(*entry)->IsElement());
    }
    told_.storage = storage.id;
    told_.id = id;
    told_.version = version;
    return S_OK;
}

HRESULT CompoundFile::Stat(const OpenElement& element, DirEntry* entry)
{
    return element.draft ? StatDraft(*element.draft, entry) : volume_->directory.Read(element.id, entry);
}

HRESULT CompoundFile::ReadStream(OpenElement& stream, std::uint64_t offset, void* to, std::size_t count,
                                 std::size_t* read)
{
    if (!stream.HoldsBytes())
        return stream.body.Read(offset, to, count, read);
    const Draft& draft = *stream.draft;
    *read = offset < draft.size ? std::min<std::size_t>(count, draft.size - offset) : 0;
    std::copy_n(draft.bytes + (*read > 0 ? offset : 0), *read, static_cast<BYTE*>(to));
    return S_OK;
}

HRESULT CompoundFile::WriteStream(OpenElement& stream, std::uint64_t offset, const void* from,
                                  std::size_t count, std::size_t* written)
{
    *written = 0;
    if (count > 0 && (offset > volume_->MaxStream() || count > volume_->MaxStream() - offset))
        return STG_E_MEDIUMFULL;
    if (count > 0 && stream.HoldsBytes()) {
        QV_TRY(MakeRoom(stream, offset + count));
        if (stream.HoldsBytes()) {
            drafts_.Write(*stream.draft, static_cast<std::size_t>(offset), from, count);
            *written = count;
            return S_OK;
        }
    }
    return count > 0 ? Operate([&] { return stream.body.Write(offset, from, count, written); }) : S_OK;
}

HRESULT CompoundFile::SetStreamSize(OpenElement& stream, std::uint64_t size)
{
    if (size > volume_->MaxStream())
        return STG_E_MEDIUMFULL;
    if (stream.HoldsBytes()) {
        QV_TRY(MakeRoom(stream, size));
        if (stream.HoldsBytes()) {
            drafts_.SetSize(*stream.draft, static_cast<std::size_t>(size));
            return S_OK;
        }
    }
    const bool shrinks = size < stream.body.Size();
    const HRESULT hr = Operate([&] { return stream.body.SetSize(size); });
    if (SUCCEEDED(hr) && shrinks)
        TrimIfWorth();
    return hr;
}

}  // namespace quorvane::cfb
