#include <new>

#include "platform/module/module.h"

namespace quorvane {

HRESULT SystemDirectory(std::string& path) noexcept
{
    try {
        char buffer[MAX_PATH];
        const UINT length = GetSystemDirectoryA(buffer, sizeof(buffer));
        if (length == 0 || length >= sizeof(buffer))
            return HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND);
        path.assign(buffer, length);
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

}  // namespace quorvane
