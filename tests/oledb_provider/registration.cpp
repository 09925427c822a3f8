#include "tests/oledb_provider/registration.h"

#include <string>

#include "platform/com/own_module.h"
#include "tests/oledb_provider/provider.h"

namespace quorvane::test {
namespace {

constexpr OLECHAR kDescription[] = OLESTR("Database provider of the tests");

OleString ClassKey()
{
    OLECHAR text[39] = {};
    StringFromGUID2(kProviderClass, text, static_cast<int>(std::size(text)));
    return OleString(OLESTR("CLSID\\")) + text;
}

LSTATUS Put(const OleString& key, const OLECHAR* name, const OleString& text) noexcept
{
    return RegSetKeyValueW(HKEY_CLASSES_ROOT, key.c_str(), name, REG_SZ, text.c_str(),
                           static_cast<DWORD>((text.size() + 1) * sizeof(OLECHAR)));
}

bool IsOthers() noexcept
{
    CLSID registered{};
    return SUCCEEDED(CLSIDFromProgID(kProviderProgramId, &registered)) &&
           !IsEqualCLSID(registered, kProviderClass);
}

LSTATUS PutAll(const OleString& module)
{
    const OleString key = ClassKey();
    const struct {
        OleString key;
        const OLECHAR* name;
        OleString text;
    } all[] = {{key, nullptr, kDescription},
               {key + OLESTR("\\InprocServer32"), nullptr, module},
               {key + OLESTR("\\InprocServer32"), OLESTR("ThreadingModel"), OLESTR("Both")},
               {key + OLESTR("\\ProgID"), nullptr, kProviderProgramId},
               {key + OLESTR("\\OLE DB Provider"), nullptr, kDescription},
               {kProviderProgramId, nullptr, kDescription},
               {OleString(kProviderProgramId) + OLESTR("\\CLSID"), nullptr, key.substr(6)}};
    for (const auto& one : all) {
        if (const LSTATUS status = Put(one.key, one.name, one.text); status != ERROR_SUCCESS)
            return status;
    }
    return ERROR_SUCCESS;
}

LSTATUS Remove(const OleString& key) noexcept
{
    const LSTATUS status = RegDeleteTreeW(HKEY_CLASSES_ROOT, key.c_str());
    return status == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : status;
}

}  // namespace

HRESULT RegisterProvider() noexcept
{
    try {
        if (IsOthers())
            return CO_E_OBJISREG;
        OleString module;
        if (const HRESULT hr = OwnModulePath(module); FAILED(hr))
            return hr;
        return HRESULT_FROM_WIN32(PutAll(module));
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

HRESULT UnregisterProvider() noexcept
{
    try {
        const LSTATUS program = IsOthers() ? ERROR_SUCCESS : Remove(kProviderProgramId);
        const LSTATUS own = Remove(ClassKey());
        return HRESULT_FROM_WIN32(program != ERROR_SUCCESS ? program : own);
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

}  // namespace quorvane::test
