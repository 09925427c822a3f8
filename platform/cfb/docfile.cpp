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

// start (CompoundFile& -> HRESULT) formats or opens the file.
template <class Start>
HRESULT MakeRoot(std::unique_ptr<ByteStore> store, OleString path, DWORD mode, const Start& start,
                 IStorage** storage)
{
    const auto root = std::make_shared<RootFile>(std::move(store), std::move(path));
    OpenElementPtr element;
    QV_TRY(root->Start([&](CompoundFile& file) -> HRESULT {
        const HRESULT hr = start(file);
        return FAILED(hr) ? hr : file.OpenRoot(&element);
    }));
    *storage = MakeComObject<CStorageObject>(root, std::move(element), mode & ~STGM_CREATE).Detach();
    return *storage ? S_OK : E_OUTOFMEMORY;
}

// Runs what makes a storage; no exception leaves.
template <class Make>
HRESULT Guarded(const Make& make) noexcept
{
    try {
        return make();
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
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
    if (!storage)
        return STG_E_INVALIDPOINTER;
    *storage = nullptr;
    if (!path)
        return STG_E_INVALIDNAME;
    QV_TRY(CheckRootMode(mode, true));
    return Guarded([&]() -> HRESULT {
        const FileUse use = (mode & STGM_CREATE) != 0 ? FileUse::kCreateAnew : FileUse::kCreate;
        std::unique_ptr<ByteStore> store;
        QV_TRY(OpenFileStore(path, use, &store));
        return MakeRoot(
            std::move(store), path, mode, [&](CompoundFile& file) { return file.Format(layout); }, storage);
    });
}

HRESULT OpenDocfile(LPCOLESTR path, DWORD mode, IStorage** storage) noexcept
{
    if (!storage)
        return STG_E_INVALIDPOINTER;
    *storage = nullptr;
    if (!path)
        return STG_E_INVALIDNAME;
    QV_TRY(CheckRootMode(mode, false));
    return Guarded([&]() -> HRESULT {
        FileUse use = FileUse::kReadWrite;
        if ((mode & ElementHandle::kAccess) == STGM_READ)
            use = (mode & ElementHandle::kSharing) == STGM_SHARE_EXCLUSIVE ? FileUse::kRead
                                                                           : FileUse::kReadSharing;
        std::unique_ptr<ByteStore> store;
        QV_TRY(OpenFileStore(path, use, &store));
        return MakeRoot(
            std::move(store), path, mode, [](CompoundFile& file) { return file.Open(); }, storage);
    });
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
    if (!storage || !bytes)
        return STG_E_INVALIDPOINTER;
    *storage = nullptr;
    QV_TRY(CheckRootMode(mode, true));
    if ((mode & STGM_CREATE) == 0)
        return STG_E_INVALIDFLAG;
    return Guarded([&]() -> HRESULT {
        return MakeRoot(
            std::make_unique<LockBytesStore>(bytes), OleString(), mode,
            [&](CompoundFile& file) { return file.Format(layout); }, storage);
    });
}

HRESULT OpenDocfileOnLockBytes(ILockBytes* bytes, DWORD mode, IStorage** storage) noexcept
{
    if (!storage || !bytes)
        return STG_E_INVALIDPOINTER;
    *storage = nullptr;
    QV_TRY(CheckRootMode(mode, false));
    return Guarded([&]() -> HRESULT {
        return MakeRoot(
            std::make_unique<LockBytesStore>(bytes), OleString(), mode,
            [](CompoundFile& file) { return file.Open(); }, storage);
    });
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
