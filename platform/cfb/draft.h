// platform/cfb/draft.h: an element that is in no file yet.
#ifndef QUORVANE_PLATFORM_CFB_DRAFT_H_
#define QUORVANE_PLATFORM_CFB_DRAFT_H_

#include <memory>
#include <set>
#include <vector>

#include "platform/cfb/dir_entry.h"

namespace quorvane::cfb {

struct OpenElement;

// A new storage of a storage that others see, or what grows below such a one: until it lands, nobody can
// reach it but by the objects that are open on it. Its content lies in memory, or in sectors, and it may have
// an entry already; in the file nothing points at any of that.
//
// Throws std::bad_alloc.
struct Draft {
    struct ByName {
        using is_transparent = void;
        bool operator()(const std::unique_ptr<Draft>& a, const std::unique_ptr<Draft>& b) const noexcept
        {
            return a->name.Compare(b->name) < 0;
        }
        bool operator()(const std::unique_ptr<Draft>& a, const ElementName& b) const noexcept
        {
            return a->name.Compare(b) < 0;
        }
        bool operator()(const ElementName& a, const std::unique_ptr<Draft>& b) const noexcept
        {
            return a.Compare(b->name) < 0;
        }
    };
    using Children = std::set<std::unique_ptr<Draft>, ByName>;

    // What one costs beside its content.
    static constexpr std::size_t kCost = 512;

    Draft(EntryType type, const ElementName& ofName) noexcept : name(ofName), entry(type, ofName) {}

    bool IsPlaced() const noexcept { return id != kNoEntry; }
    // Whether the content of a stream is in memory.
    bool HoldsBytes() const noexcept { return !IsPlaced() && !inSectors; }
    // Whether somebody has it open, or an element below it.
    bool IsInUse() const noexcept;
    // Whether it, or something below it, takes room in the file.
    bool IsInFile() const noexcept;
    // What it and all below it take of memory that landing gives back.
    std::size_t Weight() const noexcept;
    Draft* Find(const ElementName& child) const noexcept;
    // Where a child of that name is, or the first one behind it. Most come in the order of names.
    Children::iterator Seek(const ElementName& child) const noexcept;

    ElementName name;
    // But for links, and for start and size of a stream that is in memory.
    DirEntry entry;
    std::vector<BYTE> bytes;
    bool inSectors = false;
    // When it is placed: its entry in the file, which is whole but for its links and name, and to which all
    // below it hangs.
    EntryId id = kNoEntry;
    OpenElement* open = nullptr;
    Children children;
    std::vector<Draft*> unplaced;  // those of the children that have no entry in the file
    std::unique_ptr<Draft> nextDropped;
};

}  // namespace quorvane::cfb

#endif  // QUORVANE_PLATFORM_CFB_DRAFT_H_
