// The library detachedthread: starts a thread that waits for an event of the test's.
#include "platform/com/detached_thread.h"

extern "C" __declspec(dllexport) HRESULT Start(HANDLE running, HANDLE mayEnd)
{
    return quorvane::StartDetachedThread([running, mayEnd] {
        SetEvent(running);
        WaitForSingleObject(mayEnd, INFINITE);
    });
}
