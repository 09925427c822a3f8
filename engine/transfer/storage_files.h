// transfer/storage_files.h: CStorageFiles, the packages that wait for the host, one for each recipients
// text. The table tblStorageFiles mirrors it, so that it survives a restart.
//
// Ordered by the recipients text, by VarBstrCmp.
//
// Threading: any thread may call; writers on several threads use Add and Item at once. The map has a lock
// of its own, which is never held while a package, the host or the database is called.
#ifndef QUORVANE_ENGINE_TRANSFER_STORAGE_FILES_H_
#define QUORVANE_ENGINE_TRANSFER_STORAGE_FILES_H_

#include <map>
#include <set>
#include <utility>

#include "engine/items/bstr_order.h"
#include "engine/session/context/operations.h"
#include "engine/session/context/session_context.h"
#include "engine/transfer/storage_file.h"
#include "platform/com/bstr.h"
#include "platform/com/com_object.h"
#include "platform/com/dispatch.h"
#include "platform/com/mutex.h"
#include "quorvane3/commit_groups.h"
#include "quorvane3/object_model.h"

namespace quorvane {

class Rowset;

class CStorageFiles : public ComObject<CStorageFiles, DispatchImpl<IStorageFiles>, IKeptPackages> {
public:
    // session  [in]  the owner; not counted, and outlives the collection.
    explicit CStorageFiles(SessionContext* session)
        : m_pSession(session), m_pKept(std::make_shared<std::atomic<bool>>(false))
    {}
    virtual ~CStorageFiles() = default;

    // Fills the collection from the table, once, before anybody else has it. A row whose file is gone is
    // traced and removed. Failures come from the database.
    [[nodiscard]] HRESULT Init() noexcept;

    HRESULT STDMETHODCALLTYPE get__NewEnum(IUnknown** pVal) override;
    // Index is a recipients text (E_FAIL: none) or a 1-based number (E_INVALIDARG: below 1; E_FAIL: past the
    // end).
    HRESULT STDMETHODCALLTYPE get_Item(VARIANT Index, VARIANT* pvar) override;
    HRESULT STDMETHODCALLTYPE get_Count(LONG* pVal) override;
    // Makes a package, with its file and its row. E_FAIL: these recipients have one.
    HRESULT STDMETHODCALLTYPE Add(BSTR Recipients, IStorageFile** pVal) override;
    // Forgets a package and its row; the file stays, it is the host's. E_FAIL: no such recipients.
    // E_INVALIDARG: no such place.
    HRESULT STDMETHODCALLTYPE Remove(VARIANT Index) override;

    // IKeptPackages.
    HRESULT STDMETHODCALLTYPE KeepOpen(BOOL keep) override;

    // E_INVALIDARG: no such place.
    [[nodiscard]] HRESULT RemoveByIndex(LONG index) noexcept;

private:
    using Packages = std::map<Bstr, ComPtr<CStorageFile>, BstrLess>;

    // The package of a key, and the one at a 1-based place with its key; empty when there is none. The
    // latter throws std::bad_alloc.
    ComPtr<IStorageFile> FindByKey(BSTR recipients) const noexcept;
    std::pair<Bstr, ComPtr<IStorageFile>> FindByPlace(LONG index) const;
    Packages Snapshot() const;

    // Init's work on one row; throws std::bad_alloc.
    HRESULT TakeRow(const Rowset& row);

    // Reserves a key for a package that is being made; waits while another thread makes one for it.
    // False: there is a package already.
    bool Reserve(const Bstr& recipients);
    void EndReservation(const Bstr& recipients) noexcept;
    HRESULT Make(BSTR recipients, ComPtr<CStorageFile>& package) noexcept;
    HRESULT AppendRow(BSTR recipients, IStorageFile& package) noexcept;

    HRESULT DeleteAndErase(BSTR recipients, IStorageFile& package) noexcept;

    SessionContext* const m_pSession;
    const std::shared_ptr<std::atomic<bool>> m_pKept;
    mutable Mutex m_Lock;
    Packages m_Packages QV_GUARDED_BY(m_Lock);
    std::set<Bstr, BstrLess> m_Reserved QV_GUARDED_BY(m_Lock);
    ConditionVariable m_ReservationEnded;
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_TRANSFER_STORAGE_FILES_H_
