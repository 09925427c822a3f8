// platform/bytes/ordered_file.h: a byte store with a small cache, whose writes go out in a stated order.
#ifndef QUORVANE_PLATFORM_BYTES_ORDERED_FILE_H_
#define QUORVANE_PLATFORM_BYTES_ORDERED_FILE_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <deque>
#include <memory>
#include <vector>

#include "platform/bytes/byte_store.h"

namespace quorvane {

// Collects the writes of one operation and hands them to the byte store at Commit, few and in order:
// what was written before a call of Order is in the store before anything that was written after it.
// Writes to one page become one write to the store wherever that keeps the order, and then both sides of
// an Order take effect at once. So whoever is killed between two writes to the store leaves a state that
// the order of the operation's steps allows.
//
// What others do to the store meanwhile ends in an error: STG_E_READFAULT where bytes are missing,
// STG_E_WRITEFAULT from ByteStore::Check.
//
// Pages that were read or written stay in the cache, up to kCachedPages; nothing unwritten is left in it
// after Commit. After a failure of Commit, Write or WriteData the store holds a state that the order
// allows; call Forget before the next operation.
//
// One call at a time. Throws std::bad_alloc.
class OrderedFile {
public:
    static constexpr std::size_t kPage = ByteStore::kAtomicPage;
    static constexpr std::size_t kCachedPages = 1024;

    explicit OrderedFile(ByteStore& store) : store_(&store) {}

    // Takes the store's size. To be called once, before all else.
    [[nodiscard]] HRESULT Open();
    // Goes on with another store for the same bytes, to be called when nothing is pending, in place of Open.
    // What is cached stays.
    [[nodiscard]] HRESULT MoveTo(ByteStore& store)
    {
        store_ = &store;
        return Open();
    }
    // Whether something is to be sent yet.
    bool HasPending() const noexcept { return !pending_.empty(); }
    // The page with that offset is read from the store when it is asked for the next time. It isn't pending.
    void ReadAnew(std::uint64_t offset) noexcept;
    // Drops the pending writes and everything cached.
    void DropCache() noexcept;

    // Size of the file, with what is to come into the store.
    std::uint64_t Size() const noexcept { return size_; }
    // Size of the store as it is: what lies behind that will come into being as zeros.
    std::uint64_t StoredSize() const noexcept { return stored_; }
    // Makes the file at least that long. The store is, before any pending write reaches it: no write may
    // speak of a place that a later one brings into being.
    void Extend(std::uint64_t size) noexcept { size_ = std::max(size_, size); }

    // Reads `count` bytes, pending writes included. Bytes behind the end are zeros. ahead: so many pages are
    // read at once when the first one isn't in the cache, as what lies behind it is likely to be asked for.
    [[nodiscard]] HRESULT Read(std::uint64_t offset, void* to, std::size_t count, std::size_t ahead = 1)
    {
        // Most reads are of a few bytes, near those before.
        Frame* const frame = Recent(offset, count);
        if (!frame)
            return ReadPages(offset, static_cast<BYTE*>(to), count, ahead);
        frame->used = true;
        std::memcpy(to, &frame->bytes[offset % kPage], count);
        return S_OK;
    }
    // The same bytes where they lie in the cache, as long as Moves tells the same. They are in one page.
    [[nodiscard]] HRESULT Peek(std::uint64_t offset, std::size_t count, const BYTE** bytes,
                               std::size_t ahead = 1)
    {
        Frame* frame = Recent(offset, count);
        if (!frame) {
            if (const HRESULT hr = Fetch(offset / kPage, ahead, &frame); FAILED(hr))
                return hr;
        }
        frame->used = true;
        *bytes = &frame->bytes[offset % kPage];
        return S_OK;
    }
    // Another number as soon as a page that was peeked at may lie elsewhere, or end earlier. Never 0, and
    // never the same again.
    std::uint64_t Moves() const noexcept { return moves_; }
    // Adds a write at the present place in the order.
    [[nodiscard]] HRESULT Write(std::uint64_t offset, const void* from, std::size_t count)
    {
        Frame* const frame = Recent(offset, count);
        if (!frame || !frame->pending || frame->stage != stage_)
            return WritePages(offset, static_cast<const BYTE*>(from), count);
        Change(*frame, offset % kPage, from, count);
        Extend(offset + count);
        return S_OK;
    }
    // Writes content, which may be overwritten in place: it goes out at any time between now and the next
    // Order.
    [[nodiscard]] HRESULT WriteData(std::uint64_t offset, const void* from, std::size_t count)
    {
        return count < kWrittenThrough ? Write(offset, from, count) : WriteThrough(offset, from, count);
    }
    // See ByteStore::Reserve.
    [[nodiscard]] HRESULT Reserve(std::uint64_t size) noexcept { return store_->Reserve(size); }
    // Closes a step of the operation: later writes come after the earlier ones.
    void Order() noexcept { ++stage_; }
    // True when the page of `a` is the page of `b`, so that writes to both can take effect at once.
    static bool SamePage(std::uint64_t a, std::uint64_t b) noexcept { return a / kPage == b / kPage; }

