#include <algorithm>
#include <new>

#include "platform/bytes/file_store.h"
#include "platform/com/result.h"

namespace quorvane {
namespace {

// other: the code for an error that has none of its own.
HRESULT FromWin32(DWORD error, HRESULT other) noexcept
{
    switch (error) {
        case ERROR_FILE_NOT_FOUND:
            return STG_E_FILENOTFOUND;
        case ERROR_PATH_NOT_FOUND:
            return STG_E_PATHNOTFOUND;
        case ERROR_ALREADY_EXISTS:
        case ERROR_FILE_EXISTS:
            return STG_E_FILEALREADYEXISTS;
        case ERROR_ACCESS_DENIED:
        case ERROR_WRITE_PROTECT:
            return STG_E_ACCESSDENIED;
        case ERROR_SHARING_VIOLATION:
            return STG_E_SHAREVIOLATION;
        case ERROR_LOCK_VIOLATION:
            return STG_E_LOCKVIOLATION;
        case ERROR_TOO_MANY_OPEN_FILES:
            return STG_E_TOOMANYOPENFILES;
        case ERROR_INVALID_NAME:
            return STG_E_INVALIDNAME;
        case ERROR_DISK_FULL:
        case ERROR_HANDLE_DISK_FULL:
            return STG_E_MEDIUMFULL;
        case ERROR_NOT_ENOUGH_MEMORY:
            return E_OUTOFMEMORY;
        default:
            return other;
    }
}

class WinFileStore final : public ByteStore {
public:
    explicit WinFileStore(HANDLE file) noexcept : file_(file) {}
    WinFileStore(const WinFileStore&) = delete;
    WinFileStore& operator=(const WinFileStore&) = delete;
    ~WinFileStore() override { ::CloseHandle(file_); }

    HRESULT ReadAt(std::uint64_t offset, void* to, std::size_t count, std::size_t* read) noexcept override
    {
        *read = 0;
        while (*read < count) {
            OVERLAPPED place = PlaceOf(offset + *read);
            DWORD part = 0;
            if (!::ReadFile(file_, static_cast<BYTE*>(to) + *read, PartOf(count - *read), &part, &place)) {
                const DWORD error = ::GetLastError();
                return error == ERROR_HANDLE_EOF ? S_OK : FromWin32(error, STG_E_READFAULT);
            }
            if (part == 0)
                break;
            *read += part;
        }
        return S_OK;
    }

    HRESULT WriteAt(std::uint64_t offset, const void* from, std::size_t count) noexcept override
    {
        for (std::size_t done = 0; done < count;) {
            OVERLAPPED place = PlaceOf(offset + done);
            DWORD part = 0;
            if (!::WriteFile(file_, static_cast<const BYTE*>(from) + done, PartOf(count - done), &part,
                             &place))
                return FromWin32(::GetLastError(), STG_E_WRITEFAULT);
            done += part;
        }
        return S_OK;
    }

    HRESULT SetSize(std::uint64_t size) noexcept override
    {
        FILE_END_OF_FILE_INFO end;
        end.EndOfFile.QuadPart = static_cast<LONGLONG>(size);
        const BOOL set = ::SetFileInformationByHandle(file_, FileEndOfFileInfo, &end, sizeof end);
        return set ? S_OK : FromWin32(::GetLastError(), STG_E_WRITEFAULT);
    }

    HRESULT GetSize(std::uint64_t* size) noexcept override
    {
        LARGE_INTEGER value;
        if (!::GetFileSizeEx(file_, &value))
            return FromWin32(::GetLastError(), STG_E_READFAULT);
        *size = static_cast<std::uint64_t>(value.QuadPart);
        return S_OK;
    }

private:
    static OVERLAPPED PlaceOf(std::uint64_t offset) noexcept
    {
        OVERLAPPED place{};
        place.Offset = static_cast<DWORD>(offset);
        place.OffsetHigh = static_cast<DWORD>(offset >> 32);
        return place;
    }
    static DWORD PartOf(std::size_t count) noexcept
    {
        return static_cast<DWORD>(std::min<std::size_t>(count, std::size_t{1} << 30));
    }

    HANDLE file_;
};

struct OpenArguments {
    DWORD access;
    DWORD share;
    DWORD disposition;
};

OpenArguments ArgumentsFor(FileUse use) noexcept
{
    switch (use) {
        case FileUse::kCreate:
            return {GENERIC_READ | GENERIC_WRITE, 0, CREATE_NEW};
        case FileUse::kCreateAnew:
            return {GENERIC_READ | GENERIC_WRITE, 0, OPEN_ALWAYS};
        case FileUse::kReadWrite:
            return {GENERIC_READ | GENERIC_WRITE, 0, OPEN_EXISTING};
        case FileUse::kRead:
            return {GENERIC_READ, 0, OPEN_EXISTING};
        case FileUse::kReadSharing:
            return {GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING};
        case FileUse::kPeek:
            break;
    }
    return {GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, OPEN_EXISTING};
}

bool IsDirectory(LPCOLESTR path) noexcept
{
    const DWORD attributes = ::GetFileAttributesW(path);
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

}  // namespace

HRESULT OpenFileStore(LPCOLESTR path, FileUse use, std::unique_ptr<ByteStore>* store) noexcept
{
    if (path[0] == 0)
        return STG_E_INVALIDNAME;
    const OpenArguments arguments = ArgumentsFor(use);
    const HANDLE file = ::CreateFileW(path, arguments.access, arguments.share, nullptr, arguments.disposition,
                                      FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        const HRESULT hr = FromWin32(::GetLastError(), STG_E_ACCESSDENIED);
        return hr == STG_E_ACCESSDENIED && IsDirectory(path) ? STG_E_INVALIDNAME : hr;
    }
    auto* const opened = new (std::nothrow) WinFileStore(file);
    if (!opened) {
        ::CloseHandle(file);
        return E_OUTOFMEMORY;
    }
    store->reset(opened);
    return S_OK;
}

}  // namespace quorvane
