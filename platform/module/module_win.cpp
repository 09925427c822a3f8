#include <new>

#include "platform/file/path.h"
#include "platform/module/module.h"
#include "platform/module/module_exports.h"

namespace quorvane {

namespace {

// A name alone isn't looked for anywhere but in the system directory: not beside the program, where anyone
// may have put a file of that name.
HRESULT WholePath(std::string_view path, std::string& file)
{
    std::string directory(DirectoryOf(path));
    if (directory.empty()) {
        const HRESULT hr = SystemDirectory(directory);
        if (FAILED(hr))
            return hr;
    }
    file = JoinPath(directory, FileNameOf(path));
    return S_OK;
}

}  // namespace

HRESULT Module::Load(std::string_view path) noexcept
{
    handle_ = nullptr;
    try {
        std::string file;
        const HRESULT hr = WholePath(path, file);
        if (FAILED(hr))
            return hr;
        if (FileNameOf(path).empty())
            return HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND);
        handle_ = LoadLibraryA(file.c_str());
        return handle_ ? S_OK : HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

void* Module::Find(const char* name) const noexcept
{
    if (!handle_ || !name)
        return nullptr;
    const auto module = static_cast<HMODULE>(handle_);
    if (void* const found = reinterpret_cast<void*>(GetProcAddress(module, name)))
        return found;
    const auto byName = reinterpret_cast<decltype(&QuorvaneModuleExport)>(
        reinterpret_cast<void*>(GetProcAddress(module, kQuorvaneModuleExportName)));
    return byName ? byName(name) : nullptr;
}

}  // namespace quorvane
