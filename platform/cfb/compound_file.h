// platform/cfb/compound_file.h: the elements of a compound file, without COM.
#ifndef QUORVANE_PLATFORM_CFB_COMPOUND_FILE_H_
#define QUORVANE_PLATFORM_CFB_COMPOUND_FILE_H_

#include <optional>
#include <utility>

#include "platform/cfb/open_element.h"

namespace quorvane::cfb {

// Opens, makes, changes and destroys elements. Every operation is in the byte store when it returns S_OK, but
// for what is made in a new storage: that lands as a whole, with the storage itself, when it is closed or
// committed, by one write, which also replaces a storage of its name. Until then it is seen by the users of
// this object alone. When one fails on its way, the store holds a state from before it, from after it, or
// with a part of a long write; Ready takes that anew.
//
// An element that is passed in isn't reverted. The caller sees to it that one call is made at a time,
// and to modes. Throws std::bad_alloc, after which Failed is to be called.
class CompoundFile {
public:
    // Storages inside of each other, the root not counted.
    static constexpr unsigned kMaxDepth = 256;

    // memory: for open elements; outlives them.
    CompoundFile(ByteStore& store, Arena& memory) noexcept : store_(store), memory_(memory) {}

    // One of these first.
    [[nodiscard]] HRESULT Format(Layout layout);
    [[nodiscard]] HRESULT Open();
    // The last call: what was learnt of the file is kept for whoever opens it next in this process.
    void Leave() noexcept;
    // The root as an element: once, after Format or Open.
    [[nodiscard]] HRESULT OpenRoot(OpenElementPtr* root);
    // Gives free space at the end back. To be called before the last use, when something was written.
    void Tidy();
    // To be called before every operation: takes the file anew from the store when the last one failed.
    // Elements that are gone are reverted when it returns.
    [[nodiscard]] HRESULT Ready() { return failed_ ? TakeAnew() : S_OK; }

    // STG_E_FILENOTFOUND   no element of that name and type.
    // STG_E_ACCESSDENIED   the element is open.
    [[nodiscard]] HRESULT OpenChild(OpenElement& storage, const ElementName& name, EntryType type,
                                    OpenElementPtr* child);
    // Makes an empty element. replace: an element of that name is destroyed with all its content; else
    // STG_E_FILEALREADYEXISTS.
    [[nodiscard]] HRESULT CreateChild(OpenElement& storage, const ElementName& name, EntryType type,
                                      bool replace, OpenElementPtr* child);
    // The element isn't used any more: new storages among it and those that were opened through it land, and
    // then they are reverted.
    void Close(OpenElement& element) noexcept;
    // Lets new storages land: the element, and those that were opened through it. What lies in one that
    // hasn't landed waits for that one. Of the root: gives free space at the end back.
    [[nodiscard]] HRESULT Commit(OpenElement& element);
    // A new storage that hasn't landed is gone, with all that was opened through it; one that it was to
    // replace stays. Nothing happens to any other element.
    void Revert(OpenElement& element) noexcept;
    // Why a storage couldn't land when it was closed, once; else S_OK.
    HRESULT TakeLandingFailure() noexcept { return std::exchange(landing_, S_OK); }

    // STG_E_FILENOTFOUND. Whoever has the element or one below it open finds it reverted. Where the medium is
    // full, at least an element with none before it can be destroyed.
    [[nodiscard]] HRESULT Destroy(OpenElement& storage, const ElementName& name);
    // STG_E_FILENOTFOUND; STG_E_FILEALREADYEXISTS for the new name; STG_E_ACCESSDENIED when it is open.
    [[nodiscard]] HRESULT Rename(OpenElement& storage, const ElementName& from, const ElementName& to);

