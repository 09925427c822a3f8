#include <stdexcept>
#include <string>

#include "quorvane3/com.h"
#include "tests/support/registered_library.h"
#include "tests/support/test_directory.h"

namespace quorvane::test {

namespace {

constexpr OLECHAR kNeutralLibrary[] = L"TypeLib\\{8044D363-2CD8-43A6-9C54-EEFEAB467FD3}\\1.0\\0";

// The library beside the running program. It stays loaded until the process ends.
HMODULE Library()
{
    static const HMODULE module = LoadLibraryW(L"quorvane3.dll");
    if (!module)
        throw std::runtime_error("load the library");
    return module;
}

HRESULT CallExport(const char* name)
{
    using Function = HRESULT(STDAPICALLTYPE*)();
    const FARPROC found = GetProcAddress(Library(), name);
    return found ? reinterpret_cast<Function>(reinterpret_cast<void*>(found))() : E_NOTIMPL;
}

// Wine's marshalling looks for a type library of no language alone, Windows' for one of any.
void RegisterWithoutLanguage()
{
    OleString path(MAX_PATH, L'\0');
    path.resize(GetModuleFileNameW(Library(), path.data(), MAX_PATH));
    const OleString key = OleString(kNeutralLibrary) + L"\\win64";
    const LSTATUS status = RegSetValueW(HKEY_CLASSES_ROOT, key.c_str(), REG_SZ, path.c_str(), 0);
    Check(HRESULT_FROM_WIN32(static_cast<DWORD>(status)), "register the type library without a language");
}

}  // namespace

RegisteredLibrary::RegisteredLibrary()
{
    Check(CallExport("DllRegisterServer"), "register the library");
    RegisterWithoutLanguage();
}

RegisteredLibrary::~RegisteredLibrary()
{
    RegDeleteTreeW(HKEY_CLASSES_ROOT, kNeutralLibrary);
    static_cast<void>(CallExport("DllUnregisterServer"));
}

}  // namespace quorvane::test
