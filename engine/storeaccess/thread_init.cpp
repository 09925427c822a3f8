#include "engine/storeaccess/thread_init.h"

#include <utility>

#include "engine/session/trace/trace.h"
#include "engine/storeaccess/mapi_functions.h"

namespace quorvane {

HRESULT CMAPIThreadInit::Init() noexcept
{
    const Traced traced{"CMAPIThreadInit::Init"};
    if (m_bInitialized)
        return S_OK;
    MAPIINIT_0 init = {MAPI_INIT_VERSION, MAPI_MULTITHREAD_NOTIFICATIONS};
    HR_TRY(traced, mapi::MAPIInitialize(&init));
    m_bInitialized = true;
    return S_OK;
}

void CMAPIThreadInit::Uninit() noexcept
{
    if (std::exchange(m_bInitialized, false))
        mapi::MAPIUninitialize();
}

}  // namespace quorvane
