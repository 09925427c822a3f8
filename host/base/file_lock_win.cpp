#include "host/base/file_lock.h"

#include <windows.h>

#include "host/base/errors.h"

namespace quorvane::host {

// The lock is that nobody else may open the file.
std::unique_ptr<FileLock> FileLock::Take(const std::filesystem::path& path, std::string_view what,
                                         std::string_view object)
{
    HANDLE const file = CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file != INVALID_HANDLE_VALUE)
        return std::unique_ptr<FileLock>(new FileLock(reinterpret_cast<std::intptr_t>(file)));
    const DWORD error = GetLastError();
    if (error != ERROR_SHARING_VIOLATION)
        Fail(what, object, DescribeSystemError(error));
    return nullptr;
}

FileLock::~FileLock()
{
    CloseHandle(reinterpret_cast<HANDLE>(handle_));
}

}  // namespace quorvane::host
