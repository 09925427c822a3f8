// platform/collections/free_slots.h: which slots of a table are free, found out bit by bit.
#ifndef QUORVANE_PLATFORM_COLLECTIONS_FREE_SLOTS_H_
#define QUORVANE_PLATFORM_COLLECTIONS_FREE_SLOTS_H_

#include <algorithm>
#include <iterator>
#include <vector>

#include "platform/collections/free_map.h"
#include "platform/com/result.h"

namespace quorvane {

// Knows the free slots of a table (sectors of a FAT, entries of a directory) without reading all of it when
// the file is opened: what lies before `unseen` hasn't been looked at. Each request that finds no known
// free slot looks at a few more, from the table's end downwards, so that its cost has a bound and a long
// session comes to know them all.
//
// Slots that an operation frees are held back until it has been committed, because whoever is killed before
// that still finds them in use. One call at a time. Throws std::bad_alloc.
class FreeSlots {
public:
    static constexpr std::uint32_t kNone = FreeMap::kNone;

    // step: how many slots one request may look at.
    explicit FreeSlots(std::uint32_t step) noexcept : step_(step) {}

    // Forgets everything: none of `total` slots has been seen.
    void Reset(std::uint32_t total) noexcept
    {
        free_.Clear();
        held_.clear();
        taken_.clear();
        unseen_ = total;
    }

    // Takes the least free slot that is known. *slot is kNone when the caller has to enlarge the table.
    // table.FindFree(begin, end, map) adds the free ones of that range to the map.
    template <class Table>
    [[nodiscard]] HRESULT Take(Table& table, std::uint32_t* slot)
    {
        if (free_.Count() == 0)
            QV_TRY(Look(table, step_));
        *slot = TakeWithin(0, kNone);
        return S_OK;
    }

    // Takes a known free slot of a range; kNone if there is none.
    std::uint32_t TakeWithin(std::uint32_t begin, std::uint32_t end)
    {
        const std::uint32_t slot = free_.FirstFrom(begin);
        if (slot >= end)
            return kNone;
        if (slot < unseen_)
            taken_.push_back(slot);
        free_.Remove(slot);
        return slot;
    }

    // Takes `count` slots, lowest first, of which at least as many are known as free.
    void TakeMany(std::uint32_t count, std::vector<std::uint32_t>* slots)
    {
        const auto before = static_cast<std::ptrdiff_t>(slots->size());
        free_.TakeMany(count, slots);
        std::copy_if(slots->begin() + before, slots->end(), std::back_inserter(taken_),
                     [this](std::uint32_t slot) { return slot < unseen_; });
    }

    // Looks at up to `count` unseen slots. While freed slots are held back it looks at none, as they would
    // show as free already.
    template <class Table>
    [[nodiscard]] HRESULT Look(Table& table, std::uint32_t count)
    {
        const std::uint32_t begin = unseen_ - std::min(unseen_, count);
        if (begin == unseen_ || HasHeld())
            return S_OK;
        QV_TRY(table.FindFree(begin, unseen_, free_));
        unseen_ = begin;
        for (const std::uint32_t slot : taken_)
            free_.Remove(slot);
        return S_OK;
    }

    // Where the free slots begin that a table of `total` slots ends with. What is unseen is looked at as long
    // as nothing but free slots is found.
    template <class Table>
    [[nodiscard]] HRESULT FindTail(Table& table, std::uint32_t total, std::uint32_t* begin)
    {
        unseen_ = std::min(unseen_, total);
        *begin = total - free_.RunBefore(total);
        while (unseen_ > 0 && *begin <= unseen_ && !HasHeld()) {
            QV_TRY(Look(table, step_));
            *begin -= free_.RunBefore(*begin);
        }
        return S_OK;
    }

    // Frees slots at once: they were never in use in the store.
    void GiveUnused(std::uint32_t slot) { free_.Add(slot); }
    void GiveUnused(std::uint32_t begin, std::uint32_t end) { free_.AddRun(begin, end); }
    // Frees a slot once the operation is committed.
    void Give(std::uint32_t slot) { Give(slot, slot + 1); }
    void Give(std::uint32_t begin, std::uint32_t end)
    {
        if (!held_.empty() && held_.back().end == begin)
            held_.back().end = end;
        else
            held_.push_back({begin, end});
    }
    bool HasHeld() const noexcept { return !held_.empty(); }

    void Committed()
    {
        for (const Run& run : held_)
            free_.AddRun(run.begin, run.end);
        held_.clear();
        taken_.clear();
    }

    // The table ends at `total` now; what it had behind that is no longer free.
    void Shrink(std::uint32_t total) noexcept
    {
        free_.RemoveFrom(total);
        unseen_ = std::min(unseen_, total);
    }

    std::uint32_t Known() const noexcept { return free_.Count(); }
    std::uint32_t FirstFrom(std::uint32_t from) const noexcept { return free_.FirstFrom(from); }

private:
    struct Run {
        std::uint32_t begin;
        std::uint32_t end;
    };

    std::uint32_t step_;
    std::uint32_t unseen_ = 0;
    FreeMap free_;
    std::vector<Run> held_;
    std::vector<std::uint32_t> taken_;  // by this operation, among the unseen ones
};

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_COLLECTIONS_FREE_SLOTS_H_
