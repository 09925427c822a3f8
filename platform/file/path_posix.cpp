#include "platform/file/path.h"

#include <dirent.h>
#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>

#include "platform/file/posix_file.h"
#include "platform/file/system_error.h"

namespace quorvane {

namespace {

constexpr std::uint64_t kTicksPerSecond = 10'000'000;
constexpr std::int64_t kSecondsFrom1601To1970 = 11'644'473'600;

FILETIME FileTimeOf(const timespec& time) noexcept
{
    const std::int64_t seconds = std::max<std::int64_t>(time.tv_sec + kSecondsFrom1601To1970, 0);
    const std::uint64_t ticks = static_cast<std::uint64_t>(seconds) * kTicksPerSecond +
                                static_cast<std::uint64_t>(time.tv_nsec) / 100;
    return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

struct DirectoryCloser {
    void operator()(DIR* directory) const noexcept { closedir(directory); }
};

HRESULT MakeOneDirectory(const std::string& path) noexcept
{
    if (mkdir(path.c_str(), 0700) == 0)
        return S_OK;
    const int error = errno;
    struct stat status {};
    if (stat(path.c_str(), &status) == 0)
        return S_ISDIR(status.st_mode) ? S_FALSE : HRESULT_FROM_WIN32(ERROR_ALREADY_EXISTS);
    return HRESULT_FROM_WIN32(Win32FromErrno(error));
}

// The home directory from the environment, or else from the user's account.
bool HomeDirectory(std::string& home)
{
    const char* const variable = std::getenv("HOME");
    if (variable && *variable) {
        home = variable;
        return true;
    }
    char buffer[4096];
    passwd account{};
    passwd* found = nullptr;
    if (getpwuid_r(getuid(), &account, buffer, sizeof(buffer), &found) != 0 || !found || !found->pw_dir)
        return false;
    home = found->pw_dir;
    return !home.empty();
}

// A directory of the user by the desktop's conventions, which count absolute paths alone.
HRESULT UserDirectory(const char* variable, std::string_view belowHome, std::string& path) noexcept
{
    try {
        const char* const chosen = std::getenv(variable);
        if (chosen && *chosen == '/') {
            path = chosen;
            return S_OK;
        }
        std::string home;
        if (!HomeDirectory(home))
            return HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND);
        path = JoinPath(home, belowHome);
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

}  // namespace

char PathSeparator() noexcept
{
    return '/';
}

bool IsPathSeparator(char c) noexcept
{
    return c == '/';
}

HRESULT GetPathStatus(const std::string& path, PathStatus& status) noexcept
{
    struct stat found {};
    if (posix::HasZero(path) || stat(path.c_str(), &found) != 0)
        return posix::PathError(path);
    status.isDirectory = S_ISDIR(found.st_mode);
    status.size = status.isDirectory ? 0 : static_cast<std::uint64_t>(found.st_size);
    status.modified = FileTimeOf(found.st_mtim);
    return S_OK;
}

bool PathExists(const std::string& path) noexcept
{
    PathStatus status;
    return SUCCEEDED(GetPathStatus(path, status));
}

HRESULT MakeDirectories(const std::string& path) noexcept
{
    try {
        if (path.empty() || posix::HasZero(path))
            return HRESULT_FROM_WIN32(ERROR_INVALID_NAME);
        HRESULT hr = S_FALSE;
        for (size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
            const std::string part = path.substr(0, end);
            hr = MakeOneDirectory(part);
            if (FAILED(hr) || end == std::string::npos || end + 1 == path.size())
                return hr;
        }
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT RemoveFile(const std::string& path) noexcept
{
    return posix::HasZero(path) || unlink(path.c_str()) != 0 ? posix::PathError(path) : S_OK;
}

HRESULT RemoveEmptyDirectory(const std::string& path) noexcept
{
    return posix::HasZero(path) || rmdir(path.c_str()) != 0 ? posix::PathError(path) : S_OK;
}

HRESULT RenameOver(const std::string& from, const std::string& to) noexcept
{
    if (posix::HasZero(to))
        return posix::PathError(to);
    return posix::HasZero(from) || rename(from.c_str(), to.c_str()) != 0 ? posix::PathError(from) : S_OK;
}

HRESULT SyncDirectory(const std::string& path) noexcept
{
    const int directory = open(path.empty() ? "." : path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directory < 0)
        return posix::PathError(path);
    // Some file systems have nothing to sync in a directory and say so.
    const bool synced = fsync(directory) == 0 || errno == EINVAL || errno == EROFS;
    const HRESULT hr = synced ? S_OK : LastSystemError();
    close(directory);
    return hr;
}

HRESULT ListDirectory(const std::string& path, std::vector<std::string>& names) noexcept
{
    try {
        const std::unique_ptr<DIR, DirectoryCloser> directory(opendir(path.c_str()));
        if (!directory)
            return posix::PathError(path);
        std::vector<std::string> found;
        errno = 0;
        while (const dirent* const entry = readdir(directory.get())) {
            const std::string_view name = entry->d_name;
            if (name != "." && name != "..")
                found.emplace_back(name);
            errno = 0;
        }
        if (errno != 0)
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
        const char* const chosen = std::getenv("TMPDIR");
        path = JoinPath(chosen && *chosen ? chosen : "/tmp", "");
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT LocalAppDataDirectory(std::string& path) noexcept
{
    return UserDirectory("XDG_DATA_HOME", ".local/share", path);
}

HRESULT ConfigDirectory(std::string& path) noexcept
{
    return UserDirectory("XDG_CONFIG_HOME", ".config", path);
}

}  // namespace quorvane
