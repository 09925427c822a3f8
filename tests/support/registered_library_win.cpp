#include "quorvane3/entry_points.h"
#include "quorvane3/object_model.h"
#include "tests/support/registered_library.h"
#include "tests/support/test_directory.h"

namespace quorvane::test {

namespace {

constexpr LCID kEnglish = 1033;
constexpr OLECHAR kNeutralLibrary[] = L"TypeLib\\{8044D363-2CD8-43A6-9C54-EEFEAB467FD3}\\1.0\\0\\win64";

// Wine's marshalling looks for a type library of no language alone, Windows' for one of any.
void RegisterWithoutLanguage()
{
    Bstr path;
    Check(QueryPathOfRegTypeLib(LIBID_quorvane3, 1, 0, kEnglish, path.Put()), "find the type library");
    const LSTATUS status = RegSetValueW(HKEY_CLASSES_ROOT, kNeutralLibrary, REG_SZ, path.Get(), 0);
    Check(HRESULT_FROM_WIN32(static_cast<DWORD>(status)), "register the type library without a language");
}

}  // namespace

RegisteredLibrary::RegisteredLibrary()
{
    Check(DllRegisterServer(), "register the library");
    RegisterWithoutLanguage();
}

RegisteredLibrary::~RegisteredLibrary()
{
    const OleStringView key = kNeutralLibrary;
    RegDeleteTreeW(HKEY_CLASSES_ROOT, OleString(key.substr(0, key.rfind(L'\\'))).c_str());
    static_cast<void>(DllUnregisterServer());
}

}  // namespace quorvane::test
