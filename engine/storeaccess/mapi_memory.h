// storeaccess/mapi_memory.h: owners of what MAPI allocates.
#ifndef QUORVANE_ENGINE_STOREACCESS_MAPI_MEMORY_H_
#define QUORVANE_ENGINE_STOREACCESS_MAPI_MEMORY_H_

#include <span>
#include <utility>

#include "engine/storeaccess/mapi_functions.h"

namespace quorvane {

// Owns one MAPI buffer (with all that hangs on it), or none.
template <class T>
class MapiBuffer {
public:
    MapiBuffer() noexcept = default;
    MapiBuffer(MapiBuffer&& other) noexcept : buffer_(std::exchange(other.buffer_, nullptr)) {}
    MapiBuffer(const MapiBuffer&) = delete;
    ~MapiBuffer() { Reset(); }

    MapiBuffer& operator=(MapiBuffer&& other) noexcept
    {
        std::swap(buffer_, other.buffer_);
        return *this;
    }

    // Takes over a buffer that the caller owns.
    static MapiBuffer Attach(T* owned) noexcept
    {
        MapiBuffer result;
        result.buffer_ = owned;
        return result;
    }

    // A new buffer of `size` bytes, uninitialised, in place of what is held. What MAPIAllocateBuffer answers;
    // a failure holds nothing.
    [[nodiscard]] HRESULT Allocate(ULONG size) noexcept
    {
        void* buffer = nullptr;
        const HRESULT hr = mapi::MAPIAllocateBuffer(size, &buffer);
        Reset();
        if (SUCCEEDED(hr))
            buffer_ = static_cast<T*>(buffer);
        return hr;
    }

    void Reset() noexcept { mapi::MAPIFreeBuffer(std::exchange(buffer_, nullptr)); }
    T* Get() const noexcept { return buffer_; }
    T* operator->() const noexcept { return buffer_; }
    T& operator*() const noexcept { return *buffer_; }
    explicit operator bool() const noexcept { return buffer_ != nullptr; }

    // The place for an out-parameter; what was held is freed first.
    T** Put() noexcept
    {
        Reset();
        return &buffer_;
    }
    void** PutVoid() noexcept { return reinterpret_cast<void**>(Put()); }
    T* Detach() noexcept { return std::exchange(buffer_, nullptr); }

private:
    T* buffer_ = nullptr;
};

// One property as HrGetOneProp gives it.
using PropValue = MapiBuffer<SPropValue>;

// Owns the rows that a table gave, or none. Iterates over SRow.
class RowSet {
public:
    RowSet() noexcept = default;
    RowSet(RowSet&& other) noexcept : rows_(std::exchange(other.rows_, nullptr)) {}
    RowSet(const RowSet&) = delete;
    ~RowSet() { Reset(); }

    RowSet& operator=(RowSet&& other) noexcept
    {
        std::swap(rows_, other.rows_);
        return *this;
    }

    void Reset() noexcept
    {
        if (SRowSet* const old = std::exchange(rows_, nullptr))
            mapi::FreeProws(old);
    }
    SRowSet* Get() const noexcept { return rows_; }
    // The place for an out-parameter; what was held is freed first.
    SRowSet** Put() noexcept
    {
        Reset();
        return &rows_;
    }

    ULONG Count() const noexcept { return rows_ ? rows_->cRows : 0; }
    std::span<SRow> Rows() const noexcept
    {
        return rows_ ? std::span<SRow>(rows_->aRow, rows_->cRows) : std::span<SRow>();
    }
    auto begin() const noexcept { return Rows().begin(); }
    auto end() const noexcept { return Rows().end(); }

private:
    SRowSet* rows_ = nullptr;
};

// The property of that very tag among a row's, or null. Borrowed from the row.
inline SPropValue* FindProp(const SRow& row, ULONG tag) noexcept
{
    return mapi::PpropFindProp(row.lpProps, row.cValues, tag);
}

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_STOREACCESS_MAPI_MEMORY_H_
