// platform/com/sdk/persist.h: the persistence interfaces, off Windows.
#ifndef QUORVANE_PLATFORM_COM_SDK_PERSIST_H_
#define QUORVANE_PLATFORM_COM_SDK_PERSIST_H_

#include "platform/com/sdk/storage.h"

DEFINE_OLEGUID(IID_IPersist, 0x0000010C, 0, 0);
DEFINE_OLEGUID(IID_IPersistStorage, 0x0000010A, 0, 0);
DEFINE_GUID(IID_IPersistStreamInit, 0x7FD52380, 0x4E07, 0x101B, 0xAE, 0x2D, 0x08, 0x00, 0x2B, 0x2E, 0xC7,
            0x13);

struct IPersist : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetClassID(CLSID* clsid) = 0;
};

struct IPersistStorage : IPersist {
    virtual HRESULT STDMETHODCALLTYPE IsDirty() = 0;
    virtual HRESULT STDMETHODCALLTYPE InitNew(IStorage* storage) = 0;
    virtual HRESULT STDMETHODCALLTYPE Load(IStorage* storage) = 0;
    virtual HRESULT STDMETHODCALLTYPE Save(IStorage* storage, BOOL sameAsLoad) = 0;
    virtual HRESULT STDMETHODCALLTYPE SaveCompleted(IStorage* storage) = 0;
    virtual HRESULT STDMETHODCALLTYPE HandsOffStorage() = 0;
};

struct IPersistStreamInit : IPersist {
    virtual HRESULT STDMETHODCALLTYPE IsDirty() = 0;
    virtual HRESULT STDMETHODCALLTYPE Load(IStream* stream) = 0;
    virtual HRESULT STDMETHODCALLTYPE Save(IStream* stream, BOOL clearDirty) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetSizeMax(ULARGE_INTEGER* size) = 0;
    virtual HRESULT STDMETHODCALLTYPE InitNew() = 0;
};

#endif  // QUORVANE_PLATFORM_COM_SDK_PERSIST_H_
