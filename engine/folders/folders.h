// folders/folders.h: CFolders, the session's collection of shared folders.
//
// Ordered by the text of the entry identifiers, exactly as they were given to Add, by VarBstrCmp.
//
// Threading: any thread may call. The map has a lock of its own, which is never held while a folder, the
// host, MAPI or the database is called.
#ifndef QUORVANE_ENGINE_FOLDERS_FOLDERS_H_
#define QUORVANE_ENGINE_FOLDERS_FOLDERS_H_

#include <map>
#include <vector>

#include "engine/items/bstr_order.h"
#include "engine/session/context/operations.h"
#include "engine/session/context/session_context.h"
#include "platform/com/bstr.h"
#include "platform/com/com_object.h"
#include "platform/com/dispatch.h"
#include "platform/com/mutex.h"
#include "quorvane3/object_model.h"

namespace quorvane {

class CFolders : public ComObject<CFolders, DispatchImpl<IFolders>> {
public:
    // session  [in]  the owner; not counted, and outlives the collection.
    explicit CFolders(SessionContext* session) noexcept : m_pSession(session) {}
    virtual ~CFolders() = default;

    HRESULT STDMETHODCALLTYPE get__NewEnum(IUnknown** pVal) override;
    // Index is an entry identifier, compared by IMAPISession::CompareEntryIDs. A number fills `pvar` with
    // the folder at that place and then fails all the same, as the text of its digits is looked up too.
    HRESULT STDMETHODCALLTYPE get_Item(VARIANT Index, VARIANT* pvar) override;
    HRESULT STDMETHODCALLTYPE get_Count(LONG* pVal) override;
    // E_FAIL: this very text is in the collection already.
    HRESULT STDMETHODCALLTYPE Add(BSTR EntryID, BSTR StoreID, VARIANT ID, VARIANT ProgressBar,
                                  IFolder** pVal) override;
    // Index is a 1-based number or the exact text of the key. E_FAIL: no such key.
    HRESULT STDMETHODCALLTYPE Remove(VARIANT Index) override;
    // The first folder that has this ID or this EntryID; StoreID isn't looked at.
    // DISP_E_MEMBERNOTFOUND: there is none.
    HRESULT STDMETHODCALLTYPE Find(VARIANT ID, VARIANT EntryID, VARIANT StoreID, IFolder** pVal) override;

    // The folder at a 1-based place. E_POINTER, E_INVALIDARG (below 1), E_FAIL (past the end).
    [[nodiscard]] HRESULT get_Item(LONG index, VARIANT* pvar) noexcept;
    // E_INVALIDARG: no such place.
    [[nodiscard]] HRESULT RemoveByIndex(LONG index) noexcept;

private:
    using FolderMap = std::map<Bstr, ComPtr<IFolder>, BstrLess>;
    using Entries = std::vector<std::pair<Bstr, ComPtr<IFolder>>>;

    // What the map holds now, in order. Throws std::bad_alloc.
    Entries Snapshot() const;
    bool Contains(BSTR entryId) const noexcept;
    HRESULT Insert(BSTR entryId, const ComPtr<IFolder>& folder) noexcept;
    HRESULT FindByIdentity(BSTR entryId, VARIANT* pvar) noexcept;

    SessionContext* const m_pSession;
    mutable Mutex m_Lock;
    FolderMap m_Folders QV_GUARDED_BY(m_Lock);
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_FOLDERS_FOLDERS_H_
