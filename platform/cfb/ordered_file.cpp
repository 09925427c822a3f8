#include "platform/cfb/ordered_file.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>

#include "platform/cfb/result.h"

namespace quorvane::cfb {

HRESULT OrderedFile::Open()
{
    CFB_TRY(store_->GetSize(&stored_));
    size_ = stored_;
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
    Frame** link = &buckets_[BucketOf(frame.page)];
    while (*link && *link != &frame)
        link = &(*link)->next_in_bucket;
    if (*link)
        *link = frame.next_in_bucket;
    frame.next_in_bucket = nullptr;
    frame.page = kNoPage;
}

// A frame that holds no page: a spare one, a new one, or the one that was longest out of use.
HRESULT OrderedFile::FreshFrame(Frame** frame)
{
    if (buckets_.empty())
        buckets_.resize(kBuckets);
    if (spare_.empty() && frames_.size() < kCachedPages) {
        spare_.reserve(kCachedPages);
        frames_.push_back(std::make_unique<Frame>());
        spare_.push_back(frames_.back().get());
    }
    if (!spare_.empty()) {
        *frame = spare_.back();
        spare_.pop_back();
        return S_OK;
    }
    for (;;) {
        Frame& candidate = *frames_[hand_];
        hand_ = (hand_ + 1) % frames_.size();
        if (candidate.pending || std::exchange(candidate.used, false))
            continue;
        Drop(candidate);
        *frame = &candidate;
        return S_OK;
    }
}

HRESULT OrderedFile::Load(Frame& frame, std::uint64_t page)
{
    std::size_t read = 0;
    const HRESULT hr =
        page * kPage < stored_ ? store_->ReadAt(page * kPage, frame.bytes, kPage, &read) : S_OK;
    if (FAILED(hr)) {
        spare_.push_back(&frame);
        return hr;
    }
    std::memset(frame.bytes + read, 0, kPage - read);
    frame.page = page;
    frame.used = true;
    frame.next_in_bucket = buckets_[BucketOf(page)];
    buckets_[BucketOf(page)] = &frame;
    return S_OK;
}

HRESULT OrderedFile::Fetch(std::uint64_t page, Frame** frame)
{
    *frame = Find(page);
    if (*frame) {
        (*frame)->used = true;
        return S_OK;
    }
    CFB_TRY(FreshFrame(frame));
    return Load(**frame, page);
}

HRESULT OrderedFile::ReadDirect(std::uint64_t offset, BYTE* to, std::size_t count)
{
    std::size_t read = 0;
    if (offset < stored_)
        CFB_TRY(store_->ReadAt(offset, to, count, &read));
    std::memset(to + read, 0, count - read);
    for (const Frame* frame : pending_) {
        const std::uint64_t begin = std::max(offset, frame->page * kPage);
        const std::uint64_t end = std::min(offset + count, (frame->page + 1) * kPage);
        if (begin < end)
            std::memcpy(to + (begin - offset), frame->bytes + begin % kPage,
                        static_cast<std::size_t>(end - begin));
    }
    return S_OK;
}

HRESULT OrderedFile::Read(std::uint64_t offset, void* to, std::size_t count)
{
    auto* out = static_cast<BYTE*>(to);
    if (count >= kPage)
        return ReadDirect(offset, out, count);
    while (count > 0) {
        Frame* frame = nullptr;
        CFB_TRY(Fetch(offset / kPage, &frame));
        const std::size_t at = offset % kPage;
        const std::size_t part = std::min(count, kPage - at);
        std::memcpy(out, frame->bytes + at, part);
        out += part;
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

HRESULT OrderedFile::MarkPending(Frame& frame, std::size_t begin, std::size_t end)
{
    if (!frame.pending) {
        if (pending_.size() >= kMaxPending)
            CFB_TRY(Flush());
        if (pending_.empty())
            oldest_ = stage_;
        pending_.push_back(&frame);
        frame.pending = true;
        frame.pending_at = pending_.size() - 1;
        frame.first_stage = frame.stage = stage_;
        frame.dirty_begin = begin;
        frame.dirty_end = end;
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
    frame.dirty_begin = std::min(frame.dirty_begin, begin);
    frame.dirty_end = std::max(frame.dirty_end, end);
    return S_OK;
}

HRESULT OrderedFile::Write(std::uint64_t offset, const void* from, std::size_t count)
{
    const auto* in = static_cast<const BYTE*>(from);
    while (count > 0) {
        Frame* frame = nullptr;
        CFB_TRY(Fetch(offset / kPage, &frame));
        if (MustGoOutBefore(*frame))
            CFB_TRY(Flush());
        const std::size_t at = offset % kPage;
        const std::size_t part = std::min(count, kPage - at);
        CFB_TRY(MarkPending(*frame, at, at + part));
        std::memcpy(frame->bytes + at, in, part);
        in += part;
        offset += part;
        count -= part;
        Extend(offset);
    }
    return S_OK;
}

HRESULT OrderedFile::WriteWords(std::uint64_t offset, const void* from, std::size_t count)
{
    const auto* in = static_cast<const BYTE*>(from);
    while (count > 0) {
        const std::size_t part = std::min(count, kPage - offset % kPage);
        bool done = false;
        CFB_TRY(PutWords(offset, in, part, &done));
        if (!done)
            CFB_TRY(Write(offset, in, part));
        in += part;
        offset += part;
        count -= part;
    }
    return S_OK;
}

// Puts words of one page in their place, if the store can, and if nothing that is pending has to be in that
// page together with them.
HRESULT OrderedFile::PutWords(std::uint64_t offset, const void* from, std::size_t count, bool* done)
{
    if (offset + count > stored_ || !store_->CanPut(offset, count))
        return S_OK;
    Frame* const frame = Find(offset / kPage);
    if (!pending_.empty() && oldest_ < stage_)
        CFB_TRY(Flush());
    if (frame && frame->pending)
        return S_OK;
    CFB_TRY(Grow());
    if (frame)
        std::memcpy(frame->bytes + offset % kPage, from, count);
    store_->Put(offset, from, count);
    *done = true;
    return S_OK;
}

HRESULT OrderedFile::WriteThrough(std::uint64_t offset, const void* from, std::size_t count)
{
    const auto* in = static_cast<const BYTE*>(from);
    CFB_TRY(store_->WriteAt(offset, in, count));
    const std::uint64_t end = offset + count;
    stored_ = std::max(stored_, end);
    Extend(end);
    for (std::uint64_t page = offset / kPage; page * kPage < end; ++page) {
        Frame* const frame = Find(page);
        if (!frame)
            continue;
        const std::uint64_t first = std::max(offset, page * kPage);
        const std::uint64_t last = std::min(end, (page + 1) * kPage);
        std::memcpy(frame->bytes + first % kPage, in + (first - offset),
                    static_cast<std::size_t>(last - first));
    }
    return S_OK;
}

HRESULT OrderedFile::Grow()
{
    if (size_ <= stored_)
        return S_OK;
    CFB_TRY(store_->SetSize(size_));
    stored_ = size_;
    return S_OK;
}

HRESULT OrderedFile::Flush()
{
    CFB_TRY(Grow());
    for (Frame* frame : pending_) {
        CFB_TRY(store_->WriteAt(frame->page * kPage + frame->dirty_begin, frame->bytes + frame->dirty_begin,
                                frame->dirty_end - frame->dirty_begin));
        frame->pending = false;
    }
    pending_.clear();
    return S_OK;
}

HRESULT OrderedFile::Commit()
{
    CFB_TRY(Flush());
    stage_ = 0;
    return S_OK;
}

HRESULT OrderedFile::Settle()
{
    CFB_TRY(Commit());
    return store_->Settle();
}

HRESULT OrderedFile::Cut(std::uint64_t size)
{
    CFB_TRY(Flush());
    if (size >= stored_)
        return S_OK;
    CFB_TRY(store_->SetSize(size));
    size_ = stored_ = size;
    for (auto& frame : frames_) {
        if (frame->page == kNoPage || (frame->page + 1) * kPage <= size)
            continue;
        const std::uint64_t begin = std::max(size, frame->page * kPage);
        std::memset(frame->bytes + (begin - frame->page * kPage), 0,
                    static_cast<std::size_t>((frame->page + 1) * kPage - begin));
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
    pending_.clear();
    std::fill(std::begin(recent_), std::end(recent_), nullptr);
    frames_.clear();
    spare_.clear();
    buckets_.clear();
    hand_ = 0;
    stage_ = 0;
}

}  // namespace quorvane::cfb
