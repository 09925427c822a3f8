// platform/cfb/open_element.h: an element that somebody has open.
#ifndef QUORVANE_PLATFORM_CFB_OPEN_ELEMENT_H_
#define QUORVANE_PLATFORM_CFB_OPEN_ELEMENT_H_

#include <array>
#include <memory>
#include <utility>
#include <vector>

#include "platform/cfb/draft.h"
#include "platform/cfb/stream_body.h"

namespace quorvane::cfb {

// What is known of an open element. Elements form a tree as their storages do: when one is closed, all that
// were opened through it are reverted. The fields are the compound file's to change.
struct OpenElement {
    OpenElement(Arena& its, EntryId number, const DirEntry& entry, Volume& volume) noexcept
        : memory(its), id(number), type(entry.Type()), body(volume)
    {
        entry.CopyName(&name);
    }
    OpenElement(const OpenElement&) = delete;
    OpenElement& operator=(const OpenElement&) = delete;

    Arena& memory;       // that it lies in
    unsigned holds = 1;  // of OpenElementPtr
    EntryId id;
    EntryType type;
    ElementName name;
    bool reverted = false;
    unsigned depth = 0;  // of storages above it

    OpenElement* parent = nullptr;
    OpenElement* firstChild = nullptr;
    OpenElement* nextSibling = nullptr;
    OpenElement* previousSibling = nullptr;
    OpenElement* nextInBucket = nullptr;
    unsigned users = 1;  // objects on the element

    // When it is a draft: which one. Its `id` is none then. `top`: the same, of a draft whose parent is none,
    // which goes with its element.
    Draft* draft = nullptr;
    Draft* top = nullptr;

    // Of a storage: its tree was walked through; all links led to sound entries, each one once; it is one
    // that can be searched. `list`: what the walk found, sorted by name. It takes the place of a tree that
    // can't be searched; else it is of use as long as the directory has that version.
    bool surveyed = false;
    bool sound = true;
    bool searchable = true;
    std::vector<EntryId> list;
    std::uint64_t listedAt = 0;
    // Of a storage: its tree was looked at before a change.
    bool probed = false;

    // What is known of the storage's tree is of no use any more.
    void ForgetTree() noexcept
    {
        surveyed = false;
        probed = false;
        searchable = true;
        list.clear();
    }

    // Of a stream, but for the content that a draft has in memory.
    StreamBody body;
    bool HoldsBytes() const noexcept { return draft && draft->HoldsBytes(); }
    std::uint64_t Size() const noexcept { return HoldsBytes() ? draft->size : body.Size(); }
};

// A hold on an open element, which goes with its last one. Copied and let go under the file's lock, where
// there is one.
class OpenElementPtr {
public:
    OpenElementPtr() noexcept = default;
    OpenElementPtr(Arena& memory, EntryId id, const DirEntry& entry, Volume& volume)
        : element_(new (memory.Take(sizeof(OpenElement))) OpenElement(memory, id, entry, volume))
    {}
    OpenElementPtr(const OpenElementPtr& other) noexcept : element_(other.element_)
    {
        if (element_)
            ++element_->holds;
    }
    OpenElementPtr(OpenElementPtr&& other) noexcept : element_(std::exchange(other.element_, nullptr)) {}
    OpenElementPtr& operator=(OpenElementPtr other) noexcept
    {
        std::swap(element_, other.element_);
        return *this;
    }
    ~OpenElementPtr()
    {
        if (element_ && --element_->holds == 0)
            Destroy();
    }

    OpenElement* get() const noexcept { return element_; }
    OpenElement& operator*() const noexcept { return *element_; }
    OpenElement* operator->() const noexcept { return element_; }

private:
    void Destroy() noexcept;

    OpenElement* element_ = nullptr;
};

// The open elements of one file by the numbers of their entries.
class OpenElements {
public:
    bool IsOpen(EntryId id) const noexcept { return Find(id) != nullptr; }
    void Add(OpenElement& element, OpenElement* parent) noexcept;
    // The element, which was a draft, is one of the file.
    void Landed(OpenElement& element, EntryId id) noexcept;
    // Takes one of the drafts that nobody can reach any more; null if there is none.
    DraftChild* TakeDropped() noexcept
    {
        return dropped_ ? std::exchange(dropped_, dropped_->left) : nullptr;
    }
    void Drop(DraftChild& draft) noexcept { draft.left = std::exchange(dropped_, &draft); }
    // Takes an element and all below it out and marks them as reverted.
    void Revert(OpenElement& element) noexcept;
    // The same for whoever has that entry open.
    void RevertEntry(EntryId id) noexcept;
    void Moved(EntryId from, EntryId to) noexcept;
    // Forgets the numbers, and takes them anew from the elements below `root`.
    void Renumber(OpenElement& root) noexcept;

private:
    static constexpr std::size_t kBuckets = 1024;

    OpenElement*& BucketOf(EntryId id) noexcept { return buckets_[id % kBuckets]; }
    OpenElement* Find(EntryId id) const noexcept;
    void Put(OpenElement& element) noexcept;
    void Take(OpenElement& element) noexcept;
    static void Detach(OpenElement& element) noexcept;

    DraftChild* dropped_ = nullptr;
    std::array<OpenElement*, kBuckets> buckets_{};
};

}  // namespace quorvane::cfb

#endif  // QUORVANE_PLATFORM_CFB_OPEN_ELEMENT_H_
