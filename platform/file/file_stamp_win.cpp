#include "platform/file/file_stamp.h"

#include "platform/file/file.h"
#include "platform/file/system_error.h"

namespace quorvane {

namespace {

constexpr std::uint64_t Join(DWORD high, DWORD low) noexcept
{
    return (static_cast<std::uint64_t>(high) << 32) | low;
}

HRESULT StampOf(HANDLE handle, FileStamp& stamp) noexcept
{
    BY_HANDLE_FILE_INFORMATION found{};
    if (!GetFileInformationByHandle(handle, &found))
        return LastSystemError();
    stamp = {found.dwVolumeSerialNumber, Join(found.nFileIndexHigh, found.nFileIndexLow),
             Join(found.nFileSizeHigh, found.nFileSizeLow),
             Join(found.ftLastWriteTime.dwHighDateTime, found.ftLastWriteTime.dwLowDateTime)};
    return S_OK;
}

}  // namespace

HRESULT GetPathStamp(const std::string& path, FileStamp& stamp) noexcept
{
    // A path with a zero byte would name another file than it says.
    if (path.find('\0') != std::string::npos)
        return HRESULT_FROM_WIN32(ERROR_INVALID_NAME);
    // Without any right to its contents no sharing mode of others stands in the way.
    HANDLE const handle = CreateFileA(path.c_str(), FILE_READ_ATTRIBUTES,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                      OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (handle == INVALID_HANDLE_VALUE)
        return LastSystemError();
    const HRESULT hr = StampOf(handle, stamp);
    CloseHandle(handle);
    return hr;
}

HRESULT File::GetStamp(FileStamp& stamp) const noexcept
{
    return StampOf(reinterpret_cast<HANDLE>(handle_), stamp);
}

// The system doesn't tell who else has a file open; a rename over the file meets a refusal instead.
bool File::IsWrittenByOthers() const noexcept
{
    return false;
}

}  // namespace quorvane
