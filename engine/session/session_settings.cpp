#include <new>
#include <string>

#include "engine/session/context/addin.h"
#include "engine/session/session.h"
#include "engine/session/trace/trace.h"
#include "platform/registry/registry.h"

namespace quorvane {

namespace {

// Throws std::bad_alloc.
std::string SettingsPath(BSTR productCode)
{
    return "Software\\Brindlemoor\\Quorvane\\1.0\\" + Narrow(ViewOf(productCode)) + "\\Settings";
}

// Throws std::bad_alloc.
void TakeValue(const RegistryValue& setting, Variant& value)
{
    if (setting.type == RegistryType::Text)
        value = Variant::Text(Widen(setting.Text()));
    else if (setting.type == RegistryType::Dword)
        value = Variant::Long(static_cast<LONG>(setting.Number()));
}

}  // namespace

HRESULT CSession2::GetRegSetting(OleStringView Name, Variant& Value) noexcept
{
    const Traced traced{"CSession2::GetRegSetting"};
    Addin addin;
    HR_TRY(traced, addin.Connect(*this));
    Bstr productCode;
    HR_TRY(traced, addin.ProductCode(productCode));
    try {
        RegistryKey key;
        HR_TRY_QUIET(
            key.Open(RegistryHive::CurrentUser, SettingsPath(productCode.Get()), RegistryAccess::ReadWrite));
        RegistryValue setting;
        // Whether there is one is asked first; after that it should be there.
        HR_TRY_QUIET(key.Query(Narrow(Name), setting));
        HR_TRY(traced, key.Query(Narrow(Name), setting));
        TakeValue(setting, Value);
        return S_OK;
    } catch (const std::bad_alloc&) {
        return traced(E_OUTOFMEMORY);
    }
}

}  // namespace quorvane
