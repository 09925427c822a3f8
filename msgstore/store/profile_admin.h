// msgstore/store/profile_admin.h: IProfAdmin and IMsgServiceAdmin.
#ifndef QUORVANE_MSGSTORE_STORE_PROFILE_ADMIN_H_
#define QUORVANE_MSGSTORE_STORE_PROFILE_ADMIN_H_

#include <string>

#include "platform/mapi/mapi.h"

namespace quorvane {

// The administration of profiles. Passwords aren't kept: one that is given is ignored. CreateProfile,
// DeleteProfile, SetDefaultProfile, GetProfileTable and AdminServices work, all else is MAPI_E_NO_SUPPORT.
// S_OK; E_OUTOFMEMORY.
[[nodiscard]] HRESULT GiveProfileAdmin(LPPROFADMIN* admin) noexcept;

// The administration of a profile's services. The one service is kMessageStoreService. CreateMsgService,
// ConfigureMsgService, DeleteMsgService and GetMsgServiceTable work, all else is MAPI_E_NO_SUPPORT.
// S_OK; E_OUTOFMEMORY.
[[nodiscard]] HRESULT GiveServiceAdmin(const std::string& profile, LPSERVICEADMIN* admin) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_STORE_PROFILE_ADMIN_H_