    // Sends all pending writes.
    [[nodiscard]] HRESULT Commit();
    // The same, and gives back what the store has reserved for growth.
    [[nodiscard]] HRESULT Settle();
    // Cuts the store to `size` bytes, after all pending writes.
    [[nodiscard]] HRESULT Cut(std::uint64_t size);
    // DropCache, and takes the store's size anew.
    [[nodiscard]] HRESULT Forget();

private:
    static constexpr std::size_t kBuckets = 4096;
    static constexpr std::size_t kMaxPending = 512;
    static_assert(kMaxPending < kCachedPages, "a write waits for pages that aren't pending");
    static constexpr std::size_t kWrittenThrough = 2 * kPage;  // content from this size on isn't cached
    static constexpr std::size_t kPagesAtOnce = 32;
    static constexpr std::size_t kPagesAhead = 8;
    static constexpr std::size_t kRecent = 64;

    static constexpr std::uint64_t kNoPage = ~std::uint64_t{0};

    struct Frame {
        std::uint64_t page = kNoPage;
        Frame* next_in_bucket = nullptr;
        std::size_t dirty_begin = 0;
        std::size_t dirty_end = 0;
        std::uint64_t first_stage = 0;  // of what is pending in it
        std::uint64_t stage = 0;        // the last one
        std::size_t pending_at = 0;
        bool pending = false;
        bool used = false;
        std::unique_ptr<BYTE[]> bytes = std::make_unique_for_overwrite<BYTE[]>(kPage);
    };

    // The page of these bytes, when they lie in one that was used lately.
    Frame* Recent(std::uint64_t offset, std::size_t count) noexcept
    {
        Frame* const frame = recent_[offset / kPage % kRecent];
        const bool holds = frame && frame->page == offset / kPage && offset % kPage + count <= kPage;
        return holds ? frame : nullptr;
    }
    // Of a page that is pending in the present step.
    static void Change(Frame& frame, std::size_t at, const void* from, std::size_t count) noexcept
    {
        frame.used = true;
        frame.dirty_begin = std::min(frame.dirty_begin, at);
        frame.dirty_end = std::max(frame.dirty_end, at + count);
        std::memcpy(&frame.bytes[at], from, count);
    }
    [[nodiscard]] HRESULT WritePages(std::uint64_t offset, const BYTE* from, std::size_t count);
    [[nodiscard]] HRESULT ReadPages(std::uint64_t offset, BYTE* to, std::size_t count, std::size_t ahead);
    static std::size_t BucketOf(std::uint64_t page) noexcept { return page % kBuckets; }
    Frame* Find(std::uint64_t page) noexcept;
    Frame* FindInBuckets(std::uint64_t page) noexcept;
    [[nodiscard]] HRESULT Fetch(std::uint64_t page, std::size_t ahead, Frame** frame);
    [[nodiscard]] HRESULT FetchWhole(std::uint64_t page, Frame** frame);
    [[nodiscard]] HRESULT FreshFrame(Frame** frame);
    void Drop(Frame& frame) noexcept;
    [[nodiscard]] HRESULT Load(Frame& frame, std::uint64_t page);
    void Put(Frame& frame, std::uint64_t page) noexcept;
    std::size_t RunToLoad(std::uint64_t page, std::size_t most) noexcept;
    [[nodiscard]] HRESULT LoadRun(std::uint64_t page, std::size_t count);
    bool MustGoOutBefore(const Frame& frame) const noexcept;
    [[nodiscard]] HRESULT MarkPending(Frame& frame);
    [[nodiscard]] HRESULT WriteThrough(std::uint64_t offset, const void* from, std::size_t count);
    [[nodiscard]] HRESULT Check();
    [[nodiscard]] HRESULT Grow();
    [[nodiscard]] HRESULT Flush();
    std::size_t EndOfStep(std::size_t begin) const noexcept;
    std::size_t EndOfRun(std::size_t begin, std::size_t end) const noexcept;
    [[nodiscard]] HRESULT WriteRun(std::size_t begin, std::size_t end);
    [[nodiscard]] HRESULT ReadStored(std::uint64_t offset, BYTE* to, std::size_t count, std::size_t* read);
    [[nodiscard]] HRESULT ReadDirect(std::uint64_t offset, BYTE* to, std::size_t count);

    ByteStore* store_;
    std::uint64_t size_ = 0;
    std::uint64_t stored_ = 0;
    std::uint64_t blank_ =
        0;  // from here on the store holds the zeros that it grew by, to which nothing was written
    std::uint64_t stage_ = 0;
    bool checked_ = false;      // that the store is as it was left
    std::deque<Frame> frames_;  // stay where they are
    std::vector<Frame*> spare_;
    std::vector<Frame*> pending_;  // in the order of their stages
    std::vector<BYTE> run_;        // pages that are written at once
    std::vector<Frame*> buckets_;
    Frame* recent_[kRecent] = {};  // frames that were used last, to find them without the buckets
    std::size_t hand_ = 0;
    std::uint64_t moves_ = 1;
};

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_BYTES_ORDERED_FILE_H_
