#include "platform/module/module.h"

#include <dlfcn.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <new>

#include "platform/file/path.h"
#include "platform/module/module_exports.h"

namespace quorvane {

namespace {

constexpr std::string_view kWindowsExtension = ".dll";
// Where an installation keeps the libraries whose names are no names of its own.
constexpr std::string_view kInstalledFolder = "quorvane3";

char Lower(char c) noexcept
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool HasWindowsExtension(std::string_view name) noexcept
{
    if (name.size() <= kWindowsExtension.size())
        return false;
    const std::string_view end = name.substr(name.size() - kWindowsExtension.size());
    for (size_t i = 0; i < end.size(); ++i) {
        if (Lower(end[i]) != kWindowsExtension[i])
            return false;
    }
    return true;
}

// x.dll is libx.so here.
std::string LocalFileName(std::string_view name)
{
    if (!HasWindowsExtension(name))
        return std::string(name);
    std::string local = "lib";
    for (const char c : name.substr(0, name.size() - kWindowsExtension.size()))
        local += Lower(c);
    return local + ".so";
}

HRESULT FindFile(std::string_view path, std::string& file)
{
    const bool hasDirectory = path.find('/') != std::string_view::npos;
    std::string directory(DirectoryOf(path));
    if (!hasDirectory) {
        const HRESULT hr = SystemDirectory(directory);
        if (FAILED(hr))
            return hr;
    }
    file = JoinPath(directory, LocalFileName(FileNameOf(path)));
    return S_OK;
}

}  // namespace

HRESULT SystemDirectory(std::string& path) noexcept
{
    try {
        const char* const chosen = std::getenv("QUORVANE_SYSTEM_DIR");
        if (chosen && *chosen) {
            path = chosen;
            return S_OK;
        }
        Dl_info info{};
        if (!dladdr(reinterpret_cast<const void*>(&SystemDirectory), &info) || !info.dli_fname)
            return HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND);
        // The program itself is told by the name it was started under, which may lead nowhere by now.
        std::unique_ptr<char, decltype(&std::free)> whole(realpath(info.dli_fname, nullptr), &std::free);
        if (!whole)
            whole.reset(realpath("/proc/self/exe", nullptr));
        if (!whole)
            return HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND);
        path = DirectoryOf(whole.get());
        std::error_code ignored;
        const std::string installed = JoinPath(path, kInstalledFolder);
        if (std::filesystem::is_directory(installed, ignored))
            path = installed;
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT Module::Load(std::string_view path) noexcept
{
    handle_ = nullptr;
    try {
        std::string file;
        const HRESULT hr = FindFile(path, file);
        if (FAILED(hr))
            return hr;
        if (FileNameOf(path).empty())
            return HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND);
        handle_ = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
        return handle_ ? S_OK : HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

void* Module::Find(const char* name) const noexcept
{
    if (!handle_ || !name)
        return nullptr;
    if (void* const found = dlsym(handle_, name))
        return found;
    const auto byName =
        reinterpret_cast<decltype(&QuorvaneModuleExport)>(dlsym(handle_, kQuorvaneModuleExportName));
    return byName ? byName(name) : nullptr;
}

}  // namespace quorvane
