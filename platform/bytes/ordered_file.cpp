#include "platform/bytes/ordered_file.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>

#include "platform/com/result.h"

namespace quorvane {

HRESULT OrderedFile::Open()
{
    QV_TRY(store_->GetSize(&stored_));
    size_ = blank_ = stored_;
    return S_OK;
}

OrderedFile::Frame* OrderedFile::Find(std::uint64_t page) noexcept
{
    Frame*& recent = recent_[page % kRecent];
    if (!recent || recent->page != page)
        recent = FindInBuckets(page);
    return recent;
}

OrderedFile::Frame* OrderedFile::FindInBuckets(std::uint64_t page) noexcept
{
    if (buckets_.empty())
        return nullptr;
    Frame* frame = buckets_[BucketOf(page)];
    while (frame && frame->page != page)
        frame = frame->next_in_bucket;
    return frame;
}

// Takes `frame` out of the cache; it holds no page afterwards.
void OrderedFile::Drop(Frame& frame) noexcept
{
    ++moves_;
    Frame** link = &buckets_[BucketOf(frame.page)];
    while (*link && *link != &frame)
        link = &(*link)->next_in_bucket;
    if (*link)
        *link = frame.next_in_bucket;
    frame.next_in_bucket = nullptr;
    frame.page = kNoPage;
}

void OrderedFile::ReadAnew(std::uint64_t offset) noexcept
{
    Frame* const frame = FindInBuckets(offset / kPage);
    if (!frame)
        return;
    Drop(*frame);
    spare_.push_back(frame);  // there is room for all frames
}

// A frame that holds no page: a spare one, a new one, or the one that was longest out of use.
HRESULT OrderedFile::FreshFrame(Frame** frame)
{
    if (buckets_.empty()) {
        buckets_.resize(kBuckets);
        spare_.reserve(kCachedPages);
    }
    if (spare_.empty() && frames_.size() < kCachedPages)
        spare_.push_back(&frames_.emplace_back());
    if (!spare_.empty()) {
        *frame = spare_.back();
        spare_.pop_back();
        return S_OK;
    }
    for (;;) {
        Frame& candidate = frames_[hand_];
        hand_ = (hand_ + 1) % frames_.size();
        if (candidate.pending || std::exchange(candidate.used, false))
            continue;
        Drop(candidate);
        *frame = &candidate;
        return S_OK;
    }
}

// Reads what the store has of a range, but for zeros that nobody wrote.
HRESULT OrderedFile::ReadStored(std::uint64_t offset, BYTE* to, std::size_t count, std::size_t* read)
{
    *read = 0;
    if (offset >= blank_)
        return S_OK;
    const auto there = static_cast<std::size_t>(std::min<std::uint64_t>(count, blank_ - offset));
    QV_TRY(store_->ReadAt(offset, to, there, read));
    return *read == there ? S_OK : STG_E_READFAULT;
}

HRESULT OrderedFile::Load(Frame& frame, std::uint64_t page)
{
    std::size_t read = 0;
    const HRESULT hr = ReadStored(page * kPage, frame.bytes.get(), kPage, &read);
    if (FAILED(hr)) {
        spare_.push_back(&frame);
        return hr;
    }
    std::memset(frame.bytes.get() + read, 0, kPage - read);
    Put(frame, page);
    return S_OK;
}

// The frame holds that page from now on.
void OrderedFile::Put(Frame& frame, std::uint64_t page) noexcept
{
    frame.page = page;
    frame.used = true;
    frame.next_in_bucket = buckets_[BucketOf(page)];
    buckets_[BucketOf(page)] = &frame;
}

// How many pages from `page` on are read at once: `most`, or one more than lie in the cache right before it
// when that is more, and only such as aren't in the cache.
std::size_t OrderedFile::RunToLoad(std::uint64_t page, std::size_t most) noexcept
{
    std::size_t before = 0;
    while (before + 1 < kPagesAhead && before < page && FindInBuckets(page - before - 1))
        ++before;
    most = std::max(most, before + 1);
    std::size_t count = 1;
    while (count < most && (page + count + 1) * kPage <= blank_ && !FindInBuckets(page + count))
        ++count;
    return count;
}

// Reads pages into frames.
HRESULT OrderedFile::LoadRun(std::uint64_t page, std::size_t count)
{
    std::size_t read = 0;
    run_.resize(kPagesAtOnce * kPage);
    QV_TRY(ReadStored(page * kPage, run_.data(), count * kPage, &read));
    for (std::size_t i = count; i-- > 0;) {
        Frame* frame = nullptr;
        QV_TRY(FreshFrame(&frame));
        std::memcpy(frame->bytes.get(), &run_[i * kPage], kPage);
        Put(*frame, page + i);
    }
    return S_OK;
}

HRESULT OrderedFile::Fetch(std::uint64_t page, std::size_t ahead, Frame** frame)
{
    *frame = Find(page);
    if (*frame) {
        (*frame)->used = true;
        return S_OK;
    }
    const std::size_t run = RunToLoad(page, ahead);
    if (run > 1) {
        QV_TRY(LoadRun(page, run));
        *frame = FindInBuckets(page);
        return S_OK;
    }
    QV_TRY(FreshFrame(frame));
    return Load(**frame, page);
}

// The same for a page all of which is about to be written.
HRESULT OrderedFile::FetchWhole(std::uint64_t page, Frame** frame)
{
    *frame = Find(page);
    if (*frame)
        return S_OK;
    QV_TRY(FreshFrame(frame));
    Put(**frame, page);
    return S_OK;
}

HRESULT OrderedFile::ReadDirect(std::uint64_t offset, BYTE* to, std::size_t count)
{
    std::size_t read = 0;
    QV_TRY(ReadStored(offset, to, count, &read));
    std::memset(to + read, 0, count - read);
    for (const Frame* frame : pending_) {
        const std::uint64_t begin = std::max(offset, frame->page * kPage);
        const std::uint64_t end = std::min(offset + count, (frame->page + 1) * kPage);
        if (begin < end)
            std::memcpy(to + (begin - offset), &frame->bytes[begin % kPage],
                        static_cast<std::size_t>(end - begin));
    }
    return S_OK;
}

HRESULT OrderedFile::ReadPages(std::uint64_t offset, BYTE* to, std::size_t count, std::size_t ahead)
{
    if (count >= kPage)
        return ReadDirect(offset, to, count);
    while (count > 0) {
        Frame* frame = nullptr;
        QV_TRY(Fetch(offset / kPage, ahead, &frame));
        const std::size_t at = offset % kPage;
        const std::size_t part = std::min(count, kPage - at);
        std::memcpy(to, &frame->bytes[at], part);
        to += part;
        offset += part;
        count -= part;
    }
    return S_OK;
}

// True when a page that is pending can't take more: another one holds what comes after the first of its steps
// and before the present one.
bool OrderedFile::MustGoOutBefore(const Frame& frame) const noexcept
{
    if (!frame.pending || frame.stage == stage_)
        return false;
    const bool isLast = pending_.back() == &frame;
    if (isLast && pending_.size() == 1)
        return false;
    const Frame* const other = isLast ? pending_[pending_.size() - 2] : pending_.back();
    return other->stage > frame.first_stage;
}

HRESULT OrderedFile::MarkPending(Frame& frame)
{
    if (!frame.pending) {
        if (pending_.size() >= kMaxPending)
            QV_TRY(Flush());
        pending_.push_back(&frame);
        frame.pending = true;
        frame.pending_at = pending_.size() - 1;
        frame.first_stage = frame.stage = stage_;
        frame.dirty_begin = kPage;
        frame.dirty_end = 0;
        return S_OK;
    }
    if (frame.stage != stage_) {
        // Nothing that is pending has to come between the steps of this page (the caller saw to that), so it
        // may wait for the rest of the present one and take all of them in one write.
        Frame* const last = pending_.back();
        std::swap(pending_[frame.pending_at], pending_.back());
        std::swap(frame.pending_at, last->pending_at);
        frame.stage = stage_;
    }
    return S_OK;
}

HRESULT OrderedFile::WritePages(std::uint64_t offset, const BYTE* from, std::size_t count)
{
    while (count > 0) {
        Frame* frame = nullptr;
        const std::size_t at = offset % kPage;
        const std::size_t part = std::min(count, kPage - at);
        QV_TRY(part == kPage ? FetchWhole(offset / kPage, &frame) : Fetch(offset / kPage, 1, &frame));
        if (MustGoOutBefore(*frame))
            QV_TRY(Flush());
        QV_TRY(MarkPending(*frame));
        Change(*frame, at, from, part);
        from += part;
        offset += part;
        count -= part;
        Extend(offset);
    }
    return S_OK;
}

HRESULT OrderedFile::WriteThrough(std::uint64_t offset, const void* from, std::size_t count)
{
    const auto* in = static_cast<const BYTE*>(from);
    QV_TRY(Check());
    QV_TRY(store_->WriteAt(offset, in, count));
    const std::uint64_t end = offset + count;
    stored_ = std::max(stored_, end);
    blank_ = std::max(blank_, end);
    Extend(end);
    for (std::uint64_t page = offset / kPage; page * kPage < end; ++page) {
        Frame* const frame = Find(page);
        if (!frame)
            continue;
        const std::uint64_t first = std::max(offset, page * kPage);
        const std::uint64_t last = std::min(end, (page + 1) * kPage);
        std::memcpy(&frame->bytes[first % kPage], in + (first - offset),
                    static_cast<std::size_t>(last - first));
    }
    return S_OK;
}

// Once an operation.
HRESULT OrderedFile::Check()
{
    if (!checked_)
        QV_TRY(store_->Check());
    checked_ = true;
    return S_OK;
}

HRESULT OrderedFile::Grow()
{
    if (size_ <= stored_)
        return S_OK;
    QV_TRY(store_->SetSize(size_));
    stored_ = size_;
    return S_OK;
}

// Where the pages end that may be written in any order with the one at `begin`. One that belongs to two steps
// stands between them, by itself.
std::size_t OrderedFile::EndOfStep(std::size_t begin) const noexcept
{
    const std::uint64_t stage = pending_[begin]->stage;
    std::size_t end = begin + 1;
    if (pending_[begin]->first_stage != stage)
        return end;
    while (end < pending_.size() && pending_[end]->first_stage == stage && pending_[end]->stage == stage)
        ++end;
    return end;
}

std::size_t OrderedFile::EndOfRun(std::size_t begin, std::size_t end) const noexcept
{
    std::size_t at = begin + 1;
    while (at < end && at - begin < kPagesAtOnce && pending_[at]->page == pending_[at - 1]->page + 1)
        ++at;
    return at;
}

// Writes pages that lie behind each other, with what is unchanged between them.
HRESULT OrderedFile::WriteRun(std::size_t begin, std::size_t end)
{
    const Frame& first = *pending_[begin];
    const std::size_t from = first.dirty_begin;
    const BYTE* bytes = first.bytes.get();
    if (end - begin > 1) {
        run_.resize(kPagesAtOnce * kPage);
        for (std::size_t i = begin; i < end; ++i)
            std::memcpy(&run_[(i - begin) * kPage], pending_[i]->bytes.get(), kPage);
        bytes = run_.data();
    }
    const std::size_t to = (end - begin - 1) * kPage + pending_[end - 1]->dirty_end;
    QV_TRY(store_->WriteAt(first.page * kPage + from, bytes + from, to - from));
    blank_ = std::max(blank_, first.page * kPage + to);
    for (std::size_t i = begin; i < end; ++i)
        pending_[i]->pending = false;
    return S_OK;
}

HRESULT OrderedFile::Flush()
{
    if (size_ > stored_ || !pending_.empty())
        QV_TRY(Check());
    QV_TRY(Grow());
    for (std::size_t step = 0; step < pending_.size();) {
        const std::size_t end = EndOfStep(step);
        std::sort(pending_.begin() + static_cast<std::ptrdiff_t>(step),
                  pending_.begin() + static_cast<std::ptrdiff_t>(end),
                  [](const Frame* a, const Frame* b) { return a->page < b->page; });
        for (; step < end; step = EndOfRun(step, end))
            QV_TRY(WriteRun(step, EndOfRun(step, end)));
    }
    pending_.clear();
    return S_OK;
}

HRESULT OrderedFile::Commit()
{
    QV_TRY(Flush());
    stage_ = 0;
    checked_ = false;
    return S_OK;
}

HRESULT OrderedFile::Settle()
{
    QV_TRY(Commit());
    return store_->Settle();
}

HRESULT OrderedFile::Cut(std::uint64_t size)
{
    QV_TRY(Flush());
    if (size >= stored_)
        return S_OK;
    QV_TRY(store_->SetSize(size));
    ++moves_;
    size_ = stored_ = size;
    blank_ = std::min(blank_, size);
    for (Frame& frame : frames_) {
        if (frame.page == kNoPage || (frame.page + 1) * kPage <= size)
            continue;
        const std::uint64_t begin = std::max(size, frame.page * kPage);
        std::memset(&frame.bytes[begin - frame.page * kPage], 0,
                    static_cast<std::size_t>((frame.page + 1) * kPage - begin));
    }
    return S_OK;
}

HRESULT OrderedFile::Forget()
{
    DropCache();
    return Open();
}

void OrderedFile::DropCache() noexcept
{
    ++moves_;
    pending_.clear();
    std::fill(std::begin(recent_), std::end(recent_), nullptr);
    frames_.clear();
    spare_.clear();
    buckets_.clear();
    hand_ = 0;
    stage_ = 0;
    checked_ = false;
}

}  // namespace quorvane
