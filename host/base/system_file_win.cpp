#include "host/base/system_file.h"

#include <windows.h>

#include <algorithm>

#include "host/base/errors.h"
#include "host/base/files.h"

namespace quorvane::host {

namespace {

constexpr std::size_t kMostAtOnce = std::size_t{1} << 30;

HANDLE HandleOf(std::intptr_t handle) noexcept
{
    return reinterpret_cast<HANDLE>(handle);
}

HANDLE Open(const std::filesystem::path& path, SystemFile::Use use)
{
    const bool isThere = use != SystemFile::Use::kWrite;
    const bool reads = use == SystemFile::Use::kRead;
    const DWORD sharing = isThere ? FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE : FILE_SHARE_READ;
    // What is flushed has to be open to write.
    HANDLE const handle =
        CreateFileW(path.c_str(), reads ? GENERIC_READ : GENERIC_WRITE, sharing, nullptr,
                    isThere ? OPEN_EXISTING : CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE)
        Fail(reads ? "read" : "write", path.string(), DescribeSystemError(GetLastError()));
    return handle;
}

}  // namespace

SystemFile::SystemFile(const std::filesystem::path& path, Use use)
    : path_(path.string()), handle_(reinterpret_cast<std::intptr_t>(Open(path, use)))
{}

SystemFile::~SystemFile()
{
    CloseHandle(HandleOf(handle_));
}

std::size_t SystemFile::Read(char* buffer, std::size_t size) const
{
    DWORD count = 0;
    const auto wanted = static_cast<DWORD>(std::min(size, kMostAtOnce));
    if (!ReadFile(HandleOf(handle_), buffer, wanted, &count, nullptr))
        Fail("read", path_, DescribeSystemError(GetLastError()));
    return count;
}

void SystemFile::Seek(std::uint64_t position) const
{
    LARGE_INTEGER to{};
    to.QuadPart = static_cast<LONGLONG>(position);
    if (!SetFilePointerEx(HandleOf(handle_), to, nullptr, FILE_BEGIN))
        Fail("read", path_, DescribeSystemError(GetLastError()));
}

void SystemFile::Write(const char* data, std::size_t size) const
{
    while (size > 0) {
        DWORD count = 0;
        const auto wanted = static_cast<DWORD>(std::min(size, kMostAtOnce));
        if (!WriteFile(HandleOf(handle_), data, wanted, &count, nullptr))
            Fail("write", path_, DescribeSystemError(GetLastError()));
        data += count;
        size -= count;
    }
}

void SystemFile::Sync() const
{
    if (!FlushFileBuffers(HandleOf(handle_)))
        Fail("flush", path_, DescribeSystemError(GetLastError()));
}

void RenameOver(const std::filesystem::path& from, const std::filesystem::path& to)
{
    if (!MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
        Fail("write", to.string(), DescribeSystemError(GetLastError()));
}

bool RenameToNew(const std::filesystem::path& from, const std::filesystem::path& to)
{
    if (MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_WRITE_THROUGH))
        return true;
    const DWORD failure = GetLastError();
    if (failure != ERROR_ALREADY_EXISTS && failure != ERROR_FILE_EXISTS)
        Fail("write", to.string(), DescribeSystemError(failure));
    return false;
}

// A rename that is written through needs no more.
void SyncDirectory(const std::filesystem::path&) {}

}  // namespace quorvane::host
