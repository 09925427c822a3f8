#include "engine/persist/packed_set.h"

#include <functional>
#include <limits>
#include <new>

#include "engine/persist/hash_text.h"

namespace quorvane {
namespace {

constexpr std::size_t kFewSlots = 64;  // a power of two, as their number always is
constexpr std::size_t kSizeBytes = 4;

}  // namespace

std::string_view PackedSet::TextAt(std::uint32_t place) const noexcept
{
    const char* const at = bytes_.data() + place - 1;
    return {at + kSizeBytes, ReadLittleEndian32(at)};
}

std::size_t PackedSet::Find(const std::vector<std::uint32_t>& slots, std::string_view text) const noexcept
{
    std::size_t slot = std::hash<std::string_view>()(text) & (slots.size() - 1);
    while (slots[slot] != 0 && TextAt(slots[slot]) != text)
        slot = (slot + 1) & (slots.size() - 1);
    return slot;
}

bool PackedSet::Has(std::string_view text) const noexcept
{
    return !slots_.empty() && slots_[Find(slots_, text)] != 0;
}

void PackedSet::Add(std::string_view text)
{
    // A third stays free, or looking for one of them would take long.
    if (3 * count_ >= 2 * slots_.size())
        Grow();
    const std::size_t slot = Find(slots_, text);
    if (slots_[slot] != 0)
        return;
    const std::size_t start = bytes_.size();
    if (text.size() + kSizeBytes >= std::numeric_limits<std::uint32_t>::max() - start)
        throw std::bad_alloc();
    try {
        AppendLittleEndian32(bytes_, static_cast<std::uint32_t>(text.size()));
        bytes_.append(text);
    } catch (...) {
        bytes_.resize(start);
        throw;
    }
    slots_[slot] = static_cast<std::uint32_t>(start + 1);
    ++count_;
}

void PackedSet::Grow()
{
    std::vector<std::uint32_t> slots(slots_.empty() ? kFewSlots : 2 * slots_.size());
    for (const std::uint32_t place : slots_)
        if (place != 0)
            slots[Find(slots, TextAt(place))] = place;
    slots_ = std::move(slots);
}

}  // namespace quorvane
