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

HRESULT Module::Load(std::string_view path) noexcept
{
    handle_ = nullptr;
    try {
        handle_ = LoadLibraryA(std::string(path).c_str());
        return handle_ ? S_OK : HRESULT_FROM_WIN32(GetLastError());
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

void* Module::Find(const char* name) const noexcept
{
    if (!handle_ || !name)
        return nullptr;
    return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(handle_), name));
}

}  // namespace quorvane
