#include "platform/file/path.h"

#include <shlobj.h>

#include <algorithm>
#include <new>

#include "platform/file/system_error.h"

namespace quorvane {

namespace {

HRESULT MakeOneDirectory(const std::string& path) noexcept
{
    if (CreateDirectoryA(path.c_str(), nullptr))
        return S_OK;
    const HRESULT hr = LastSystemError();
    const DWORD attributes = GetFileAttributesA(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES)
        return hr;
    return attributes & FILE_ATTRIBUTE_DIRECTORY ? S_FALSE : HRESULT_FROM_WIN32(ERROR_ALREADY_EXISTS);
}

HRESULT ShellFolder(int folder, std::string& path) noexcept
{
    try {
        char buffer[MAX_PATH];
        if (FAILED(SHGetFolderPathA(nullptr, folder, nullptr, 0, buffer)))
            return HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND);
        path = buffer;
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

// Owns the handle of a search.
class Search {
public:
    Search(const std::string& pattern, WIN32_FIND_DATAA& data) noexcept
        : handle_(FindFirstFileA(pattern.c_str(), &data))
    {}
    Search(const Search&) = delete;
    Search& operator=(const Search&) = delete;
    ~Search()
    {
        if (IsOpen())
            FindClose(handle_);
    }

    bool IsOpen() const noexcept { return handle_ != INVALID_HANDLE_VALUE; }
    bool Next(WIN32_FIND_DATAA& data) noexcept { return FindNextFileA(handle_, &data) != 0; }

private:
    const HANDLE handle_;
};

}  // namespace

char PathSeparator() noexcept
{
    return '\\';
}

bool IsPathSeparator(char c) noexcept
{
    return c == '\\' || c == '/';
}

HRESULT GetPathStatus(const std::string& path, PathStatus& status) noexcept
{
    WIN32_FILE_ATTRIBUTE_DATA found;
    if (!GetFileAttributesExA(path.c_str(), GetFileExInfoStandard, &found))
        return LastSystemError();
    status.isDirectory = (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    status.size = (static_cast<std::uint64_t>(found.nFileSizeHigh) << 32) | found.nFileSizeLow;
    status.modified = found.ftLastWriteTime;
    return S_OK;
}

bool PathExists(const std::string& path) noexcept
{
    return GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

HRESULT MakeDirectories(const std::string& path) noexcept
{
    try {
        if (path.empty())
            return HRESULT_FROM_WIN32(ERROR_INVALID_NAME);
        if (IsPathSeparator(path.back()) && FileNameOf(DirectoryOf(path)).size() > 0)
            return MakeDirectories(std::string(DirectoryOf(path)));
        if (PathExists(path))
            return MakeOneDirectory(path);
        const std::string above(DirectoryOf(path));
        if (!above.empty() && above != path && above.back() != ':') {
            const HRESULT hr = MakeDirectories(above);
            if (FAILED(hr))
                return hr;
        }
        return MakeOneDirectory(path);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT RemoveFile(const std::string& path) noexcept
{
    return DeleteFileA(path.c_str()) ? S_OK : LastSystemError();
}

HRESULT RemoveEmptyDirectory(const std::string& path) noexcept
{
    return RemoveDirectoryA(path.c_str()) ? S_OK : LastSystemError();
}

HRESULT RenameOver(const std::string& from, const std::string& to) noexcept
{
    const DWORD flags = MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH;
    return MoveFileExA(from.c_str(), to.c_str(), flags) ? S_OK : LastSystemError();
}

HRESULT SyncDirectory(const std::string&) noexcept
{
    return S_OK;
}

HRESULT ListDirectory(const std::string& path, std::vector<std::string>& names) noexcept
{
    try {
        WIN32_FIND_DATAA data;
        Search search(JoinPath(path, "*"), data);
        if (!search.IsOpen()) {
            const HRESULT hr = LastSystemError();
            // That nothing is found in it is the failure; what is wrong with the directory itself says more.
            return GetFileAttributesA(path.c_str()) == INVALID_FILE_ATTRIBUTES ? LastSystemError() : hr;
        }
        std::vector<std::string> found;
        do {
            const std::string_view name = data.cFileName;
            if (name != "." && name != "..")
                found.emplace_back(name);
        } while (search.Next(data));
        if (GetLastError() != ERROR_NO_MORE_FILES)
            return LastSystemError();
        std::sort(found.begin(), found.end());
        names = std::move(found);
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT TempDirectory(std::string& path) noexcept
{
    try {
        char buffer[MAX_PATH + 1];
        const DWORD length = GetTempPathA(sizeof(buffer), buffer);
        if (length == 0)
            return LastSystemError();
        if (length >= sizeof(buffer))
            return DISP_E_BUFFERTOOSMALL;
        path.assign(buffer, length);
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT LocalAppDataDirectory(std::string& path) noexcept
{
    return ShellFolder(CSIDL_LOCAL_APPDATA, path);
}

HRESULT ConfigDirectory(std::string& path) noexcept
{
    return ShellFolder(CSIDL_APPDATA, path);
}

}  // namespace quorvane
