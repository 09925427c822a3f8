#include "msgstore/props/spool_value.h"

#include "msgstore/util/guarded.h"

namespace quorvane {
namespace {

// MAPI counts a value's bytes in 32 bits.
constexpr std::uint64_t kSizeLimit = 0xFFFFFFFF;

HRESULT WriteFailure(HRESULT hr) noexcept
{
    return FAILED(hr) && hr != E_OUTOFMEMORY ? MAPI_E_NOT_ENOUGH_DISK : hr;
}

}  // namespace

std::uint64_t SpoolValue::Size() const noexcept
{
    const std::lock_guard lock(mutex_);
    return bytes_.Size();
}

HRESULT SpoolValue::ReadAt(std::uint64_t offset, void* buffer, ULONG count, ULONG& read) noexcept
{
    const std::lock_guard lock(mutex_);
    std::size_t got = 0;
    const HRESULT hr = bytes_.ReadAt(offset, buffer, count, got);
    read = static_cast<ULONG>(got);
    return FAILED(hr) ? MAPI_E_DISK_ERROR : S_OK;
}

HRESULT SpoolValue::WriteAt(std::uint64_t offset, const void* buffer, ULONG count) noexcept
{
    const std::lock_guard lock(mutex_);
    if (count > 0 && offset > kSizeLimit - count)
        return STG_E_MEDIUMFULL;
    return WriteFailure(bytes_.WriteAt(offset, buffer, count));
}

HRESULT SpoolValue::Resize(std::uint64_t size) noexcept
{
    const std::lock_guard lock(mutex_);
    return size > kSizeLimit ? STG_E_MEDIUMFULL : WriteFailure(bytes_.Resize(size));
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

}  // namespace quorvane
