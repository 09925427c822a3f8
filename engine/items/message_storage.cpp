#include "engine/items/message_storage.h"

#include "engine/storeaccess/mapi_functions.h"
#include "platform/cfb/stg.h"

namespace quorvane {

HRESULT MessageSession::Open() noexcept
{
    Close();
    IMalloc* const allocator = mapi::MAPIGetDefaultMalloc();
    const HRESULT hr = mapi::OpenIMsgSession(allocator, 0, &handle_);
    if (FAILED(hr))
        handle_ = nullptr;
    return hr;
}

void MessageSession::Close() noexcept
{
    if (LPMSGSESS const old = std::exchange(handle_, nullptr))
        mapi::CloseIMsgSession(old);
}

HRESULT OpenMessageOnStorage(LPMSGSESS session, IStorage& storage, ComPtr<IMessage>& message) noexcept
{
    return mapi::OpenIMsgOnIStg(session, mapi::MAPIAllocateBuffer, mapi::MAPIAllocateMore,
                                mapi::MAPIFreeBuffer, mapi::MAPIGetDefaultMalloc(), nullptr, &storage,
                                nullptr, 0, 0, message.Put());
}

HRESULT MemoryStorage::Create() noexcept
{
    if (const HRESULT hr = CreateILockBytesOnHGlobal(nullptr, TRUE, bytes.Put()); FAILED(hr))
        return hr;
    return StgCreateDocfileOnILockBytes(bytes.Get(), kCreateMode, 0, storage.Put());
}

}  // namespace quorvane
