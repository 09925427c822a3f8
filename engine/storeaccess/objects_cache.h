// storeaccess/objects_cache.h: stores and folders kept open for the length of one job.
#ifndef QUORVANE_ENGINE_STOREACCESS_OBJECTS_CACHE_H_
#define QUORVANE_ENGINE_STOREACCESS_OBJECTS_CACHE_H_

#include <unordered_map>

#include "platform/com/com_ptr.h"
#include "platform/mapi/mapi.h"

namespace quorvane {

// Holds every object that it opened until it is destroyed. Belongs to one job: one thread at a time.
class CMapiObjectsCache {
public:
    // session  [in]  opens the stores; a reference is kept.
    explicit CMapiObjectsCache(IMAPISession* session) noexcept : m_pSession(session) {}
    CMapiObjectsCache(const CMapiObjectsCache&) = delete;
    CMapiObjectsCache& operator=(const CMapiObjectsCache&) = delete;

    // Opens a store for writing, or finds it among those that are open.
    //
    // storeEntryID  [in]   the store's entry identifier in hexadecimal text; compared as text.
    // out           [out]  a reference of the caller's. Untouched when nothing could be opened, and also when
    //                      S_OK is returned for a text that isn't hexadecimal: test it. Null when what was
    //                      opened isn't a store.
    //
    // What OpenMsgStore answered (a failure is not kept: the next call tries again). E_NOINTERFACE, traced:
    // what was opened isn't a store. E_POINTER: no session. E_OUTOFMEMORY.
    [[nodiscard]] HRESULT OpenStore(BSTR storeEntryID, IMsgStore** out) noexcept;

    // The same for a folder, through `store`, with write access. The key is the folder's identifier alone.
    [[nodiscard]] HRESULT OpenFolder(BSTR folderEntryID, IMsgStore* store, IMAPIFolder** out) noexcept;

private:
    using Objects = std::unordered_map<OleString, ComPtr<IUnknown>>;  // by hexadecimal text

    template <class Interface, class Open>
    static HRESULT FindOrOpen(Objects& objects, BSTR key, Interface** out, const char* function, Open open);

    Objects m_mapStores;
    Objects m_mapFolders;
    ComPtr<IMAPISession> m_pSession;
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_STOREACCESS_OBJECTS_CACHE_H_
