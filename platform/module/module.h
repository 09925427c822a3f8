// platform/module/module.h: libraries that are loaded at run time, and their exports by name.
#ifndef QUORVANE_PLATFORM_MODULE_MODULE_H_
#define QUORVANE_PLATFORM_MODULE_MODULE_H_

#include <string>
#include <string_view>

#include "platform/com/com.h"

namespace quorvane {

// The system directory, without a separator at its end. On Windows the system's. Elsewhere
// $QUORVANE_SYSTEM_DIR; else, of the directory of the module that this code is part of, the folder
// "quorvane3" if there is one, as in an installation, or the directory itself.
//
// ERROR_PATH_NOT_FOUND: it can't be told.
[[nodiscard]] HRESULT SystemDirectory(std::string& path) noexcept;

// A loaded library, or none. Copies are the same library. Libraries are never unloaded, so that what was
// found in them may be kept and called until the process ends. Any thread may call Find.
class Module {
public:
    Module() noexcept = default;

    // Loads a library by path, or finds it if it is loaded.
    //
    // path  [in]  names a file; without a directory one in the system directory alone. Off Windows a
    //             path that ends in ".dll", in any case, stands for the file lib<name>.so in the same
    //             directory, the name in small letters.
    //
    // ERROR_MOD_NOT_FOUND: no such library, or it can't be loaded; nothing is held. E_OUTOFMEMORY.
    [[nodiscard]] HRESULT Load(std::string_view path) noexcept;
    bool IsLoaded() const noexcept { return handle_ != nullptr; }

    // The export of that name, null when there is none. A name that the library doesn't export itself is
    // asked of its QuorvaneModuleExport, if it has one (module_exports.h).
    void* Find(const char* name) const noexcept;

    // The same as a function pointer: Find<decltype(&MAPIFreeBuffer)>("MAPIFreeBuffer").
    template <class Function>
    Function Find(const char* name) const noexcept
    {
        return reinterpret_cast<Function>(Find(name));
    }

private:
    void* handle_ = nullptr;
};

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_MODULE_MODULE_H_
