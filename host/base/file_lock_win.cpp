#include "host/base/file_lock.h"

#include <windows.h>

#include "host/base/errors.h"

namespace quorvane::host {

// The lock is that nobody else may open the file.
FileLock::FileLock(const std::filesystem::path& path, std::string_view what, std::string_view object)
    : handle_(
          reinterpret_cast<std::intptr_t>(CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                                      OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr)))
{
    if (reinterpret_cast<HANDLE>(handle_) != INVALID_HANDLE_VALUE)
        return;
    const DWORD error = GetLastError();
    Fail(what, object,
         error == ERROR_SHARING_VIOLATION ? "another run of this mailbox is under way"
                                          : DescribeSystemError(error));
}

FileLock::~FileLock()
{
    CloseHandle(reinterpret_cast<HANDLE>(handle_));
}

}  // namespace quorvane::host