    // Where an enumeration stands in the list of its storage. Is of use as long as no entry changes.
    struct Cursor {
        std::uint64_t version = 0;  // of the directory
        std::size_t next = 0;
    };
    // The first element, or the next one after a name. STG_E_NOMOREFILES; STG_E_DOCFILECORRUPT instead of
    // that when the storage is damaged and some of its elements can't be reached.
    // cursor: of the enumeration.
    // *entry: of use until the next call.
    [[nodiscard]] HRESULT Next(OpenElement& storage, const ElementName* after, Cursor* cursor,
                               const DirEntry** entry);
    // The element's entry. Size(version) of it takes FormatVersion.
    [[nodiscard]] HRESULT Stat(const OpenElement& element, DirEntry* entry);
    unsigned FormatVersion() const noexcept { return volume_->header.version; }
    // Changes an element's class, state bits or times: change(DirEntry&).
    template <class Change>
    [[nodiscard]] HRESULT ChangeElement(OpenElement& element, const Change& change)
    {
        if (!element.draft)
            return ChangeEntry(element.id, change);
        change(element.draft->entry);
        return S_OK;
    }
    template <class Change>
    [[nodiscard]] HRESULT ChangeEntry(EntryId id, const Change& change)
    {
        return Operate([&]() -> HRESULT {
            DirEntry entry;
            if (const HRESULT hr = volume_->directory.Read(id, &entry); FAILED(hr))
                return hr;
            change(entry);
            const HRESULT hr = volume_->directory.Write(id, entry);
            return FAILED(hr) ? hr : volume_->Commit();
        });
    }
    // The same for an element of a storage. STG_E_FILENOTFOUND.
    template <class Change>
    [[nodiscard]] HRESULT ChangeChild(OpenElement& storage, const ElementName& name, const Change& change)
    {
        const OpenElement* const made = FindNew(storage, name);
        DraftChild* child = made ? made->draft : nullptr;
        if (storage.draft)
            child = storage.draft->children.Find(name);
        if (child && !child->IsPlaced()) {
            change(static_cast<Draft*>(child)->entry);
            return S_OK;
        }
        EntryId id = child ? child->id : kNoEntry;
        if (storage.draft)
            return child ? ChangeEntry(id, change) : STG_E_FILENOTFOUND;
        const DirEntry* entry = nullptr;
        const HRESULT hr = Lookup(storage, name, true, &id, &entry);
        return FAILED(hr) ? hr : ChangeEntry(id, change);
    }

    [[nodiscard]] HRESULT ReadStream(OpenElement& stream, std::uint64_t offset, void* to, std::size_t count,
                                     std::size_t* read);
    [[nodiscard]] HRESULT WriteStream(OpenElement& stream, std::uint64_t offset, const void* from,
                                      std::size_t count, std::size_t* written);
    [[nodiscard]] HRESULT SetStreamSize(OpenElement& stream, std::uint64_t size);

    // An operation ended in the middle: what is in memory can't be relied on.
    void Failed() noexcept { failed_ = true; }

private:
    // Runs a change. Its failure leaves the volume to be taken anew; one that comes before anything was
    // changed does so too, which costs time and nothing else.
    template <class Operation>
    HRESULT Operate(const Operation& operation)
    {
        failed_ = true;
        const HRESULT hr = operation();
        failed_ = FAILED(hr);
        return hr;
    }
    [[nodiscard]] HRESULT TakeAnew();
    [[nodiscard]] HRESULT OpenEntry(OpenElement& storage, EntryId id, const DirEntry& entry,
                                    OpenElementPtr* child);
    [[nodiscard]] HRESULT Refind(OpenElement& element);
    void TrimIfWorth();

