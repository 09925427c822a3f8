#include "platform/cfb/stg.h"

#include "platform/cfb/docfile.h"

using namespace quorvane;

namespace {

// Whether an argument is given that has to be null or 0: then there is no storage.
bool IsRefused(bool given, IStorage** storage) noexcept
{
    if (storage && given)
        *storage = nullptr;
    return storage && given;
}

}  // namespace

STDAPI StgCreateDocfile(LPCOLESTR path, DWORD mode, DWORD reserved, IStorage** storage)
{
    return IsRefused(reserved != 0, storage) ? STG_E_INVALIDPARAMETER
                                             : cfb::CreateDocfile(path, mode, storage);
}

STDAPI StgOpenStorage(LPCOLESTR path, IStorage* priority, DWORD mode, SNB exclude, DWORD reserved,
                      IStorage** storage)
{
    return IsRefused(priority || exclude || reserved != 0, storage) ? STG_E_INVALIDPARAMETER
                                                                    : cfb::OpenDocfile(path, mode, storage);
}

STDAPI StgIsStorageFile(LPCOLESTR path)
{
    return cfb::IsDocfile(path);
}

STDAPI StgCreateDocfileOnILockBytes(ILockBytes* bytes, DWORD mode, DWORD reserved, IStorage** storage)
{
    return IsRefused(reserved != 0, storage) ? STG_E_INVALIDPARAMETER
                                             : cfb::CreateDocfileOnLockBytes(bytes, mode, storage);
}

STDAPI StgOpenStorageOnILockBytes(ILockBytes* bytes, IStorage* priority, DWORD mode, SNB exclude,
                                  DWORD reserved, IStorage** storage)
{
    return IsRefused(priority || exclude || reserved != 0, storage)
               ? STG_E_INVALIDPARAMETER
               : cfb::OpenDocfileOnLockBytes(bytes, mode, storage);
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
