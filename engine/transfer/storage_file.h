// transfer/storage_file.h: CStorageFile, one package of shared data on its way to a set of recipients.
//
// A package is a compound file: a storage "1.0" with the storages "Folders" and "Items", and in each one
// storage for every folder or item, named after its ID. It is open only between the first OpenFolder or
// OpenItem and Unlock, so that the host can copy it between two writes; or, if the host says that it doesn't,
// until it is forgotten.
//
// Writers call, in this order: Lock, OpenFolder or OpenItem, save into the storage, Unlock.
//
// Threading: any thread may call. Lock keeps writers apart for at most 10 seconds; a writer that comes
// later goes on regardless and works on the same open storages.
#ifndef QUORVANE_ENGINE_TRANSFER_STORAGE_FILE_H_
#define QUORVANE_ENGINE_TRANSFER_STORAGE_FILE_H_

#include <atomic>
#include <memory>

#include "engine/items/package.h"
#include "engine/session/context/operations.h"
#include "engine/session/context/session_context.h"
#include "platform/com/bstr.h"
#include "platform/com/com_object.h"
#include "platform/com/dispatch.h"
#include "platform/com/mutex.h"
#include "platform/event/event.h"
#include "quorvane3/object_model.h"

namespace quorvane {

class CStorageFile : public ComObject<CStorageFile, DispatchImpl<IStorageFile>, IPackageElements> {
public:
    // How long Lock waits for another writer.
    static constexpr Timeout kLockTimeout{10000};

    // Whether packages stay open between two writes: of a whole collection.
    using Kept = std::shared_ptr<const std::atomic<bool>>;

    // session  [in]  the owner; not counted, and outlives the package.
    // kept     [in]  may be null: it doesn't.
    explicit CStorageFile(SessionContext* session, Kept kept = nullptr) noexcept;
    virtual ~CStorageFile() = default;

    // Sets the fields of a package that is on disk already, as its row tells them. E_OUTOFMEMORY.
    [[nodiscard]] HRESULT Restore(BSTR recipients, BSTR path, VARIANT_BOOL isLocked) noexcept;

    HRESULT STDMETHODCALLTYPE get_Recipients(BSTR* pVal) override;
    // Makes the compound file, empty, under a new name in the user's temporary folder; Path is empty after
    // a failure that came from the file.
    HRESULT STDMETHODCALLTYPE put_Recipients(BSTR newVal) override;
    HRESULT STDMETHODCALLTYPE get_Path(BSTR* pVal) override;
    HRESULT STDMETHODCALLTYPE put_Path(BSTR newVal) override;
    HRESULT STDMETHODCALLTYPE get_isLocked(VARIANT_BOOL* pVal) override;
    // Sets the field, and the row's Status. A row that can't be updated isn't reported.
    HRESULT STDMETHODCALLTYPE put_isLocked(VARIANT_BOOL newVal) override;
    // A new sub-storage for a folder or an item, as VT_UNKNOWN, in place of an earlier one of that ID. A
    // package that is damaged for certain is removed from the disk; the failure to open it is returned.
    HRESULT STDMETHODCALLTYPE OpenFolder(BSTR ID, VARIANT* pVal) override;
    HRESULT STDMETHODCALLTYPE OpenItem(BSTR ID, VARIANT* pVal) override;
    // Forgets the package: empties the fields and removes the row. The file stays.
    HRESULT STDMETHODCALLTYPE Delete() override;
    HRESULT STDMETHODCALLTYPE Unlock() override;
    HRESULT STDMETHODCALLTYPE Lock() override;

    // Closes the file, if no writer has the package.
    void CloseIdle() noexcept;

    // IPackageElements; only between Lock and Unlock.
    HRESULT STDMETHODCALLTYPE DestroyFolder(BSTR id) override;
    HRESULT STDMETHODCALLTYPE DestroyItem(BSTR id) override;

private:
    bool HasEvent() noexcept;
    bool TakeTurn(Timeout timeout) noexcept;
    HRESULT OpenRoot() noexcept QV_REQUIRES(m_Guard);
    // Opens "Folders" or "Items" and all above it, where it isn't open.
    HRESULT OpenPart(const OLECHAR* name, ComPtr<IStorage>& part) noexcept QV_REQUIRES(m_Guard);
    // Throws std::bad_alloc.
    static HRESULT CreateElement(IStorage& part, BSTR id, VARIANT* pVal);
    HRESULT Forget() noexcept;
    void Close() noexcept QV_REQUIRES(m_Guard);

    SessionContext* const m_pSession;
    const Kept m_pKept;
    Event m_Event;  // set while no writer has the package
    Mutex m_Guard;  // of the fields below; never held while MAPI, the host or the database is called
    Bstr m_bstrRecipients QV_GUARDED_BY(m_Guard);
    Bstr m_bstrPath QV_GUARDED_BY(m_Guard);
    VARIANT_BOOL m_bIsLocked QV_GUARDED_BY(m_Guard) = VARIANT_FALSE;
    ComPtr<IStorage> m_pRoot QV_GUARDED_BY(m_Guard);
    ComPtr<IStorage> m_pVersion QV_GUARDED_BY(m_Guard);
    ComPtr<IStorage> m_pFolders QV_GUARDED_BY(m_Guard);
    ComPtr<IStorage> m_pItems QV_GUARDED_BY(m_Guard);
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_TRANSFER_STORAGE_FILE_H_
