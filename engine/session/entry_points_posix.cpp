// The library's exports. Nothing else of it is visible. There is no registry of classes here to write to.
#include "quorvane3/entry_points.h"

#include "engine/session/class_catalogue.h"
#include "platform/com/class_factory.h"

STDAPI DllGetClassObject(REFCLSID clsid, REFIID riid, void** object)
{
    return quorvane::MakeClassFactory(clsid, riid, object);
}

STDAPI DllCanUnloadNow()
{
    return quorvane::ServerLocks::AreHeld() ? S_FALSE : S_OK;
}

STDAPI DllRegisterServer()
{
    return S_OK;
}

STDAPI DllUnregisterServer()
{
    return S_OK;
}
