// platform/com/sdk/objbase.h: apartments, memory, identifiers and the global interface table, off Windows.
#ifndef QUORVANE_PLATFORM_COM_SDK_OBJBASE_H_
#define QUORVANE_PLATFORM_COM_SDK_OBJBASE_H_

#include "platform/com/sdk/storage.h"
#include "platform/com/sdk/unknown.h"

DEFINE_GUID(IID_IGlobalInterfaceTable, 0x00000146, 0, 0, 0xC0, 0, 0, 0, 0, 0, 0, 0x46);
DEFINE_GUID(CLSID_StdGlobalInterfaceTable, 0x00000323, 0, 0, 0xC0, 0, 0, 0, 0, 0, 0, 0x46);

#define CLSCTX_INPROC_SERVER 0x1u
#define CLSCTX_ALL 0x17u
#define COINIT_APARTMENTTHREADED 0x2u
#define COINIT_MULTITHREADED 0x0u

struct IGlobalInterfaceTable : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE RegisterInterfaceInGlobal(IUnknown* object, REFIID riid,
                                                                DWORD* cookie) = 0;
    virtual HRESULT STDMETHODCALLTYPE RevokeInterfaceFromGlobal(DWORD cookie) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetInterfaceFromGlobal(DWORD cookie, REFIID riid, void** object) = 0;
};

STDAPI_(void*) CoTaskMemAlloc(SIZE_T size);
STDAPI_(void*) CoTaskMemRealloc(void* block, SIZE_T size);
STDAPI_(void) CoTaskMemFree(void* block);

STDAPI CoCreateGuid(GUID* guid);
STDAPI_(INT) StringFromGUID2(REFGUID guid, LPOLESTR text, INT capacity);
STDAPI CLSIDFromString(LPCOLESTR text, CLSID* clsid);

// Off Windows CoInitialize (and CoInitializeEx with COINIT_APARTMENTTHREADED) makes the thread a
// single-threaded apartment: calls from other threads to objects that it registered in the global
// interface table run on it while it pumps (platform/com/apartment.h). All other threads are free.
STDAPI CoInitialize(void* reserved);
STDAPI CoInitializeEx(void* reserved, DWORD flags);
STDAPI_(void) CoUninitialize();

// Off Windows the global interface table is the one class known here; every other class gives
// REGDB_E_CLASSNOTREG.
STDAPI CoCreateInstance(REFCLSID clsid, IUnknown* outer, DWORD context, REFIID riid, void** object);

// A stream on memory of its own. Off Windows memory is null and deleteOnRelease is true.
STDAPI CreateStreamOnHGlobal(HGLOBAL memory, BOOL deleteOnRelease, IStream** stream);

#endif  // QUORVANE_PLATFORM_COM_SDK_OBJBASE_H_
