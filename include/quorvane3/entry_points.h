// quorvane3/entry_points.h: the four functions that the library `quorvane3` exports.
#ifndef QUORVANE3_ENTRY_POINTS_H_
#define QUORVANE3_ENTRY_POINTS_H_

#include "platform/com/com.h"

// Gives a class factory (or another interface of it) of one of the library's classes.
//
// clsid   [in]   one of the CLSID_ constants of object_model.h.
// riid    [in]   IID_IClassFactory or IID_IUnknown.
// object  [out]  one reference, the caller's; null on failure.
//
// S_OK; CLASS_E_CLASSNOTAVAILABLE: no such class; E_NOINTERFACE; E_POINTER; E_OUTOFMEMORY. Any thread.
STDAPI DllGetClassObject(REFCLSID clsid, REFIID riid, void** object);

// S_OK: no object of the library lives and no lock is held; S_FALSE: one does. Any thread.
STDAPI DllCanUnloadNow();

// Registers the library's classes and type library, and removes them again (docs/windows.md lists the keys).
// Off Windows there is nothing to register: S_OK, and nothing is done.
//
// S_OK. Others: the registry's code, such as ERROR_ACCESS_DENIED, or the system's for type libraries. A
// failed registration takes back what it wrote; a failed removal has removed the rest. One call at a time.
STDAPI DllRegisterServer();
STDAPI DllUnregisterServer();

#endif  // QUORVANE3_ENTRY_POINTS_H_
