// msgstore/store/store_objects.h: from an entry identifier to the object.
#ifndef QUORVANE_MSGSTORE_STORE_STORE_OBJECTS_H_
#define QUORVANE_MSGSTORE_STORE_STORE_OBJECTS_H_

#include "msgstore/store/session_state.h"

namespace quorvane {

// One store as one session has it open. Copied into every object.
struct OpenedStore {
    std::shared_ptr<SessionState> session;
    std::shared_ptr<StoreCore> core;
};

// What an object that was opened with these flags lets its callers do.
bool IsWritable(ULONG flags) noexcept;

// Opens a folder or message of the store.
//
// id      [in]   null with size 0: the root folder.
// iid     [in]   null: the object's own interface.
// flags   [in]   MAPI_MODIFY or MAPI_BEST_ACCESS: writable; others change nothing.
// type    [out]  MAPI_FOLDER or MAPI_MESSAGE; may be null.
// object  [out]  null on failure.
//
// S_OK; MAPI_E_INVALID_ENTRYID; MAPI_E_UNKNOWN_ENTRYID: of another store; MAPI_E_NOT_FOUND: there is no such
// object any more; MAPI_E_INTERFACE_NOT_SUPPORTED.
[[nodiscard]] HRESULT OpenObject(const OpenedStore& store, ULONG idSize, const ENTRYID* id, LPCIID iid,
                                 ULONG flags, ULONG* type, LPUNKNOWN* object);

// The GUID of the object that an identifier names; a short-term one is looked up. MAPI_E_NOT_FOUND: it's
// gone.
[[nodiscard]] HRESULT ResolveGuid(StoreCore& core, const EntryId& id, ObjectGuid& guid);

// Whether two identifiers of the store name the same object. Identifiers of other stores, and those of
// objects that are gone, equal themselves alone.
[[nodiscard]] HRESULT AreSameObject(StoreCore& core, ByteView first, ByteView second, bool& same);

// The same for identifiers of any of the session's stores, and of the stores themselves.
[[nodiscard]] HRESULT CompareIds(SessionState& session, ByteView first, ByteView second, bool& same);

// A folder's object. MAPI_E_INTERFACE_NOT_SUPPORTED; E_OUTOFMEMORY.
[[nodiscard]] HRESULT GiveFolder(const OpenedStore& store, std::int64_t folderId, LPCIID iid, ULONG flags,
                                 LPUNKNOWN* object);

// Subscribes to the store's objects, as IMsgStore::Advise does.
[[nodiscard]] HRESULT AdviseObjects(const OpenedStore& store, ULONG idSize, const ENTRYID* id,
                                    ULONG eventMask, LPMAPIADVISESINK sink, ULONG* connection);

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_STORE_STORE_OBJECTS_H_
