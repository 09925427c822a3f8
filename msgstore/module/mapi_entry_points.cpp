#include <atomic>

#include "msgstore/store/mapi_session.h"
#include "msgstore/store/profile_admin.h"

namespace {

// How often MAPIInitialize succeeded without a MAPIUninitialize.
std::atomic<long> initializations{0};

}  // namespace

STDAPI MAPIInitialize(LPVOID init)
{
    const auto* const options = static_cast<const MAPIINIT_0*>(init);
    if (options && options->ulVersion != MAPI_INIT_VERSION)
        return MAPI_E_VERSION;
    // Notifications always come on a thread of their own, whatever the flags ask for.
    initializations.fetch_add(1);
    return S_OK;
}

STDAPI_(void) MAPIUninitialize()
{
    initializations.fetch_sub(1);
}

STDAPI MAPILogonEx(ULONG_PTR, LPTSTR profile, LPTSTR, ULONG flags, LPMAPISESSION* session)
{
    if (!session)
        return MAPI_E_INVALID_PARAMETER;
    *session = nullptr;
    if (initializations.load() <= 0)
        return MAPI_E_NOT_INITIALIZED;
    return quorvane::Logon(profile, flags, session);
}

STDAPI MAPIAdminProfiles(ULONG, LPPROFADMIN* admin)
{
    if (!admin)
        return MAPI_E_INVALID_PARAMETER;
    *admin = nullptr;
    if (initializations.load() <= 0)
        return MAPI_E_NOT_INITIALIZED;
    return quorvane::GiveProfileAdmin(admin);
}
