#include <new>

#include "platform/com/own_module.h"

namespace quorvane {

HRESULT OwnModulePath(OleString& path) noexcept
{
    HMODULE module = nullptr;
    constexpr DWORD kByAddress =
        GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
    if (!GetModuleHandleExW(kByAddress, reinterpret_cast<LPCWSTR>(&OwnModulePath), &module))
        return HRESULT_FROM_WIN32(GetLastError());
    try {
        OleString found(MAX_PATH, L'\0');
        for (;;) {
            const DWORD length = GetModuleFileNameW(module, found.data(), static_cast<DWORD>(found.size()));
            if (length == 0)
                return HRESULT_FROM_WIN32(GetLastError());
            if (length < found.size()) {
                found.resize(length);
                path = std::move(found);
                return S_OK;
            }
            found.resize(found.size() * 2);
        }
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT OpenOwnTypeLibrary(ComPtr<ITypeLib>& library) noexcept
{
    OleString path;
    const HRESULT hr = OwnModulePath(path);
    return FAILED(hr) ? hr : LoadTypeLibEx(path.c_str(), REGKIND_NONE, library.Put());
}

}  // namespace quorvane
