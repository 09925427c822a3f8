// platform/cfb/entry_owners.h: which storage an entry was met in, which storages were changed, and which
// streams hold their sectors.
#ifndef QUORVANE_PLATFORM_CFB_ENTRY_OWNERS_H_
#define QUORVANE_PLATFORM_CFB_ENTRY_OWNERS_H_

#include <algorithm>
#include <vector>

#include "platform/cfb/format.h"
#include "platform/collections/bits.h"

namespace quorvane::cfb {

// Notices an entry that hangs in the trees of two storages, which no sound file has: by such links a small
// file can pretend to have more elements than anyone can walk through. Storages keep their identity when
// their entries get other numbers. Throws std::bad_alloc.
class EntryOwners {
public:
    // Entries that were met in a storage. False when some of them were met in another one before, which
    // *entries has no more.
    bool Claim(EntryId storage, std::vector<EntryId>* entries)
    {
        Reach(storage);
        Mark& owner = marks_[storage];
        if (owner.self == 0)
            owner.self = ++last_;
        const std::uint32_t self = owner.self;
        const auto isAnothers = [&](EntryId entry) {
            Reach(entry);
            std::uint32_t& mark = marks_[entry].owner;
            if (mark == 0)
                mark = self;
            return mark != self;
        };
        const auto own = std::remove_if(entries->begin(), entries->end(), isAnothers);
        const bool all = own == entries->end();
        entries->erase(own, entries->end());
        return all;
    }

    // Whether `entry` was met in another storage.
    bool BelongsToAnother(EntryId entry, EntryId storage) const noexcept
    {
        const std::uint32_t owner = entry < marks_.size() ? marks_[entry].owner : 0;
        return owner != 0 && (storage >= marks_.size() || marks_[storage].self != owner);
    }

    // Of a storage: whether its tree was written since the file was opened.
    bool IsChanged(EntryId storage) const noexcept { return changed_.Has(storage); }
    void SetChanged(EntryId storage) { changed_.Set(storage); }

    // Of a stream: whether the chain that its entry names is claimed (SectorClaims) for it.
    bool HoldsChain(EntryId entry) const noexcept { return holding_.Has(entry); }
    void SetHoldsChain(EntryId entry, bool holds) { holding_.Put(entry, holds); }

    void Moved(EntryId from, EntryId to)
    {
        for (Bits* const bits : {&holding_, &changed_}) {
            bits->Put(to, bits->Has(from));
            bits->Unset(from);
        }
        if (from >= marks_.size())
            return;
        Reach(to);
        marks_[to] = marks_[from];
        marks_[from] = Mark{};
    }

    void Freed(EntryId entry) noexcept
    {
        if (entry < marks_.size())
            marks_[entry] = Mark{};
        holding_.Unset(entry);
        changed_.Unset(entry);
    }

    // Forgets which storages entries were met in.
    void DropOwners() noexcept { marks_ = {}; }
    void Clear() noexcept
    {
        marks_.clear();
        holding_.Clear();
        changed_.Clear();
    }

private:
    struct Mark {
        std::uint32_t self = 0;
        std::uint32_t owner = 0;
    };

    void Reach(EntryId entry)
    {
        if (entry >= marks_.size())
            marks_.resize(std::size_t{entry} + 1);
    }

    std::vector<Mark> marks_;
    Bits holding_;
    Bits changed_;
    std::uint32_t last_ = 0;
};

}  // namespace quorvane::cfb

#endif  // QUORVANE_PLATFORM_CFB_ENTRY_OWNERS_H_
