#include "quorvane3/entry_points.h"

STDAPI DllRegisterServer()
{
    return E_NOTIMPL;
}

STDAPI DllUnregisterServer()
{
    return E_NOTIMPL;
}
