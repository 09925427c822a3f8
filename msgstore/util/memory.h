// msgstore/util/memory.h: MAPI's linked memory blocks, and owners for them.
//
// MAPIAllocateBuffer, MAPIAllocateMore, MAPIFreeBuffer and MAPIGetDefaultMalloc are declared in
// platform/mapi/mapi.h and defined in this folder. A block from MAPIAllocateBuffer heads a chain;
// MAPIAllocateMore hangs further blocks on it; freeing the head frees the chain. Any thread may call;
// one chain is for one thread at a time.
#ifndef QUORVANE_MSGSTORE_UTIL_MEMORY_H_
#define QUORVANE_MSGSTORE_UTIL_MEMORY_H_

#include <cstddef>
#include <utility>

#include "platform/mapi/mapi.h"

namespace quorvane {

// The three functions that an object hands its results out with. Objects on a caller's storage use the
// caller's functions; all others use MAPI's own, which are the default here.
struct MapiAllocator {
    LPALLOCATEBUFFER allocate = MAPIAllocateBuffer;
    LPALLOCATEMORE allocateMore = MAPIAllocateMore;
    LPFREEBUFFER free = MAPIFreeBuffer;

    // A new chain's head of `size` bytes; null when memory is short or `size` exceeds 32 bits.
    void* Allocate(std::size_t size) const noexcept;
    // A further block on `root`'s chain; null as above.
    void* AllocateMore(std::size_t size, void* root) const noexcept;
};

// Owns one chain that was allocated through MAPI, typed by its head.
template <class T>
class MapiBuffer {
public:
    MapiBuffer() noexcept = default;
    explicit MapiBuffer(T* owned) noexcept : head_(owned) {}
    MapiBuffer(MapiBuffer&& other) noexcept : head_(std::exchange(other.head_, nullptr)) {}
    MapiBuffer& operator=(MapiBuffer&& other) noexcept
    {
        std::swap(head_, other.head_);
        return *this;
    }
    ~MapiBuffer() { Reset(); }

    void Reset() noexcept
    {
        if (head_)
            MAPIFreeBuffer(std::exchange(head_, nullptr));
    }
    T* Get() const noexcept { return head_; }
    T* operator->() const noexcept { return head_; }
    T& operator[](std::size_t index) const noexcept { return head_[index]; }
    explicit operator bool() const noexcept { return head_ != nullptr; }
    // The place for an out-parameter; what was held is freed first.
    T** Put() noexcept
    {
        Reset();
        return &head_;
    }
    T* Detach() noexcept { return std::exchange(head_, nullptr); }

private:
    T* head_ = nullptr;
};

// Owns a row set, freed row by row as FreeProws does.
class RowSet {
public:
    RowSet() noexcept = default;
    RowSet(const RowSet&) = delete;
    RowSet& operator=(const RowSet&) = delete;
    ~RowSet() { FreeProws(rows_); }

    LPSRowSet* Put() noexcept
    {
        FreeProws(std::exchange(rows_, nullptr));
        return &rows_;
    }
    LPSRowSet Get() const noexcept { return rows_; }
    ULONG size() const noexcept { return rows_ ? rows_->cRows : 0; }
    SRow& operator[](std::size_t index) const noexcept { return rows_->aRow[index]; }
    SRow* begin() const noexcept { return rows_ ? rows_->aRow : nullptr; }
    SRow* end() const noexcept { return rows_ ? rows_->aRow + rows_->cRows : nullptr; }

private:
    LPSRowSet rows_ = nullptr;
};

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_UTIL_MEMORY_H_
