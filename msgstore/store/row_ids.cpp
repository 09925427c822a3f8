#include "msgstore/store/row_ids.h"

#include <algorithm>
#include <bit>

namespace quorvane {
namespace {

constexpr std::size_t kFullBlock = 1024;
// Blocks of a new list have room for a while.
constexpr std::size_t kNewBlock = 768;

}  // namespace

RowIds::RowIds(const std::vector<std::int64_t>& ids) : size_(ids.size())
{
    for (std::size_t at = 0; at < ids.size(); at += kNewBlock) {
        auto block = std::make_unique<Block>();
        const auto first = ids.begin() + static_cast<std::ptrdiff_t>(at);
        block->ids.assign(first, first + static_cast<std::ptrdiff_t>(std::min(kNewBlock, ids.size() - at)));
        blocks_.push_back(std::move(block));
    }
    MakeSums();
}

void RowIds::MakeSums()
{
    sums_.assign(blocks_.size() + 1, 0);
    for (std::size_t i = 0; i < blocks_.size(); ++i) {
        blocks_[i]->ordinal = i;
        Add(i, static_cast<std::ptrdiff_t>(blocks_[i]->ids.size()));
    }
}

void RowIds::Add(std::size_t block, std::ptrdiff_t difference) noexcept
{
    for (std::size_t i = block + 1; i < sums_.size(); i += i & (~i + 1))
        sums_[i] += static_cast<std::size_t>(difference);
}

std::size_t RowIds::CountBefore(std::size_t block) const noexcept
{
    std::size_t count = 0;
    for (std::size_t i = block; i > 0; i &= i - 1)
        count += sums_[i];
    return count;
}

// The place of an index below the size; that of the size is behind the last number.
RowIds::Place RowIds::Find(std::size_t index) const noexcept
{
    std::size_t block = 0;
    for (std::size_t step = std::bit_floor(sums_.size()); step > 0; step /= 2) {
        if (block + step < sums_.size() && sums_[block + step] <= index) {
            block += step;
            index -= sums_[block];
        }
    }
    if (block < blocks_.size())
        return {block, index};
    return {block - 1, blocks_.back()->ids.size()};
}

std::int64_t RowIds::At(std::size_t index) const noexcept
{
    const Place place = Find(index);
    return blocks_[place.block]->ids[place.offset];
}

std::optional<std::size_t> RowIds::IndexOf(std::int64_t id)
{
    if (!hasMap_) {
        map_.reserve(size_);
        for (const auto& block : blocks_) {
            for (const std::int64_t known : block->ids)
                map_[known] = block.get();
        }
        hasMap_ = true;
    }
    const auto found = map_.find(id);
    if (found == map_.end())
        return std::nullopt;
    const Block& block = *found->second;
    const auto at = std::find(block.ids.begin(), block.ids.end(), id);
    return CountBefore(block.ordinal) + static_cast<std::size_t>(at - block.ids.begin());
}

void RowIds::Split(std::size_t block)
{
    Block& full = *blocks_[block];
    auto half = std::make_unique<Block>();
    half->ids.reserve(kFullBlock);
    half->ids.assign(full.ids.begin() + kFullBlock / 2, full.ids.end());
    sums_.reserve(blocks_.size() + 2);
    Block* const made = half.get();
    blocks_.insert(blocks_.begin() + static_cast<std::ptrdiff_t>(block) + 1, std::move(half));
    full.ids.resize(kFullBlock / 2);
    if (hasMap_) {
        for (const std::int64_t id : made->ids)
            map_.find(id)->second = made;
    }
    MakeSums();
}

void RowIds::Insert(std::size_t index, std::int64_t id)
{
    if (blocks_.empty()) {
        blocks_.push_back(std::make_unique<Block>());
        MakeSums();
    }
    Place place = Find(index);
    if (blocks_[place.block]->ids.size() >= kFullBlock) {
        Split(place.block);
        place = Find(index);
    }
    Block& block = *blocks_[place.block];
    if (block.ids.size() == block.ids.capacity())
        block.ids.reserve(kFullBlock);
    if (hasMap_)
        map_[id] = &block;
    block.ids.insert(block.ids.begin() + static_cast<std::ptrdiff_t>(place.offset), id);
    Add(place.block, 1);
    ++size_;
}

void RowIds::Erase(std::size_t index)
{
    const Place place = Find(index);
    Block& block = *blocks_[place.block];
    if (hasMap_)
        map_.erase(block.ids[place.offset]);
    block.ids.erase(block.ids.begin() + static_cast<std::ptrdiff_t>(place.offset));
    Add(place.block, -1);
    --size_;
    if (!block.ids.empty())
        return;
    blocks_.erase(blocks_.begin() + static_cast<std::ptrdiff_t>(place.block));
    MakeSums();
}

}  // namespace quorvane
