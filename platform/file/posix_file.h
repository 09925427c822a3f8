// platform/file/posix_file.h: what the POSIX sources of this folder share.
#ifndef QUORVANE_PLATFORM_FILE_POSIX_FILE_H_
#define QUORVANE_PLATFORM_FILE_POSIX_FILE_H_

#include <string>

#include "platform/com/com.h"

namespace quorvane::posix {

// A path with a zero byte would name another file than it says.
inline bool HasZero(const std::string& path) noexcept
{
    return path.find('\0') != std::string::npos;
}

// The failure in errno of an operation on `path`: ERROR_INVALID_NAME for one with a zero byte, and
// ERROR_PATH_NOT_FOUND where the directory is missing rather than the file.
HRESULT PathError(const std::string& path) noexcept;

}  // namespace quorvane::posix

#endif  // QUORVANE_PLATFORM_FILE_POSIX_FILE_H_
