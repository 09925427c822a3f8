// platform/com/sdk/unknown.h: IUnknown, IClassFactory and IMalloc, off Windows.
#ifndef QUORVANE_PLATFORM_COM_SDK_UNKNOWN_H_
#define QUORVANE_PLATFORM_COM_SDK_UNKNOWN_H_

#include "platform/com/sdk/guid.h"

// Interfaces have no virtual destructor: an object ends through Release alone.
#if defined(__GNUC__)
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
#endif

DEFINE_OLEGUID(IID_IUnknown, 0x00000000, 0, 0);
DEFINE_OLEGUID(IID_IClassFactory, 0x00000001, 0, 0);
DEFINE_OLEGUID(IID_IMalloc, 0x00000002, 0, 0);

struct IUnknown {
    virtual HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) = 0;
    virtual ULONG STDMETHODCALLTYPE AddRef() = 0;
    virtual ULONG STDMETHODCALLTYPE Release() = 0;
};
using LPUNKNOWN = IUnknown*;

struct IClassFactory : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID riid, void** object) = 0;
    virtual HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) = 0;
};

struct IMalloc : IUnknown {
    virtual void* STDMETHODCALLTYPE Alloc(SIZE_T size) = 0;
    virtual void* STDMETHODCALLTYPE Realloc(void* block, SIZE_T size) = 0;
    virtual void STDMETHODCALLTYPE Free(void* block) = 0;
    virtual SIZE_T STDMETHODCALLTYPE GetSize(void* block) = 0;
    virtual int STDMETHODCALLTYPE DidAlloc(void* block) = 0;
    virtual void STDMETHODCALLTYPE HeapMinimize() = 0;
};
using LPMALLOC = IMalloc*;

#endif  // QUORVANE_PLATFORM_COM_SDK_UNKNOWN_H_
