#include "msgstore/props/spool_value.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "msgstore/util/guarded.h"

namespace quorvane {
namespace {

constexpr std::uint64_t kMemoryLimit = 1024 * 1024;
// MAPI counts a value's bytes in 32 bits.
constexpr std::uint64_t kSizeLimit = 0xFFFFFFFF;

bool SeekTo(std::FILE* file, std::uint64_t offset) noexcept
{
    const auto position = static_cast<long>(offset);
    return static_cast<std::uint64_t>(position) == offset && std::fseek(file, position, SEEK_SET) == 0;
}

}  // namespace

std::uint64_t SpoolValue::Size() const noexcept
{
    const std::lock_guard lock(mutex_);
    return size_;
}

HRESULT SpoolValue::ReadAt(std::uint64_t offset, void* buffer, ULONG count, ULONG& read) noexcept
{
    const std::lock_guard lock(mutex_);
    read = 0;
    if (offset >= size_)
        return S_OK;
    const auto wanted = static_cast<ULONG>(std::min<std::uint64_t>(count, size_ - offset));
    if (wanted == 0)
        return S_OK;
    if (!file_) {
        std::memcpy(buffer, memory_.data() + offset, wanted);
    } else if (!SeekTo(file_.get(), offset) || std::fread(buffer, 1, wanted, file_.get()) != wanted) {
        return MAPI_E_DISK_ERROR;
    }
    read = wanted;
    return S_OK;
}

HRESULT SpoolValue::WriteAt(std::uint64_t offset, const void* buffer, ULONG count) noexcept
{
    const std::lock_guard lock(mutex_);
    return Guarded([&] { return WriteLocked(offset, buffer, count); });
}

HRESULT SpoolValue::Resize(std::uint64_t size) noexcept
{
    const std::lock_guard lock(mutex_);
    return Guarded([&] { return ResizeLocked(size); });
}

HRESULT SpoolValue::Assign(LargeValue& other) noexcept
{
    return Guarded([&]() -> HRESULT {
        Bytes block(256 * 1024);
        QV_RETURN_IF_FAILED(Resize(0));
        for (std::uint64_t at = 0; at < other.Size();) {
            ULONG read = 0;
            QV_RETURN_IF_FAILED(other.ReadAt(at, block.data(), static_cast<ULONG>(block.size()), read));
            if (read == 0)
                return MAPI_E_CORRUPT_DATA;
            QV_RETURN_IF_FAILED(WriteAt(at, block.data(), read));
            at += read;
        }
        return S_OK;
    });
}

HRESULT SpoolValue::WriteLocked(std::uint64_t offset, const void* buffer, ULONG count)
{
    if (count == 0)
        return S_OK;
    if (offset > kSizeLimit - count)
        return STG_E_MEDIUMFULL;
    const std::uint64_t end = offset + count;
    if (!file_ && end <= kMemoryLimit) {
        if (end > size_)
            QV_RETURN_IF_FAILED(ResizeLocked(end));
        std::memcpy(memory_.data() + offset, buffer, count);
        return S_OK;
    }
    if (!file_)
        QV_RETURN_IF_FAILED(MoveToFile());
    if (offset > size_)
        QV_RETURN_IF_FAILED(FileZeros(size_, offset));
    QV_RETURN_IF_FAILED(FileWrite(offset, buffer, count));
    size_ = std::max(size_, end);
    return S_OK;
}

HRESULT SpoolValue::ResizeLocked(std::uint64_t size)
{
    if (size > kSizeLimit)
        return STG_E_MEDIUMFULL;
    if (!file_ && size <= kMemoryLimit) {
        memory_.resize(size);
        size_ = size;
        return S_OK;
    }
    if (!file_)
        QV_RETURN_IF_FAILED(MoveToFile());
    if (size > size_)
        QV_RETURN_IF_FAILED(FileZeros(size_, size));
    size_ = size;
    return S_OK;
}

HRESULT SpoolValue::MoveToFile()
{
    std::unique_ptr<std::FILE, CloseFile> file(std::tmpfile());
    if (!file)
        return MAPI_E_NOT_ENOUGH_DISK;
    file_ = std::move(file);
    const HRESULT hr = memory_.empty() ? S_OK : FileWrite(0, memory_.data(), memory_.size());
    if (FAILED(hr)) {
        file_.reset();
        return hr;
    }
    Bytes().swap(memory_);
    return S_OK;
}

HRESULT SpoolValue::FileWrite(std::uint64_t offset, const void* buffer, std::size_t count) noexcept
{
    // The flush is part of the write, so that a full disk shows here and not at a later read.
    const bool written = SeekTo(file_.get(), offset) && std::fwrite(buffer, 1, count, file_.get()) == count &&
                         std::fflush(file_.get()) == 0;
    return written ? S_OK : MAPI_E_NOT_ENOUGH_DISK;
}

HRESULT SpoolValue::FileZeros(std::uint64_t from, std::uint64_t to) noexcept
{
    static constexpr std::array<BYTE, 4096> kZeros{};
    for (std::uint64_t at = from; at < to;) {
        const auto step = static_cast<std::size_t>(std::min<std::uint64_t>(kZeros.size(), to - at));
        QV_RETURN_IF_FAILED(FileWrite(at, kZeros.data(), step));
        at += step;
    }
    return S_OK;
}

}  // namespace quorvane
