#include "platform/cfb/chain.h"

#include <algorithm>
#include <utility>

#include "platform/cfb/result.h"

namespace quorvane::cfb {

void Chain::Reset(SectorId first) noexcept
{
    first_ = first;
    last_ = Place{};
    marks_.clear();
    strideShift_ = FirstShift();
    length_ = kFreeSector;
    appended_.clear();
}

void Chain::Append(SectorId length, std::vector<SectorId> sectors)
{
    if (length == 0) {
        Reset(sectors.front());
        return;
    }
    if (appended_.empty())
        length_ = length;
    if (!appended_.empty())
        appended_.insert(appended_.end(), sectors.begin(), sectors.end());
    else
        appended_ = std::move(sectors);
}

HRESULT Chain::AtAppended(SectorId index, SectorId* sector)
{
    if (index - length_ >= appended_.size())
        return STG_E_DOCFILECORRUPT;
    *sector = appended_[index - length_];
    last_ = {index, *sector};
    return S_OK;
}

HRESULT Chain::Link()
{
    if (appended_.empty())
        return S_OK;
    const std::vector<SectorId> sectors = std::move(appended_);
    SectorId before = 0;
    CFB_TRY(At(length_ - 1, &before));
    CFB_TRY(table_->SetNext(before, sectors.front()));
    for (const SectorId sector : sectors)
        Mark({length_++, sector});
    length_ = kFreeSector;
    appended_.clear();
    return S_OK;
}

void Chain::Cut(SectorId length) noexcept
{
    marks_.resize(std::min<std::size_t>(marks_.size(), (length - 1) >> strideShift_));
    if (last_.index >= length)
        last_ = Place{};
}

void Chain::Mark(const Place& place)
{
    if (place.index != (marks_.size() + 1) << strideShift_)
        return;
    if (marks_.size() < MostMarks()) {
        marks_.push_back(place.sector);
        return;
    }
    for (std::size_t i = 0; i < MostMarks() / 2; ++i)
        marks_[i] = marks_[2 * i + 1];
    marks_.resize(MostMarks() / 2);
    ++strideShift_;
}

// Of `count` sectors with numbers one behind the other.
void Chain::MarkRun(const Place& first, SectorId count)
{
    for (;;) {
        const std::size_t next = (marks_.size() + 1) << strideShift_;
        if (next < first.index || next - first.index >= count)
            return;
        const auto behind = static_cast<SectorId>(next - first.index);
        Mark({first.index + behind, first.sector + behind});
    }
}

Chain::Place Chain::Nearest(SectorId index) const noexcept
{
    Place nearest{0, first_};
    const std::size_t mark = std::min<std::size_t>(index >> strideShift_, marks_.size());
    if (mark > 0)
        nearest = {static_cast<SectorId>(mark << strideShift_), marks_[mark - 1]};
    const bool closer = last_.sector <= kMaxSector && last_.index <= index && last_.index > nearest.index;
    return closer ? last_ : nearest;
}

HRESULT Chain::WalkTo(SectorId index, SectorId* sector)
{
    if (index == last_.index && last_.sector <= kMaxSector) {
        *sector = last_.sector;
        return S_OK;
    }
    Place place = Nearest(index);
    if (place.sector >= table_->Slots() || index >= table_->Slots())
        return STG_E_DOCFILECORRUPT;
    while (place.index < index) {
        SectorId run = 0;
        SectorId next = 0;
        CFB_TRY(table_->FollowRun(place.sector, index - place.index + 1, &run, &next));
        MarkRun(place, run);
        const bool there = index - place.index < run;
        place = there ? Place{index, place.sector + run - 1} : Place{place.index + run, next};
        if (place.sector >= table_->Slots())
            return STG_E_DOCFILECORRUPT;
    }
    Mark(place);
    last_ = place;
    *sector = place.sector;
    return S_OK;
}

HRESULT Chain::RunAt(SectorId index, SectorId most, SectorId* sector, SectorId* count)
{
    SectorId behind = 0;
    CFB_TRY(At(index, sector));
    *count = 1;
    if (most == 1)
        return S_OK;
    CFB_TRY(table_->FollowRun(*sector, most, count, &behind));
    MarkRun({index, *sector}, *count);
    last_ = {index + *count - 1, *sector + *count - 1};
    return S_OK;
}

HRESULT Chain::Length(SectorId* length)
{
    *length = 0;
    if (first_ == kEndOfChain)
        return S_OK;
    Place place = Nearest(kMaxSector);
    while (place.sector != kEndOfChain) {
        if (place.sector >= table_->Slots() || place.index >= table_->Slots())
            return STG_E_DOCFILECORRUPT;
        SectorId run = 0;
        SectorId next = 0;
        CFB_TRY(table_->FollowRun(place.sector, kMaxSector, &run, &next));
        Mark(place);
        MarkRun(place, run);
        last_ = {place.index + run - 1, place.sector + run - 1};
        place = {place.index + run, next};
    }
    *length = place.index;
    return S_OK;
}

}  // namespace quorvane::cfb
