#include "platform/file/file.h"

#include <algorithm>

#include "platform/file/system_error.h"

namespace quorvane {

namespace {

constexpr size_t kMaxTransfer = 0x7FFFF000;

HANDLE HandleOf(std::intptr_t handle) noexcept
{
    return reinterpret_cast<HANDLE>(handle);
}

DWORD AccessRights(FileAccess access) noexcept
{
    switch (access) {
        case FileAccess::Read:
            return GENERIC_READ;
        case FileAccess::Write:
            return GENERIC_WRITE;
        case FileAccess::ReadWrite:
            return GENERIC_READ | GENERIC_WRITE;
        default:
            // Without the right to write elsewhere every write goes to the end.
            return FILE_APPEND_DATA | FILE_WRITE_ATTRIBUTES | SYNCHRONIZE;
    }
}

DWORD Disposition(FileMode mode) noexcept
{
    switch (mode) {
        case FileMode::OpenAlways:
            return OPEN_ALWAYS;
        case FileMode::CreateNew:
            return CREATE_NEW;
        case FileMode::CreateAlways:
            return CREATE_ALWAYS;
        case FileMode::TruncateExisting:
            return TRUNCATE_EXISTING;
        default:
            return OPEN_EXISTING;
    }
}

OVERLAPPED At(std::uint64_t offset) noexcept
{
    OVERLAPPED place{};
    place.Offset = static_cast<DWORD>(offset);
    place.OffsetHigh = static_cast<DWORD>(offset >> 32);
    return place;
}

// Repeats a transfer until all is done or the end is reached. `transfer(done, count, &part)` gives a BOOL.
template <class Transfer>
HRESULT TransferAll(size_t count, size_t& done, Transfer&& transfer) noexcept
{
    done = 0;
    while (done < count) {
        DWORD part = 0;
        if (!transfer(done, static_cast<DWORD>(std::min(count - done, kMaxTransfer)), &part))
            return GetLastError() == ERROR_HANDLE_EOF ? S_OK : LastSystemError();
        if (part == 0)
            break;
        done += part;
    }
    return S_OK;
}

// Files have signed sizes.
bool ReachesTooFar(std::uint64_t offset, size_t count) noexcept
{
    constexpr std::uint64_t kMost = INT64_MAX;
    return offset > kMost || count > kMost - offset;
}

HRESULT WholeWrite(HRESULT hr, size_t done, size_t count) noexcept
{
    return SUCCEEDED(hr) && done < count ? HRESULT_FROM_WIN32(ERROR_DISK_FULL) : hr;
}

}  // namespace

HRESULT File::Open(const std::string& path, FileAccess access, FileMode mode, FileShare share) noexcept
{
    static_assert(FILE_SHARE_READ == 1 && FILE_SHARE_WRITE == 2 && FILE_SHARE_DELETE == 4);
    Close();
    // A path with a zero byte would name another file than it says.
    if (path.find('\0') != std::string::npos)
        return HRESULT_FROM_WIN32(ERROR_INVALID_NAME);
    HANDLE const handle = CreateFileA(path.c_str(), AccessRights(access), static_cast<DWORD>(share), nullptr,
                                      Disposition(mode), FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE)
        return LastSystemError();
    handle_ = reinterpret_cast<std::intptr_t>(handle);
    return S_OK;
}

void File::Close() noexcept
{
    const std::intptr_t handle = std::exchange(handle_, kNoHandle);
    if (handle != kNoHandle)
        CloseHandle(HandleOf(handle));
}

HRESULT File::Read(void* buffer, size_t count, size_t& read) noexcept
{
    return TransferAll(count, read, [&](size_t done, DWORD part, DWORD* got) {
        return ReadFile(HandleOf(handle_), static_cast<char*>(buffer) + done, part, got, nullptr);
    });
}

HRESULT File::Write(const void* buffer, size_t count) noexcept
{
    size_t written = 0;
    const HRESULT hr = TransferAll(count, written, [&](size_t done, DWORD part, DWORD* put) {
        return WriteFile(HandleOf(handle_), static_cast<const char*>(buffer) + done, part, put, nullptr);
    });
    return WholeWrite(hr, written, count);
}

HRESULT File::ReadAt(std::uint64_t offset, void* buffer, size_t count, size_t& read) noexcept
{
    read = 0;
    if (ReachesTooFar(offset, count))
        return HRESULT_FROM_WIN32(ERROR_INVALID_PARAMETER);
    return TransferAll(count, read, [&](size_t done, DWORD part, DWORD* got) {
        OVERLAPPED place = At(offset + done);
        return ReadFile(HandleOf(handle_), static_cast<char*>(buffer) + done, part, got, &place);
    });
}

HRESULT File::WriteAt(std::uint64_t offset, const void* buffer, size_t count) noexcept
{
    if (ReachesTooFar(offset, count))
        return HRESULT_FROM_WIN32(ERROR_INVALID_PARAMETER);
    size_t written = 0;
    const HRESULT hr = TransferAll(count, written, [&](size_t done, DWORD part, DWORD* put) {
        OVERLAPPED place = At(offset + done);
        return WriteFile(HandleOf(handle_), static_cast<const char*>(buffer) + done, part, put, &place);
    });
    return WholeWrite(hr, written, count);
}

HRESULT File::Seek(std::int64_t offset, SeekFrom from, std::uint64_t* position) noexcept
{
    constexpr DWORD kOrigins[] = {FILE_BEGIN, FILE_CURRENT, FILE_END};
    LARGE_INTEGER move;
    LARGE_INTEGER result;
    move.QuadPart = offset;
    if (!SetFilePointerEx(HandleOf(handle_), move, &result, kOrigins[static_cast<int>(from)]))
        return LastSystemError();
    if (position)
        *position = static_cast<std::uint64_t>(result.QuadPart);
    return S_OK;
}

HRESULT File::GetSize(std::uint64_t& size) const noexcept
{
    LARGE_INTEGER result;
    if (!GetFileSizeEx(HandleOf(handle_), &result))
        return LastSystemError();
    size = static_cast<std::uint64_t>(result.QuadPart);
    return S_OK;
}

HRESULT File::SetSize(std::uint64_t size) noexcept
{
    FILE_END_OF_FILE_INFO end;
    end.EndOfFile.QuadPart = static_cast<LONGLONG>(size);
    const BOOL set = SetFileInformationByHandle(HandleOf(handle_), FileEndOfFileInfo, &end, sizeof(end));
    return set ? S_OK : LastSystemError();
}

HRESULT File::Sync() noexcept
{
    return FlushFileBuffers(HandleOf(handle_)) ? S_OK : LastSystemError();
}

}  // namespace quorvane
