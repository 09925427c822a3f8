#include <new>

#include "platform/file/path.h"
#include "platform/file/system_error.h"
#include "platform/file/temp_file.h"

namespace quorvane {

HRESULT MakeTempFileName(std::string_view directory, std::string_view prefix, std::string& path) noexcept
{
    if (!IsPlainFileName(prefix))
        return HRESULT_FROM_WIN32(ERROR_INVALID_PARAMETER);
    try {
        char name[MAX_PATH];
        const std::string where(directory.empty() ? "." : directory);
        if (GetTempFileNameA(where.c_str(), std::string(prefix).c_str(), 0, name) == 0) {
            const HRESULT hr = LastSystemError();
            return hr == HRESULT_FROM_WIN32(ERROR_DIRECTORY) ? HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND) : hr;
        }
        path = name;
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

}  // namespace quorvane
