// msgstore/store/profile_registry.h: profiles, kept in the user's registry.
//
//   HKEY_CURRENT_USER\Software\Brindlemoor\Quorvane\Message Store\Profiles
//       DefaultProfile        the default profile's name
//     \<profile>\<service>    the service's uid, 32 hexadecimal digits
//         DisplayName, Path   text of the ANSI code page
//         Store               the store's GUID, 32 hexadecimal digits; missing until the service is
//         configured
//
// Every call reads the registry anew. Any thread may call. Names have no case.
#ifndef QUORVANE_MSGSTORE_STORE_PROFILE_REGISTRY_H_
#define QUORVANE_MSGSTORE_STORE_PROFILE_REGISTRY_H_

#include "msgstore/store/session_state.h"

namespace quorvane {

// Profile names are 1 to 64 bytes without backslash or control characters.
bool IsProfileName(std::string_view name) noexcept;

[[nodiscard]] HRESULT ListProfiles(std::vector<std::string>& names);
// MAPI_E_NOT_FOUND: there is none. The default profile may have been deleted since.
[[nodiscard]] HRESULT ReadDefaultProfile(std::string& name);
// MAPI_E_NOT_FOUND: there is no such profile.
[[nodiscard]] HRESULT WriteDefaultProfile(const std::string& name);
// MAPI_E_INVALID_PARAMETER: not a name; MAPI_E_NO_ACCESS: there is one already.
[[nodiscard]] HRESULT CreateProfileKey(const std::string& name);
// MAPI_E_NOT_FOUND. A default that it was is no default any more.
[[nodiscard]] HRESULT DeleteProfileKey(const std::string& name);

// The services of a profile. MAPI_E_NOT_FOUND: there is no such profile.
[[nodiscard]] HRESULT ReadServices(const std::string& profile, std::vector<StoreService>& services);
// Adds or replaces a service. MAPI_E_NOT_FOUND: there is no such profile.
[[nodiscard]] HRESULT WriteService(const std::string& profile, const StoreService& service);
// MAPI_E_NOT_FOUND.
[[nodiscard]] HRESULT DeleteService(const std::string& profile, const ObjectGuid& uid);

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_STORE_PROFILE_REGISTRY_H_
