// platform/cfb/draft.h: an element that is in no file yet.
#ifndef QUORVANE_PLATFORM_CFB_DRAFT_H_
#define QUORVANE_PLATFORM_CFB_DRAFT_H_

#include "platform/cfb/dir_entry.h"
#include "platform/collections/arena.h"

namespace quorvane::cfb {

struct OpenElement;

// An element of a new storage, by its name: a draft, or one that was placed: it has an entry in the file,
// which is whole but for its links and its name, and all below it hangs there.
struct DraftChild {
    bool IsPlaced() const noexcept { return id != kNoEntry; }
    // Whether it, or something below it, takes room in the file.
    bool IsInFile() const noexcept;
    ElementName Name() const noexcept;
    // Compares `name` with this one's.
    int Compare(const ElementName& name) const noexcept;
    // Of a placed one: the bytes of its name, which lie behind it.
    std::size_t NameBytes() const noexcept { return std::size_t{length} << wide; }
    const BYTE* StoredName() const noexcept { return reinterpret_cast<const BYTE*>(this + 1); }

    EntryId id = kNoEntry;
    std::uint32_t rank : 26 = 0;
    std::uint32_t length : 5 = 0;  // of a placed one's name
    std::uint32_t wide : 1 = 0;    // whether its units take two bytes: else each fits into one
    // Of the tree of its siblings; `left` of the list of those that were dropped.
    DraftChild* left = nullptr;
    DraftChild* right = nullptr;
};

// The elements of a new storage, by their names: a tree that is balanced by ranks drawn by lot, of which none
// is greater than the one above.
class DraftChildren {
public:
    std::size_t Count() const noexcept { return count_; }
    // Whether a name comes behind all there are.
    bool IsBehindAll(const ElementName& name) const noexcept { return !last_ || last_->Compare(name) > 0; }
    DraftChild* Find(const ElementName& name) const noexcept;
    // The first one behind a name, or of all.
    DraftChild* After(const ElementName* name) const noexcept;
    // There is none of that name. behindAll: see above.
    void Add(DraftChild& child, const ElementName& name, bool behindAll) noexcept;
    void Remove(DraftChild& child, const ElementName& name) noexcept;
    // Another one of the same name takes a child's place.
    void Replace(DraftChild& child, DraftChild& by, const ElementName& name) noexcept;
    // Calls visit(DraftChild&) for each, in order.
    template <class Visit>
    void Each(const Visit& visit) const
    {
        EachBelow(top_, visit);
    }

private:
    template <class Visit>
    static void EachBelow(DraftChild* child, const Visit& visit)
    {
        while (child) {
            DraftChild* const right = child->right;
            EachBelow(child->left, visit);
            visit(*child);
            child = right;
        }
    }
    DraftChild** LinkTo(const DraftChild& child, const ElementName& name) noexcept;
    void FindLast() noexcept;

    std::size_t count_ = 0;
    DraftChild* top_ = nullptr;
    DraftChild* last_ = nullptr;  // most come in the order of names
};

// A new storage of a storage that others see, or what grows below such a one: until it lands, nobody can
// reach it but by the objects that are open on it. Its content lies in memory, or in sectors; in the file
// nothing points at that.
struct Draft : DraftChild {
    Draft(EntryType type, const ElementName& name) noexcept : entry(type, name) {}

    // Whether the content of a stream is in memory.
    bool HoldsBytes() const noexcept { return !inSectors; }
    // Among the drafts of its storage.
    void LinkInto(Draft& storage) noexcept;
    void UnlinkFrom(Draft& storage) noexcept;

    // But for links, and for start and size of a stream that is in memory.
    DirEntry entry;
    OpenElement* open = nullptr;  // elements below it are open only as long as it is
    BYTE* bytes = nullptr;
    std::uint32_t size = 0;
    std::uint32_t capacity = 0;
    bool inSectors = false;
    EntryId place = kNoEntry;  // the entry that it gets, while it is put into the file
    DraftChildren children;
    Draft* firstDraft = nullptr;  // of those of the children that have no entry in the file
    Draft* next = nullptr;        // of its siblings that have none
    Draft* previous = nullptr;
};

// Makes drafts and has their memory. One call at a time. Throws std::bad_alloc.
class Drafts {
public:
    Draft* Make(EntryType type, const ElementName& name);
    // What takes a draft's place among its siblings when it is placed. The caller sets its number.
    DraftChild* MakePlaced(const ElementName& name);
    // With all below it.
    void Discard(DraftChild& child) noexcept;
    // The content of a stream: gives it room, and changes its size; what it grows by is zeros.
    void Reserve(Draft& stream, std::size_t capacity);
    void SetSize(Draft& stream, std::size_t size);
    void Write(Draft& stream, std::size_t offset, const void* from, std::size_t count);
    void DropBytes(Draft& stream) noexcept;

    // What they take of memory, but for those that were placed.
    std::size_t Held() const noexcept { return memory_.Held(); }

private:
    std::uint32_t DrawRank() noexcept;

    Arena memory_;
    Arena placed_;  // which stay longer
    std::uint32_t lot_ = 0x9E3779B9;
};

}  // namespace quorvane::cfb

#endif  // QUORVANE_PLATFORM_CFB_DRAFT_H_
