// platform/cfb/storage_object.h: IStorage on a storage of a compound file.
#ifndef QUORVANE_PLATFORM_CFB_STORAGE_OBJECT_H_
#define QUORVANE_PLATFORM_CFB_STORAGE_OBJECT_H_

#include <utility>

#include "platform/cfb/root_file.h"
#include "platform/com/com_object.h"

namespace quorvane::cfb {

// Direct: what a method changed is in the file when it returns, but for a new storage and what is made in
// it: these land in the file as a whole, by one write, which also replaces a storage of that name, when the
// outermost new storage is released for the last time or committed, or a storage above it is released. Until
// then the objects of this root find them as they find all else. A release has no way to tell that a storage
// couldn't land: the next call of any object of the root returns that instead of doing its work, once. Commit
// of the root also gives free space at the end of the file back. Revert of a new storage that hasn't landed
// gives it up: it is gone from then on, and one that it was to replace stays; else it does nothing.
//
// Results as published; on all methods STG_E_REVERTED once the storage was
// destroyed or a storage above it released, STG_E_DOCFILECORRUPT where the file is damaged.
//
// Elements are opened with STGM_SHARE_EXCLUSIVE and STGM_READ, STGM_WRITE or STGM_READWRITE, created with
// these and STGM_CREATE; every other flag gives STG_E_INVALIDFLAG. An element that is open can't be opened
// again or renamed (STG_E_ACCESSDENIED), but it can be destroyed and replaced.
//
// Any thread may call.
class CStorageObject final : public ComObject<CStorageObject, IStorage> {
public:
    static constexpr EntryType kType = EntryType::kStorage;

    // Takes over one of the element's users.
    CStorageObject(std::shared_ptr<RootFile> root, OpenElementPtr element, DWORD mode) noexcept
        : m_handle(std::move(root), std::move(element), mode)
    {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override;

    HRESULT STDMETHODCALLTYPE CreateStream(LPCOLESTR name, DWORD mode, DWORD reserved1, DWORD reserved2,
                                           IStream** stream) override;
    HRESULT STDMETHODCALLTYPE OpenStream(LPCOLESTR name, void* reserved1, DWORD mode, DWORD reserved2,
                                         IStream** stream) override;
    HRESULT STDMETHODCALLTYPE CreateStorage(LPCOLESTR name, DWORD mode, DWORD reserved1, DWORD reserved2,
                                            IStorage** storage) override;
    HRESULT STDMETHODCALLTYPE OpenStorage(LPCOLESTR name, IStorage* priority, DWORD mode, SNB exclude,
                                          DWORD reserved, IStorage** storage) override;
    // STG_E_ACCESSDENIED: the target lies in this storage.
    HRESULT STDMETHODCALLTYPE CopyTo(DWORD excludedCount, const IID* excludedInterfaces, SNB excludedNames,
                                     IStorage* target) override;
    // STGMOVE_SHALLOWCOPY gives STG_E_INVALIDFLAG.
    HRESULT STDMETHODCALLTYPE MoveElementTo(LPCOLESTR name, IStorage* target, LPCOLESTR newName,
                                            DWORD flags) override;
    HRESULT STDMETHODCALLTYPE Commit(DWORD flags) override;
    HRESULT STDMETHODCALLTYPE Revert() override;
    HRESULT STDMETHODCALLTYPE EnumElements(DWORD reserved1, void* reserved2, DWORD reserved3,
                                           IEnumSTATSTG** enumerator) override;
    HRESULT STDMETHODCALLTYPE DestroyElement(LPCOLESTR name) override;
    HRESULT STDMETHODCALLTYPE RenameElement(LPCOLESTR oldName, LPCOLESTR newName) override;
    // A null name means this storage. Streams have no times: S_OK, and nothing changes.
    HRESULT STDMETHODCALLTYPE SetElementTimes(LPCOLESTR name, const FILETIME* created,
                                              const FILETIME* accessed, const FILETIME* modified) override;
    HRESULT STDMETHODCALLTYPE SetClass(REFCLSID clsid) override;
    HRESULT STDMETHODCALLTYPE SetStateBits(DWORD bits, DWORD mask) override;
    HRESULT STDMETHODCALLTYPE Stat(STATSTG* stat, DWORD flags) override { return m_handle.Stat(stat, flags); }

private:
    [[nodiscard]] HRESULT CheckMode(DWORD mode, bool create) const noexcept;
    template <class Object, class Interface>
    [[nodiscard]] HRESULT OpenOrCreate(LPCOLESTR name, DWORD mode, bool create, bool reserved,
                                       Interface** object);
    [[nodiscard]] HRESULT CopyStream(LPCOLESTR name, IStorage* target, LPCOLESTR newName);
    [[nodiscard]] HRESULT CopyStorage(LPCOLESTR name, IStorage* target, LPCOLESTR newName);
    [[nodiscard]] HRESULT CopyElements(bool storages, bool streams, SNB excludedNames, IStorage* target);
    [[nodiscard]] HRESULT CopyOwn(IStorage* target);
    bool Contains(IStorage* other) const noexcept;

    const ElementHandle m_handle;
};

}  // namespace quorvane::cfb

#endif  // QUORVANE_PLATFORM_CFB_STORAGE_OBJECT_H_
