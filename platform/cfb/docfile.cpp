#include "platform/cfb/docfile.h"

#include <new>
#include <utility>

#include "platform/bytes/file_store.h"
#include "platform/bytes/lock_bytes_store.h"
#include "platform/bytes/memory_lock_bytes.h"
#include "platform/cfb/storage_object.h"
#include "platform/com/result.h"

namespace quorvane::cfb {
namespace {

// The flags that a root may be made or opened with; STG_E_INVALIDFLAG for all others.
HRESULT CheckRootMode(DWORD mode, bool create) noexcept
{
    const DWORD known = ElementHandle::kAccess | ElementHandle::kSharing | (create ? STGM_CREATE : 0);
    const DWORD access = mode & ElementHandle::kAccess;
    const DWORD sharing = mode & ElementHandle::kSharing;
    if ((mode & ~known) != 0 || access > STGM_READWRITE)
        return STG_E_INVALIDFLAG;
    if (create)
        return access == STGM_READWRITE && sharing == STGM_SHARE_EXCLUSIVE ? S_OK : STG_E_INVALIDFLAG;
    const bool exclusive = sharing == STGM_SHARE_EXCLUSIVE;
    const bool reading = access == STGM_READ && sharing == STGM_SHARE_DENY_WRITE;
    return exclusive || reading ? S_OK : STG_E_INVALIDFLAG;
}

// Makes or opens the file in a store, which openStore (std::unique_ptr<ByteStore>* -> HRESULT) opens. path:
// what its root tells. layout: that of a new file; null: there is one.
template <class OpenStore>
HRESULT MakeRoot(LPCOLESTR path, DWORD mode, const Layout* layout, const OpenStore& openStore,
                 IStorage** storage) noexcept
{
    *storage = nullptr;
    if (!path)
        return STG_E_INVALIDNAME;
    QV_TRY(CheckRootMode(mode, layout != nullptr));
    try {
        std::unique_ptr<ByteStore> store;
        QV_TRY(openStore(&store));
        const auto root = std::make_shared<RootFile>(std::move(store), path);
        OpenElementPtr element;
        const auto start = [&](CompoundFile& file) {
            const HRESULT hr = layout ? file.Format(*layout) : file.Open();
            return FAILED(hr) ? hr : file.OpenRoot(&element);
        };
        QV_TRY(root->Start(start));
        *storage = MakeComObject<CStorageObject>(root, std::move(element), mode & ~STGM_CREATE).Detach();
        return *storage ? S_OK : E_OUTOFMEMORY;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT MakeRootIn(ILockBytes* bytes, DWORD mode, const Layout* layout, IStorage** storage) noexcept
{
    if (!storage || !bytes)
        return STG_E_INVALIDPOINTER;
    *storage = nullptr;
    if (layout && (mode & STGM_CREATE) == 0)
        return STG_E_INVALIDFLAG;
    const auto openStore = [&](std::unique_ptr<ByteStore>* store) {
        *store = std::make_unique<LockBytesStore>(bytes);
        return S_OK;
    };
    return MakeRoot(OLESTR(""), mode, layout, openStore, storage);
}

HRESULT Probe(ByteStore& store) noexcept
{
    BYTE begin[8];
    std::size_t read = 0;
    QV_TRY(store.ReadAt(0, begin, sizeof begin, &read));
    return read == sizeof begin && Header::HasSignature(begin) ? S_OK : S_FALSE;
}

}  // namespace

HRESULT CreateDocfile(LPCOLESTR path, DWORD mode, IStorage** storage, Layout layout) noexcept
{
    const FileUse use = (mode & STGM_CREATE) != 0 ? FileUse::kCreateAnew : FileUse::kCreate;
    const auto openStore = [&](auto* store) { return OpenFileStore(path, use, store); };
    return storage ? MakeRoot(path, mode, &layout, openStore, storage) : STG_E_INVALIDPOINTER;
}

HRESULT OpenDocfile(LPCOLESTR path, DWORD mode, IStorage** storage) noexcept
{
    FileUse use = FileUse::kReadWrite;
    if ((mode & ElementHandle::kAccess) == STGM_READ)
        use =
            (mode & ElementHandle::kSharing) == STGM_SHARE_EXCLUSIVE ? FileUse::kRead : FileUse::kReadSharing;
    const auto openStore = [&](auto* store) { return OpenFileStore(path, use, store); };
    return storage ? MakeRoot(path, mode, nullptr, openStore, storage) : STG_E_INVALIDPOINTER;
}

HRESULT IsDocfile(LPCOLESTR path) noexcept
{
    if (!path)
        return STG_E_INVALIDNAME;
    std::unique_ptr<ByteStore> store;
    QV_TRY(OpenFileStore(path, FileUse::kPeek, &store));
    return Probe(*store);
}

HRESULT CreateDocfileOnLockBytes(ILockBytes* bytes, DWORD mode, IStorage** storage, Layout layout) noexcept
{
    return MakeRootIn(bytes, mode, &layout, storage);
}

HRESULT OpenDocfileOnLockBytes(ILockBytes* bytes, DWORD mode, IStorage** storage) noexcept
{
    return MakeRootIn(bytes, mode, nullptr, storage);
}

HRESULT IsDocfileOnLockBytes(ILockBytes* bytes) noexcept
{
    if (!bytes)
        return STG_E_INVALIDPOINTER;
    LockBytesStore store(bytes);
    return Probe(store);
}

HRESULT CreateLockBytesInMemory(ILockBytes** bytes) noexcept
{
    if (!bytes)
        return STG_E_INVALIDPOINTER;
    *bytes = MakeComObject<CMemoryLockBytes>().Detach();
    return *bytes ? S_OK : E_OUTOFMEMORY;
}

}  // namespace quorvane::cfb
