// items/entry.h: stores and their objects by the hexadecimal text of their entry identifiers.
//
// Nothing here traces: each caller traces under its own name.
#ifndef QUORVANE_ENGINE_ITEMS_ENTRY_H_
#define QUORVANE_ENGINE_ITEMS_ENTRY_H_

#include "engine/session/context/session_context.h"
#include "engine/storeaccess/hex.h"
#include "platform/com/bstr.h"

namespace quorvane {

// An entry identifier from its text. E_FAIL: it isn't hexadecimal. E_OUTOFMEMORY.
[[nodiscard]] HRESULT EntryIdFromHex(BSTR text, BinaryId& id) noexcept;

// Opens a store through the session's MAPI session.
//
// storeId  [in]   hexadecimal text.
// flags    [in]   MDB_*.
// store    [out]  empty after a failure.
//
// E_FAIL: `storeId` isn't hexadecimal. E_HANDLE: no MAPI session. Others come from OpenMsgStore.
[[nodiscard]] HRESULT OpenStoreById(SessionContext& session, BSTR storeId, ULONG flags,
                                    ComPtr<IMsgStore>& store) noexcept;

// Opens an object of a store.
//
// entryId  [in]   hexadecimal text.
// flags    [in]   0 or MAPI_MODIFY.
// object   [out]  empty after a failure.
//
// E_FAIL: `entryId` isn't hexadecimal. Others come from OpenEntry.
[[nodiscard]] HRESULT OpenEntryById(IMsgStore& store, BSTR entryId, ULONG flags,
                                    ComPtr<IUnknown>& object) noexcept;

// The same, asked for an interface.
template <class Interface>
[[nodiscard]] HRESULT OpenEntryById(IMsgStore& store, BSTR entryId, ULONG flags,
                                    ComPtr<Interface>& object) noexcept
{
    ComPtr<IUnknown> opened;
    const HRESULT hr = OpenEntryById(store, entryId, flags, opened);
    return FAILED(hr) ? hr : opened.As(object);
}

// Whether two identifiers name the same object, as the session's MAPI session sees it.
// E_HANDLE: no MAPI session. Others come from CompareEntryIDs; `same` is false after a failure.
[[nodiscard]] HRESULT CompareIds(SessionContext& session, const BinaryId& a, const BinaryId& b,
                                 bool& same) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_ITEMS_ENTRY_H_
