// platform/file/system_error.h: the operating system's errors as result codes.
#ifndef QUORVANE_PLATFORM_FILE_SYSTEM_ERROR_H_
#define QUORVANE_PLATFORM_FILE_SYSTEM_ERROR_H_

#include <string>

#include "platform/com/com.h"

namespace quorvane {

// The calling thread's last error (GetLastError, errno) as HRESULT_FROM_WIN32; a failure in any case.
HRESULT LastSystemError() noexcept;

// The Win32 code of an errno value; 0 for 0. A value without a counterpart gives ERROR_GEN_FAILURE.
DWORD Win32FromErrno(int error) noexcept;

// The system's text for a Win32 code, without a line end. Throws std::bad_alloc.
std::string SystemErrorText(DWORD win32Code);

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_FILE_SYSTEM_ERROR_H_
