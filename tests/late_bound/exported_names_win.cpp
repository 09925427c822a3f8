#include "quorvane3/com.h"
#include "tests/late_bound/exported_names.h"

namespace quorvane::test {

std::set<std::string> ExportedNames(const std::string& path)
{
    const HMODULE module = LoadLibraryA(path.c_str());
    if (!module)
        return {};
    const auto* const base = reinterpret_cast<const BYTE*>(module);
    const auto& dos = *reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
    const auto& headers = *reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos.e_lfanew);
    const DWORD place = headers.OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT].VirtualAddress;
    std::set<std::string> names;
    if (place != 0) {
        const auto& directory = *reinterpret_cast<const IMAGE_EXPORT_DIRECTORY*>(base + place);
        const auto* const places = reinterpret_cast<const DWORD*>(base + directory.AddressOfNames);
        for (DWORD i = 0; i < directory.NumberOfNames; ++i)
            names.insert(reinterpret_cast<const char*>(base + places[i]));
    }
    FreeLibrary(module);
    return names;
}

}  // namespace quorvane::test
