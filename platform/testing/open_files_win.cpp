#include <windows.h>

#include "platform/testing/open_files.h"

namespace quorvane::test {

// Nobody may open a file for himself alone that is open.
bool IsOpen(const std::filesystem::path& file)
{
    const HANDLE alone = CreateFileW(file.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    if (alone == INVALID_HANDLE_VALUE)
        return GetLastError() == ERROR_SHARING_VIOLATION;
    CloseHandle(alone);
    return false;
}

}  // namespace quorvane::test
