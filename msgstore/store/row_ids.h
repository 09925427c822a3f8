// msgstore/store/row_ids.h: a long list of numbers, each once, in an order that somebody else decides.
//
// The list is cut into blocks of a bounded size, whose sizes stand in a tree of sums: what happens at a place
// costs the logarithm of the list's length. Where a number stands is known by a map that is made when it's
// first asked for.
#ifndef QUORVANE_MSGSTORE_STORE_ROW_IDS_H_
#define QUORVANE_MSGSTORE_STORE_ROW_IDS_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

namespace quorvane {

// Value semantics but for copies; no lock. Members that add may throw std::bad_alloc; the list is then as it
// was.
class RowIds {
public:
    RowIds() noexcept = default;
    explicit RowIds(const std::vector<std::int64_t>& ids);

    std::size_t size() const noexcept { return size_; }
    std::int64_t At(std::size_t index) const noexcept;
    // Where a number stands; makes the map.
    std::optional<std::size_t> IndexOf(std::int64_t id);

    void Insert(std::size_t index, std::int64_t id);
    void Erase(std::size_t index);

private:
    struct Block {
        std::vector<std::int64_t> ids;
        std::size_t ordinal = 0;
    };
    struct Place {
        std::size_t block = 0;
        std::size_t offset = 0;
    };

    Place Find(std::size_t index) const noexcept;
    std::size_t CountBefore(std::size_t block) const noexcept;
    void Add(std::size_t block, std::ptrdiff_t difference) noexcept;
    void MakeSums();
    void Split(std::size_t block);

    std::vector<std::unique_ptr<Block>> blocks_;
    std::vector<std::size_t> sums_;  // a Fenwick tree over the blocks' sizes
    std::size_t size_ = 0;
    bool hasMap_ = false;
    std::unordered_map<std::int64_t, Block*> map_;
};

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_STORE_ROW_IDS_H_
