#include "platform/bytes/lock_bytes_store.h"

#include <algorithm>

#include "platform/com/result.h"

namespace quorvane {
namespace {

constexpr std::size_t kMostAtOnce = std::size_t{1} << 30;

ULARGE_INTEGER Large(std::uint64_t value) noexcept
{
    ULARGE_INTEGER large;
    large.QuadPart = value;
    return large;
}

}  // namespace

HRESULT LockBytesStore::ReadAt(std::uint64_t offset, void* to, std::size_t count, std::size_t* read) noexcept
{
    *read = 0;
    while (*read < count) {
        ULONG part = 0;
        const auto wanted = static_cast<ULONG>(std::min(count - *read, kMostAtOnce));
        QV_TRY(bytes_->ReadAt(Large(offset + *read), static_cast<BYTE*>(to) + *read, wanted, &part));
        if (part == 0)
            break;
        if (part > wanted)
            return STG_E_READFAULT;
        *read += part;
    }
    return S_OK;
}

HRESULT LockBytesStore::WriteAt(std::uint64_t offset, const void* from, std::size_t count) noexcept
{
    for (std::size_t done = 0; done < count;) {
        ULONG part = 0;
        const auto wanted = static_cast<ULONG>(std::min(count - done, kMostAtOnce));
        QV_TRY(bytes_->WriteAt(Large(offset + done), static_cast<const BYTE*>(from) + done, wanted, &part));
        if (part == 0 || part > wanted)
            return STG_E_WRITEFAULT;
        done += part;
    }
    return S_OK;
}

HRESULT LockBytesStore::SetSize(std::uint64_t size) noexcept
{
    return bytes_->SetSize(Large(size));
}

HRESULT LockBytesStore::GetSize(std::uint64_t* size) noexcept
{
    STATSTG stat{};
    QV_TRY(bytes_->Stat(&stat, STATFLAG_NONAME));
    *size = stat.cbSize.QuadPart;
    return S_OK;
}

}  // namespace quorvane
