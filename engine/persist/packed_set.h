// persist/packed_set.h: which of very many texts were there.
#ifndef QUORVANE_ENGINE_PERSIST_PACKED_SET_H_
#define QUORVANE_ENGINE_PERSIST_PACKED_SET_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace quorvane {

// A set of texts that takes some ten bytes for each beyond its own. For one thread at a time. Add throws
// std::bad_alloc, also for more than 4 GB of texts; the set is then as it was.
class PackedSet {
public:
    void Add(std::string_view text);
    bool Has(std::string_view text) const noexcept;
    std::size_t Count() const noexcept { return count_; }

private:
    // Where a text stands in `slots_`, or would; there is a free slot.
    std::size_t Find(const std::vector<std::uint32_t>& slots, std::string_view text) const noexcept;
    std::string_view TextAt(std::uint32_t place) const noexcept;
    void Grow();

    std::string bytes_;                 // each text behind its size, in four bytes
    std::vector<std::uint32_t> slots_;  // a text's place in `bytes_`, counted from 1; 0 is free
    std::size_t count_ = 0;
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_PERSIST_PACKED_SET_H_
