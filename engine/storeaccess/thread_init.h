// storeaccess/thread_init.h: MAPI on a thread, for a scope.
#ifndef QUORVANE_ENGINE_STOREACCESS_THREAD_INIT_H_
#define QUORVANE_ENGINE_STOREACCESS_THREAD_INIT_H_

#include "platform/com/com.h"

namespace quorvane {

// Initialises MAPI for the thread that calls Init; used and destroyed on that thread.
class CMAPIThreadInit {
public:
    CMAPIThreadInit() noexcept = default;
    CMAPIThreadInit(const CMAPIThreadInit&) = delete;
    CMAPIThreadInit& operator=(const CMAPIThreadInit&) = delete;
    ~CMAPIThreadInit() { Uninit(); }

    // S_OK, or the failure of MAPIInitialize. A second call without Uninit does nothing.
    [[nodiscard]] HRESULT Init() noexcept;
    // Takes back what Init did, if it succeeded.
    void Uninit() noexcept;

private:
    bool m_bInitialized = false;
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_STOREACCESS_THREAD_INIT_H_
