#include "platform/cfb/chain.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "platform/com/result.h"

namespace quorvane::cfb {

void Chain::Append(SectorId length, const std::vector<SectorId>& sectors)
{
    if (length == 0) {
        Reset(sectors.front());
        return;
    }
    Run* end = &LastKnown();
    if (unlinked_ == 0)
        unlinked_ = length;
    else
        length = end->End();
    last_ = Run{};
    const auto count = static_cast<SectorId>(sectors.size());
    for (SectorId begin = 0, run = 0; begin < count; begin += run, length += run) {
        run = RunLength(&sectors[begin], count - begin);
        if (end->End() == length && end->LastSector() + 1 == sectors[begin])
            end->count += run;
        else
            end = &others_.emplace_back(Run{length, sectors[begin], run});
    }
}

HRESULT Chain::Link()
{
    if (unlinked_ == 0)
        return S_OK;
    SectorId before = 0;
    SectorId front = 0;
    QV_TRY(At(unlinked_ - 1, &before));
    QV_TRY(At(unlinked_, &front));
    QV_TRY(table_->SetNext(before, front));
    // They are walked along once, so that whatever else leads to them is noticed.
    SectorId left = LastKnown().End() - std::exchange(unlinked_, 0) + 1;
    for (SectorId count = 0; left > 0 && before < table_->Slots(); left -= count) {
        SectorId next = kEndOfChain;
        QV_TRY(table_->FollowRun(before, left, &count, &next));
        before = next;
    }
    return S_OK;
}

void Chain::Cut(SectorId length) noexcept
{
    while (!others_.empty() && others_.back().index >= length)
        others_.pop_back();
    Run& end = LastKnown();
    end.count = std::min(end.count, length - end.index);
    last_ = end;
}

void Chain::Remember(const Run& run)
{
    Run& end = run.index == 0 ? head_ : LastKnown();
    if (run.index == end.index)
        end.count = std::max(end.count, run.count);
    else if (run.index > end.index && run.index - end.index >= stride_)
        others_.push_back(run);
    if (others_.size() > MostRuns() && unlinked_ == 0)
        Thin();
}

// Forgets every other one.
void Chain::Thin() noexcept
{
    for (std::size_t i = 0; i < others_.size() / 2; ++i)
        others_[i] = others_[2 * i + 1];
    others_.resize(others_.size() / 2);
    stride_ *= 2;
}

// The run that is remembered closest before `index`.
Chain::Run Chain::Nearest(SectorId index) const noexcept
{
    const auto behind = std::upper_bound(others_.begin(), others_.end(), index,
                                         [](SectorId at, const Run& run) { return at < run.index; });
    const Run& nearest = behind == others_.begin() ? head_ : *std::prev(behind);
    return last_.index <= index && last_.index > nearest.index ? last_ : nearest;
}

// Goes on behind what is known of the run that was asked for last: makes that longer, by up to `most`
// sectors, or takes the next run in its place. *ends: there is none.
HRESULT Chain::WalkOn(SectorId most, bool* ends)
{
    SectorId count = 0;
    SectorId next = 0;
    const SectorId slots = table_->Slots();
    *ends = false;
    if (last_.LastSector() >= slots || last_.count == 0 || last_.index >= slots)
        return STG_E_DOCFILECORRUPT;
    QV_TRY(table_->FollowRun(last_.LastSector(), most < slots ? most + 1 : slots, &count, &next));
    last_.count += count - 1;
    Remember(last_);
    if (count > most)
        return S_OK;
    *ends = next == kEndOfChain;
    if (*ends)
        return S_OK;
    if (next >= slots)
        return STG_E_DOCFILECORRUPT;
    last_ = {last_.End(), next, 1};
    Remember(last_);
    return S_OK;
}

// Sees to it that the run that was asked for last holds a place.
HRESULT Chain::Find(SectorId index)
{
    bool ends = false;
    HRESULT hr = S_OK;
    last_ = Nearest(index);
    while (SUCCEEDED(hr) && !ends && !last_.Holds(index))
        hr = WalkOn(index - last_.End() + 1, &ends);
    if (SUCCEEDED(hr) && !ends && last_.LastSector() < table_->Slots())
        return S_OK;
    last_ = Run{};
    return FAILED(hr) ? hr : STG_E_DOCFILECORRUPT;
}

// What is known of the run that holds `index` is less than `most`.
HRESULT Chain::LongerRunAt(SectorId index, SectorId most, SectorId* count)
{
    const Run run = last_;
    bool ends = false;
    // The last one that is known may go on, and any when not all are remembered.
    if (stride_ > 1 || run.index >= LastKnown().index)
        QV_TRY(WalkOn(most - (run.End() - index), &ends));
    const SectorId end = last_.index == run.index ? last_.End() : last_.index;
    *count = std::min(most, end - index);
    return S_OK;
}

HRESULT Chain::Length(SectorId* length)
{
    *length = 0;
    if (First() == kEndOfChain)
        return S_OK;
    last_ = Nearest(kMaxSector);
    for (bool ends = false; !ends;)
        QV_TRY(WalkOn(kMaxSector, &ends));
    *length = last_.End();
    return S_OK;
}

}  // namespace quorvane::cfb
