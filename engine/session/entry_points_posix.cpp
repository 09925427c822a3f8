// There is no registry of classes here to write to.
#include "quorvane3/entry_points.h"

STDAPI DllRegisterServer()
{
    return S_OK;
}

STDAPI DllUnregisterServer()
{
    return S_OK;
}
