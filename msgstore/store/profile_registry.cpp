#include "msgstore/store/profile_registry.h"

#include <algorithm>

#include "platform/registry/registry.h"

namespace quorvane {
namespace {

constexpr std::string_view kProfilesKey = R"(Software\Brindlemoor\Quorvane\Message Store\Profiles)";
constexpr std::string_view kDefaultProfile = "DefaultProfile";
constexpr std::string_view kDisplayName = "DisplayName";
constexpr std::string_view kPath = "Path";
constexpr std::string_view kStore = "Store";
constexpr std::size_t kLongestName = 64;
constexpr RegistryHive kHive = RegistryHive::CurrentUser;

std::string KeyOf(std::string_view profile)
{
    return std::string(kProfilesKey).append("\\").append(profile);
}

std::string HexOf(const ObjectGuid& guid)
{
    std::string text(2 * guid.size() + 1, '\0');
    ObjectGuid bytes = guid;
    HexFromBin(bytes.data(), static_cast<INT>(bytes.size()), reinterpret_cast<LPTSTR>(text.data()));
    text.resize(2 * guid.size());
    return text;
}

bool GuidFromHex(std::string text, ObjectGuid& guid)
{
    return text.size() == 2 * guid.size() && FBinFromHex(reinterpret_cast<LPTSTR>(text.data()), guid.data());
}

// The registry has its own code for what isn't there.
HRESULT NotFoundOr(HRESULT result) noexcept
{
    return result == HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND) ? MAPI_E_NOT_FOUND : result;
}

HRESULT OpenProfile(const std::string& profile, RegistryAccess access, RegistryKey& key)
{
    if (!IsProfileName(profile))
        return MAPI_E_NOT_FOUND;
    return NotFoundOr(key.Open(kHive, KeyOf(profile), access));
}

std::string TextIn(const RegistryKey& key, std::string_view name)
{
    RegistryValue value;
    if (FAILED(key.Query(name, value)))
        return {};
    return std::string(value.Text());
}

// False for a key that is none of a service.
bool ReadService(const std::string& profile, const std::string& name, StoreService& service)
{
    RegistryKey key;
    if (!GuidFromHex(name, service.uid) || FAILED(key.Open(kHive, KeyOf(profile) + "\\" + name)))
        return false;
    service.displayName = TextIn(key, kDisplayName);
    service.path = TextIn(key, kPath);
    if (!GuidFromHex(TextIn(key, kStore), service.store))
        service.path.clear();
    return true;
}

}  // namespace

bool IsProfileName(std::string_view name) noexcept
{
    const auto isRefused = [](char c) {
        return c == '\\' || static_cast<unsigned char>(c) < ' ' || c == '\x7F';
    };
    return !name.empty() && name.size() <= kLongestName && std::none_of(name.begin(), name.end(), isRefused);
}

HRESULT ListProfiles(std::vector<std::string>& names)
{
    names.clear();
    RegistryKey key;
    const HRESULT opened = NotFoundOr(key.Open(kHive, kProfilesKey));
    if (opened == MAPI_E_NOT_FOUND)
        return S_OK;
    QV_RETURN_IF_FAILED(opened);
    return key.SubkeyNames(names);
}

HRESULT ReadDefaultProfile(std::string& name)
{
    RegistryKey key;
    QV_RETURN_IF_FAILED(NotFoundOr(key.Open(kHive, kProfilesKey)));
    name = TextIn(key, kDefaultProfile);
    return name.empty() ? MAPI_E_NOT_FOUND : S_OK;
}

HRESULT WriteDefaultProfile(const std::string& name)
{
    RegistryKey profile;
    QV_RETURN_IF_FAILED(OpenProfile(name, RegistryAccess::Read, profile));
    RegistryKey key;
    QV_RETURN_IF_FAILED(key.Create(kHive, kProfilesKey));
    return key.Set(kDefaultProfile, RegistryValue::OfText(name));
}

HRESULT CreateProfileKey(const std::string& name)
{
    if (!IsProfileName(name))
        return MAPI_E_INVALID_PARAMETER;
    RegistryKey key;
    const HRESULT opened = OpenProfile(name, RegistryAccess::Read, key);
    if (SUCCEEDED(opened))
        return MAPI_E_NO_ACCESS;
    if (opened != MAPI_E_NOT_FOUND)
        return opened;
    return key.Create(kHive, KeyOf(name));
}

HRESULT DeleteProfileKey(const std::string& name)
{
    RegistryKey profile;
    QV_RETURN_IF_FAILED(OpenProfile(name, RegistryAccess::Read, profile));
    profile.Close();
    QV_RETURN_IF_FAILED(NotFoundOr(RegistryKey::DeleteTree(kHive, KeyOf(name))));
    std::string standard;
    if (FAILED(ReadDefaultProfile(standard)) || standard != name)
        return S_OK;
    RegistryKey key;
    QV_RETURN_IF_FAILED(key.Open(kHive, kProfilesKey, RegistryAccess::ReadWrite));
    return key.DeleteValue(kDefaultProfile);
}

HRESULT ReadServices(const std::string& profile, std::vector<StoreService>& services)
{
    services.clear();
    RegistryKey key;
    QV_RETURN_IF_FAILED(OpenProfile(profile, RegistryAccess::Read, key));
    std::vector<std::string> names;
    QV_RETURN_IF_FAILED(key.SubkeyNames(names));
    for (const std::string& name : names) {
        StoreService service;
        if (ReadService(profile, name, service))
            services.push_back(std::move(service));
    }
    return S_OK;
}

HRESULT WriteService(const std::string& profile, const StoreService& service)
{
    RegistryKey its;
    QV_RETURN_IF_FAILED(OpenProfile(profile, RegistryAccess::Read, its));
    RegistryKey key;
    QV_RETURN_IF_FAILED(key.Create(kHive, KeyOf(profile) + "\\" + HexOf(service.uid)));
    QV_RETURN_IF_FAILED(key.Set(kDisplayName, RegistryValue::OfText(service.displayName)));
    if (service.path.empty())
        return S_OK;
    QV_RETURN_IF_FAILED(key.Set(kPath, RegistryValue::OfText(service.path)));
    return key.Set(kStore, RegistryValue::OfText(HexOf(service.store)));
}

HRESULT DeleteService(const std::string& profile, const ObjectGuid& uid)
{
    RegistryKey key;
    QV_RETURN_IF_FAILED(OpenProfile(profile, RegistryAccess::Read, key));
    key.Close();
    return NotFoundOr(RegistryKey::DeleteTree(kHive, KeyOf(profile) + "\\" + HexOf(uid)));
}

}  // namespace quorvane