    [[nodiscard]] HRESULT NextInFile(OpenElement& storage, const ElementName* after, Cursor* cursor,
                                     const DirEntry** entry);
    [[nodiscard]] HRESULT Lookup(OpenElement& storage, const ElementName& name, bool survey, EntryId* id,
                                 const DirEntry** entry);
    [[nodiscard]] HRESULT FindInList(const OpenElement& storage, const ElementName* name, bool behind,
                                     std::size_t* place);
    [[nodiscard]] HRESULT Survey(OpenElement& storage, bool distrusted = false);
    [[nodiscard]] HRESULT PutRight(OpenElement& storage);
    [[nodiscard]] HRESULT PutRightIfNeeded(OpenElement& storage);
    [[nodiscard]] HRESULT FindForEdit(OpenElement& storage, const ElementName& name, bool* exists);
    [[nodiscard]] HRESULT BeginEdit(OpenElement& storage, const ElementName& name, bool wanted, bool* exists);
    // Runs a change of a storage's tree; when it fails because the tree isn't one that can be balanced, once
    // more on the tree put right.
    template <class Change>
    [[nodiscard]] HRESULT ChangeTree(OpenElement& storage, const Change& change)
    {
        HRESULT hr = Operate(change);
        if (hr != kTreeTooDeep)
            return hr;
        hr = TakeAnewAndPutRight(storage);
        return FAILED(hr) ? hr : Operate(change);
    }
    [[nodiscard]] HRESULT DestroyInTree(OpenElement& storage, const ElementName& name, bool inPlace);
    [[nodiscard]] HRESULT TakeAnewAndPutRight(OpenElement& storage);
    [[nodiscard]] HRESULT ApplyEdit();
    [[nodiscard]] HRESULT Hang(const DirEntry& entry, EntryId* id);
    void NoteMoves(const std::vector<TreeEdit::Move>& moves);
    bool IsAnothers(EntryId id, EntryId storage) const noexcept;
    [[nodiscard]] HRESULT FreeElement(EntryId id);
    [[nodiscard]] HRESULT FreeContent(EntryId id, const DirEntry& entry);
    // Of drafts: see compound_drafts.cpp.
    static FILETIME Now() noexcept;
    OpenElement* FindNew(const OpenElement& storage, const ElementName& name) const noexcept;
    OpenElement* NextNew(const OpenElement& storage, const ElementName* after) const noexcept;
    Draft* MakeDraft(EntryType type, const ElementName& name);
    OpenElementPtr MakeOpenDraft(Draft& draft, OpenElement& parent);
    bool IsOpen(const DraftChild& child) const noexcept;
    [[nodiscard]] HRESULT BeginDraft(OpenElement& storage, const ElementName& name, bool replace,
                                     OpenElementPtr* child);
    [[nodiscard]] HRESULT CreateInDraft(OpenElement& storage, const ElementName& name, EntryType type,
                                        bool replace, OpenElementPtr* child);
    [[nodiscard]] HRESULT OpenInDraft(OpenElement& storage, const ElementName& name, EntryType type,
                                      OpenElementPtr* child);
    void DestroyInDraft(OpenElement& storage, DraftChild& child, const ElementName& name);
    [[nodiscard]] HRESULT RenameInDraft(OpenElement& storage, const ElementName& from, const ElementName& to);
    [[nodiscard]] HRESULT StatDraft(const DraftChild& child, DirEntry* entry);
    [[nodiscard]] HRESULT NextInDraft(const Draft& storage, const ElementName* after, DirEntry* entry);
    [[nodiscard]] HRESULT MakeRoom(OpenElement& stream, std::uint64_t size);
    [[nodiscard]] HRESULT MoveToFile(OpenElement& stream);
    [[nodiscard]] HRESULT PlaceClosed(const OpenElement& element);
    template <class Visit>
    static void CollectClosed(Draft& storage, const Visit& visit);
    [[nodiscard]] HRESULT Land(OpenElement& element);
    bool HasLanded(OpenElement& storage, const ElementName& name, EntryId id);
    static OpenElement* FindUnlanded(OpenElement& element) noexcept;
    [[nodiscard]] HRESULT LandAll(OpenElement& element);
    void FreeDropped() noexcept;
    [[nodiscard]] HRESULT FreeInFile(DraftChild& child);

    OpenElementPtr MakeOpen(EntryId id, const DirEntry& entry, OpenElement* parent);

    ByteStore& store_;
    Arena& memory_;
    std::unique_ptr<Volume> volume_;
    std::optional<ByteStore::Identity> known_;  // of a volume that was kept, as it was taken
    OpenElements open_;
    OpenElement* root_ = nullptr;

    // The element that Next told last: it is likely to be opened. `version` is 0 when it is in no file.
    struct {
        EntryId storage = kNoEntry;
        EntryId id = kNoEntry;
        std::uint64_t version = 0;  // of the directory
    } told_;
    DirEntry shown_;  // what Next shows that is no entry of the file
    bool failed_ = false;

    // What drafts may take of memory: the content of one stream, and all together before what is closed of
    // them is put into the file.
    static constexpr std::size_t kMostOfOne = std::size_t{1} << 20;
    static constexpr std::size_t kMostHeld = std::size_t{1} << 20;
    Drafts drafts_;
    std::size_t roomAt_ = kMostHeld;
    HRESULT landing_ = S_OK;
};

}  // namespace quorvane::cfb

#endif  // QUORVANE_PLATFORM_CFB_COMPOUND_FILE_H_
