#include <algorithm>
#include <limits>

#include "platform/com/nameless_file.h"

namespace quorvane {

namespace {

constexpr std::size_t kMostOfAFile = std::size_t{1} << 30;

HRESULT NamelessError(DWORD error, HRESULT other) noexcept
{
    switch (error) {
        case ERROR_DISK_FULL:
        case ERROR_HANDLE_DISK_FULL:
            return STG_E_MEDIUMFULL;
        case ERROR_ACCESS_DENIED:
        case ERROR_WRITE_PROTECT:
            return STG_E_ACCESSDENIED;
        case ERROR_PATH_NOT_FOUND:
        case ERROR_FILE_NOT_FOUND:
        case ERROR_DIRECTORY:
            return STG_E_PATHNOTFOUND;
        case ERROR_TOO_MANY_OPEN_FILES:
            return STG_E_TOOMANYOPENFILES;
        case ERROR_NOT_ENOUGH_MEMORY:
            return E_OUTOFMEMORY;
        default:
            return other;
    }
}

HANDLE FileOf(std::intptr_t handle) noexcept
{
    return reinterpret_cast<HANDLE>(handle);
}

OVERLAPPED PlaceInFile(std::uint64_t offset) noexcept
{
    OVERLAPPED place{};
    place.Offset = static_cast<DWORD>(offset);
    place.OffsetHigh = static_cast<DWORD>(offset >> 32);
    return place;
}

bool IsPosition(std::uint64_t offset, std::size_t count) noexcept
{
    constexpr auto kMost = static_cast<std::uint64_t>(std::numeric_limits<LONGLONG>::max());
    return offset <= kMost && count <= kMost - offset;
}

}  // namespace

HRESULT NamelessFile::Create() noexcept
{
    WCHAR directory[MAX_PATH + 1];
    WCHAR path[MAX_PATH];
    const DWORD length = ::GetTempPathW(MAX_PATH, directory);
    if (length == 0 || length > MAX_PATH || ::GetTempFileNameW(directory, L"qvs", 0, path) == 0)
        return NamelessError(::GetLastError(), STG_E_WRITEFAULT);
    const HANDLE file = ::CreateFileW(path, GENERIC_READ | GENERIC_WRITE | DELETE, 0, nullptr, CREATE_ALWAYS,
                                      FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        const DWORD error = ::GetLastError();
        ::DeleteFileW(path);
        return NamelessError(error, STG_E_WRITEFAULT);
    }
    Close();
    handle_ = reinterpret_cast<std::intptr_t>(file);
    return S_OK;
}

void NamelessFile::Close() noexcept
{
    if (IsOpen())
        ::CloseHandle(FileOf(handle_));
    handle_ = kNone;
}

HRESULT NamelessFile::ReadAt(std::uint64_t offset, void* buffer, std::size_t count) noexcept
{
    for (std::size_t done = 0; done < count;) {
        OVERLAPPED place = PlaceInFile(offset + done);
        const auto wanted = static_cast<DWORD>(std::min(count - done, kMostOfAFile));
        DWORD part = 0;
        if (!::ReadFile(FileOf(handle_), static_cast<BYTE*>(buffer) + done, wanted, &part, &place) ||
            part == 0)
            return STG_E_READFAULT;
        done += part;
    }
    return S_OK;
}

HRESULT NamelessFile::WriteAt(std::uint64_t offset, const void* buffer, std::size_t count) noexcept
{
    if (!IsPosition(offset, count))
        return STG_E_MEDIUMFULL;
    for (std::size_t done = 0; done < count;) {
        OVERLAPPED place = PlaceInFile(offset + done);
        const auto wanted = static_cast<DWORD>(std::min(count - done, kMostOfAFile));
        DWORD part = 0;
        if (!::WriteFile(FileOf(handle_), static_cast<const BYTE*>(buffer) + done, wanted, &part, &place))
            return NamelessError(::GetLastError(), STG_E_WRITEFAULT);
        done += part;
    }
    return S_OK;
}

HRESULT NamelessFile::Resize(std::uint64_t size) noexcept
{
    if (!IsPosition(size, 0))
        return STG_E_MEDIUMFULL;
    LARGE_INTEGER end;
    end.QuadPart = static_cast<LONGLONG>(size);
    if (!::SetFilePointerEx(FileOf(handle_), end, nullptr, FILE_BEGIN) || !::SetEndOfFile(FileOf(handle_)))
        return NamelessError(::GetLastError(), STG_E_WRITEFAULT);
    return S_OK;
}

}  // namespace quorvane
