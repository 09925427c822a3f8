#include <cstdlib>
#include <new>

#include "platform/module/module.h"

namespace quorvane {

HRESULT SystemDirectory(std::string& path) noexcept
{
    char system[MAX_PATH];
    const char* const chosen = std::getenv("QUORVANE_SYSTEM_DIR");
    if (!chosen && GetSystemDirectoryA(system, sizeof(system)) == 0)
        return HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND);
    try {
        path = chosen ? chosen : system;
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

}  // namespace quorvane
