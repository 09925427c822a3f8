#include "platform/cfb/stg.h"

#include "platform/cfb/docfile.h"

using namespace quorvane;

STDAPI StgCreateDocfile(LPCOLESTR path, DWORD mode, DWORD reserved, IStorage** storage)
{
    if (storage && reserved != 0) {
        *storage = nullptr;
        return STG_E_INVALIDPARAMETER;
    }
    return cfb::CreateDocfile(path, mode, storage);
}

STDAPI StgOpenStorage(LPCOLESTR path, IStorage* priority, DWORD mode, SNB exclude, DWORD reserved,
                      IStorage** storage)
{
    if (storage && (priority || exclude || reserved != 0)) {
        *storage = nullptr;
        return STG_E_INVALIDPARAMETER;
    }
    return cfb::OpenDocfile(path, mode, storage);
}

STDAPI StgIsStorageFile(LPCOLESTR path)
{
    return cfb::IsDocfile(path);
}

STDAPI StgCreateDocfileOnILockBytes(ILockBytes* bytes, DWORD mode, DWORD reserved, IStorage** storage)
{
    if (storage && reserved != 0) {
        *storage = nullptr;
        return STG_E_INVALIDPARAMETER;
    }
    return cfb::CreateDocfileOnLockBytes(bytes, mode, storage);
}

STDAPI StgOpenStorageOnILockBytes(ILockBytes* bytes, IStorage* priority, DWORD mode, SNB exclude,
                                  DWORD reserved, IStorage** storage)
{
    if (storage && (priority || exclude || reserved != 0)) {
        *storage = nullptr;
        return STG_E_INVALIDPARAMETER;
    }
    return cfb::OpenDocfileOnLockBytes(bytes, mode, storage);
}

STDAPI StgIsStorageILockBytes(ILockBytes* bytes)
{
    return cfb::IsDocfileOnLockBytes(bytes);
}

STDAPI CreateILockBytesOnHGlobal(HGLOBAL memory, BOOL deleteOnRelease, ILockBytes** bytes)
{
    if (memory || !deleteOnRelease) {
        if (bytes)
            *bytes = nullptr;
        return E_INVALIDARG;
    }
    return cfb::CreateLockBytesInMemory(bytes);
}
