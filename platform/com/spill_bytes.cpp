#include "platform/com/spill_bytes.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace quorvane {

HRESULT SpillBytes::ReadAt(std::uint64_t offset, void* buffer, std::size_t count, std::size_t& read) noexcept
{
    read = 0;
    if (offset >= size_ || count == 0)
        return S_OK;
    const auto part = static_cast<std::size_t>(std::min<std::uint64_t>(count, size_ - offset));
    if (!file_.IsOpen())
        std::memcpy(buffer, &memory_[static_cast<std::size_t>(offset)], part);
    else if (const HRESULT hr = file_.ReadAt(offset, buffer, part); FAILED(hr))
        return hr;
    read = part;
    return S_OK;
}

HRESULT SpillBytes::WriteAt(std::uint64_t offset, const void* buffer, std::size_t count) noexcept
{
    if (count == 0)
        return S_OK;
    const std::uint64_t end = offset + count;
    if (end < offset)
        return STG_E_MEDIUMFULL;
    const std::uint64_t before = size_;
    if (offset > size_ || (!file_.IsOpen() && end > size_)) {
        if (const HRESULT hr = Resize(end); FAILED(hr))
            return hr;
    }
    if (!file_.IsOpen()) {
        std::memcpy(&memory_[static_cast<std::size_t>(offset)], buffer, count);
        return S_OK;
    }
    const HRESULT hr = file_.WriteAt(offset, buffer, count);
    if (FAILED(hr)) {
        size_ = before;
        return hr;
    }
    size_ = std::max(size_, end);
    return S_OK;
}

HRESULT SpillBytes::Resize(std::uint64_t size) noexcept
{
    if (!file_.IsOpen() && size <= kMemoryLimit)
        return ResizeMemory(size);
    if (!file_.IsOpen()) {
        if (const HRESULT hr = MoveToFile(); FAILED(hr))
            return hr;
    }
    return ResizeFile(size);
}

HRESULT SpillBytes::ResizeMemory(std::uint64_t size) noexcept
{
    try {
        memory_.resize(static_cast<std::size_t>(size));
        size_ = size;
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

// What a failed write, or a failed cut, left behind the end is cut off before the array grows over it.
HRESULT SpillBytes::ResizeFile(std::uint64_t size) noexcept
{
    if (size > size_) {
        if (const HRESULT hr = file_.Resize(size_); FAILED(hr))
            return hr;
    }
    if (const HRESULT hr = file_.Resize(size); FAILED(hr))
        return hr;
    size_ = size;
    return S_OK;
}

HRESULT SpillBytes::MoveToFile() noexcept
{
    HRESULT hr = file_.Create();
    if (SUCCEEDED(hr) && !memory_.empty())
        hr = file_.WriteAt(0, memory_.data(), memory_.size());
    if (FAILED(hr)) {
        file_.Close();
        return hr;
    }
    std::vector<BYTE>().swap(memory_);
    return S_OK;
}

}  // namespace quorvane
