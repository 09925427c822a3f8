#include "engine/items/entry.h"

namespace quorvane {

HRESULT EntryIdFromHex(BSTR text, BinaryId& id) noexcept
{
    const HRESULT hr = BinaryFromHex(text, id);
    return hr == E_INVALIDARG ? E_FAIL : hr;
}

HRESULT OpenStoreById(SessionContext& session, BSTR storeId, ULONG flags, ComPtr<IMsgStore>& store) noexcept
{
    store.Reset();
    BinaryId id;
    if (const HRESULT hr = EntryIdFromHex(storeId, id); FAILED(hr))
        return hr;
    IMAPISession* const mapiSession = session.MapiSession();
    if (!mapiSession)
        return E_HANDLE;
    return mapiSession->OpenMsgStore(0, id.Size(), id.EntryId(), nullptr, flags, store.Put());
}

HRESULT OpenEntryById(IMsgStore& store, BSTR entryId, ULONG flags, ComPtr<IUnknown>& object) noexcept
{
    object.Reset();
    BinaryId id;
    if (const HRESULT hr = EntryIdFromHex(entryId, id); FAILED(hr))
        return hr;
    ULONG type = 0;
    return store.OpenEntry(id.Size(), id.EntryId(), nullptr, flags, &type, object.Put());
}

HRESULT CompareIds(SessionContext& session, const BinaryId& a, const BinaryId& b, bool& same) noexcept
{
    same = false;
    IMAPISession* const mapiSession = session.MapiSession();
    if (!mapiSession)
        return E_HANDLE;
    ULONG result = FALSE;
    const HRESULT hr = mapiSession->CompareEntryIDs(a.Size(), a.EntryId(), b.Size(), b.EntryId(), 0, &result);
    same = SUCCEEDED(hr) && result != FALSE;
    return hr;
}

}  // namespace quorvane
