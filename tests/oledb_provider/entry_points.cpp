#include "platform/com/class_factory.h"
#include "tests/oledb_provider/data_source.h"
#include "tests/oledb_provider/registration.h"

using quorvane::CClassFactory;
using quorvane::ServerLocks;

STDAPI DllGetClassObject(REFCLSID clsid, REFIID riid, void** object)
{
    if (!object)
        return E_POINTER;
    *object = nullptr;
    if (!IsEqualCLSID(clsid, quorvane::test::kProviderClass))
        return CLASS_E_CLASSNOTAVAILABLE;
    return CClassFactory<quorvane::test::DataSource>::Create(riid, object);
}

STDAPI DllCanUnloadNow()
{
    return ServerLocks::AreHeld() ? S_FALSE : S_OK;
}

STDAPI DllRegisterServer()
{
    return quorvane::test::RegisterProvider();
}

STDAPI DllUnregisterServer()
{
    return quorvane::test::UnregisterProvider();
}

extern "C" void STDMETHODCALLTYPE QuorvaneProviderNotes(quorvane::test::ProviderNotes* notes)
{
    if (notes)
        quorvane::test::TakeProviderNotes(*notes);
}
