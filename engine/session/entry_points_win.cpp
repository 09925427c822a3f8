#include "engine/session/registration/registration.h"
#include "quorvane3/entry_points.h"

STDAPI DllRegisterServer()
{
    return quorvane::RegisterServer();
}

STDAPI DllUnregisterServer()
{
    return quorvane::UnregisterServer();
}
