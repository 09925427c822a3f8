#include "engine/items/message_storage.h"

#include "engine/session/trace/trace.h"
#include "engine/storeaccess/mapi_functions.h"
#include "platform/cfb/stg.h"

namespace quorvane {

namespace {

constexpr DWORD kReadMode = STGM_READ | STGM_SHARE_EXCLUSIVE;

// Three storages for each message that is embedded in another, of which there are at most 64.
constexpr int kDeepestStorage = 256;

HRESULT ReadStream(IStorage& storage, const OLECHAR* name) noexcept
{
    ComPtr<IStream> stream;
    HR_TRY_QUIET(storage.OpenStream(name, nullptr, kReadMode, 0, stream.Put()));
    BYTE piece[16384];
    ULONG read = 0;
    do {
        HR_TRY_QUIET(stream->Read(piece, sizeof piece, &read));
    } while (read == sizeof piece);
    return S_OK;
}

HRESULT ReadStorage(IStorage& storage, int depth) noexcept;

HRESULT ReadElement(IStorage& storage, const STATSTG& element, int depth) noexcept
{
    if (element.type != STGTY_STORAGE)
        return ReadStream(storage, element.pwcsName);
    ComPtr<IStorage> inner;
    HR_TRY_QUIET(storage.OpenStorage(element.pwcsName, nullptr, kReadMode, nullptr, 0, inner.Put()));
    return ReadStorage(*inner, depth + 1);
}

HRESULT ReadStorage(IStorage& storage, int depth) noexcept
{
    if (depth > kDeepestStorage)
        return MAPI_E_TOO_COMPLEX;
    ComPtr<IEnumSTATSTG> elements;
    HR_TRY_QUIET(storage.EnumElements(0, nullptr, 0, elements.Put()));
    for (;;) {
        STATSTG element{};
        const HRESULT hr = elements->Next(1, &element, nullptr);
        if (hr != S_OK)
            return FAILED(hr) ? hr : S_OK;
        const HRESULT read = ReadElement(storage, element, depth);
        CoTaskMemFree(element.pwcsName);
        HR_TRY_QUIET(read);
    }
}

}  // namespace

HRESULT ReadThrough(IStorage& storage) noexcept
{
    return ReadStorage(storage, 0);
}

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
