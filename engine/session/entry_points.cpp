// The class factories, as every host asks for them.
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
