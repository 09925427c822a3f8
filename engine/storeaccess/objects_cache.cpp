#include "engine/storeaccess/objects_cache.h"

#include "engine/session/trace/trace.h"
#include "engine/storeaccess/hex.h"

namespace quorvane {

// What `open` gives is kept under the key; a text that isn't hexadecimal opens nothing and counts as success.
template <class Interface, class Open>
HRESULT CMapiObjectsCache::FindOrOpen(Objects& objects, BSTR key, Interface** out, const char* function,
                                      Open open)
{
    OleString name(ViewOf(key));
    auto found = objects.find(name);
    if (found == objects.end()) {
        BinaryId identifier;
        const HRESULT converted = BinaryFromHex(key, identifier);
        if (FAILED(converted))
            return converted == E_INVALIDARG ? S_OK : converted;
        ComPtr<IUnknown> object;
        const HRESULT opened = open(identifier, object);
        if (FAILED(opened) || !object)
            return opened;
        found = objects.emplace(std::move(name), std::move(object)).first;
    }
    return Traced{function}(found->second.As(out));
}

HRESULT CMapiObjectsCache::OpenStore(BSTR storeEntryID, IMsgStore** out) noexcept
{
    try {
        return FindOrOpen(m_mapStores, storeEntryID, out, "CMapiObjectsCache::OpenStore",
                          [this](const BinaryId& identifier, ComPtr<IUnknown>& object) {
                              if (!m_pSession)
                                  return E_POINTER;
                              ComPtr<IMsgStore> store;
                              const HRESULT hr =
                                  m_pSession->OpenMsgStore(0, identifier.Size(), identifier.EntryId(),
                                                           nullptr, MDB_NO_MAIL | MDB_WRITE, store.Put());
                              object = store;
                              return hr;
                          });
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

HRESULT CMapiObjectsCache::OpenFolder(BSTR folderEntryID, IMsgStore* store, IMAPIFolder** out) noexcept
{
    try {
        return FindOrOpen(m_mapFolders, folderEntryID, out, "CMapiObjectsCache::OpenFolder",
                          [store](const BinaryId& identifier, ComPtr<IUnknown>& object) {
                              if (!store)
                                  return E_POINTER;
                              ULONG type = 0;
                              return store->OpenEntry(identifier.Size(), identifier.EntryId(), nullptr,
                                                      MAPI_MODIFY, &type, object.Put());
                          });
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

}  // namespace quorvane
