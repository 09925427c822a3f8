// session/testing/fake_mapi.h: a MAPI library that tells a test of each call, in place of a real one.
//
// The binding finds it in the directory QUORVANE_FAKE_SESSION_MAPI, given as $QUORVANE_SYSTEM_DIR.
#ifndef QUORVANE_ENGINE_SESSION_TESTING_FAKE_MAPI_H_
#define QUORVANE_ENGINE_SESSION_TESTING_FAKE_MAPI_H_

#include "platform/com/com.h"

namespace quorvane::testing {

// Hears of these calls, on the thread that makes them:
//   "MAPIInitialize <version> <flags>", "MAPILogonEx <window> <profile> <password> <flags>",
//   "Unadvise <connection>" of the session, "release of the MAPI session", "MAPIUninitialize".
class MapiWatcher {
public:
    // What comes back is the call's result; a failure keeps it from doing anything.
    virtual HRESULT OnMapiCall(const char* call) = 0;

protected:
    ~MapiWatcher() = default;
};

// The type of the export "WatchFakeMapi". Null: nobody watches, and every call succeeds.
using WatchFakeMapiFunction = void (*)(MapiWatcher* watcher);

}  // namespace quorvane::testing

#endif  // QUORVANE_ENGINE_SESSION_TESTING_FAKE_MAPI_H_
