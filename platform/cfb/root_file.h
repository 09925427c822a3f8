// platform/cfb/root_file.h: what the COM objects on one compound file share: the file with its lock, and how
// they hold their elements.
#ifndef QUORVANE_PLATFORM_CFB_ROOT_FILE_H_
#define QUORVANE_PLATFORM_CFB_ROOT_FILE_H_

#include <memory>
#include <new>
#include <utility>

#include "platform/cfb/compound_file.h"
#include "platform/com/bstr.h"
#include "platform/com/mutex.h"

namespace quorvane::cfb {

// Lives as long as an object on the file does; the file itself is closed with its root storage, and what
// was opened through that is reverted from then on. Any thread may call: one at a time gets in.
class RootFile {
public:
    // path: what Stat tells of the root; empty for bytes of somebody's.
    RootFile(std::unique_ptr<ByteStore> store, OleString path)
        : path_(std::move(path)),
          store_(std::move(store)),
          file_(std::make_unique<CompoundFile>(*store_, memory_))
    {}

    const OleString& Path() const noexcept { return path_; }

    // Runs `operation` (CompoundFile& -> HRESULT) on an element; when a new storage that was released before
    // couldn't land, tells that instead, once. STG_E_REVERTED: the element is gone, or the file is closed.
    // E_OUTOFMEMORY.
    template <class Operation>
    [[nodiscard]] HRESULT Run(const OpenElement* element, const Operation& operation) noexcept
    {
        const MutexLock lock(lock_);
        if (!file_ || element->reverted)
            return STG_E_REVERTED;
        try {
            const HRESULT ready = file_->Ready();
            if (FAILED(ready))
                return ready;
            // What a release had no way to tell.
            const HRESULT landed = file_->TakeLandingFailure();
            if (FAILED(landed))
                return landed;
            return element->reverted ? STG_E_REVERTED : operation(*file_);
        } catch (const std::bad_alloc&) {
            file_->Failed();
            return E_OUTOFMEMORY;
        }
    }

    // The same before there is a root element.
    template <class Operation>
    [[nodiscard]] HRESULT Start(const Operation& operation) noexcept
    {
        const MutexLock lock(lock_);
        try {
            return operation(*file_);
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        }
    }

    // An object on the element is gone. The element's last one closes it, the root's last one the file.
    void Close(OpenElementPtr element, bool written) noexcept;
    // Lets go of an element that it was no user of.
    void Drop(OpenElementPtr element) noexcept;

private:
    Mutex lock_;
    const OleString path_;
    Arena memory_;  // of open elements
    std::unique_ptr<ByteStore> store_ QV_GUARDED_BY(lock_);
    std::unique_ptr<CompoundFile> file_ QV_GUARDED_BY(lock_);
};

// A COM object's hold on its element, which stays open as long as it has one user. Any thread may call.
class ElementHandle {
public:
    // Takes over one of the element's users.
    ElementHandle(std::shared_ptr<RootFile> root, OpenElementPtr element, DWORD mode) noexcept
        : root_(std::move(root)), element_(std::move(element)), mode_(mode)
    {}
    ElementHandle(const ElementHandle&) = delete;
    ElementHandle& operator=(const ElementHandle&) = delete;
    // Not to be called under the file's lock.
    ~ElementHandle() { root_->Close(std::move(element_), MayWrite()); }

    const std::shared_ptr<RootFile>& Root() const noexcept { return root_; }
    const OpenElementPtr& Element() const noexcept { return element_; }
    // The flags it was opened with.
    DWORD Mode() const noexcept { return mode_; }
    bool MayRead() const noexcept { return (mode_ & kAccess) != STGM_WRITE; }
    bool MayWrite() const noexcept { return (mode_ & kAccess) != STGM_READ; }

    // See RootFile::Run; operation (CompoundFile&, OpenElement&) -> HRESULT.
    template <class Operation>
    [[nodiscard]] HRESULT Run(const Operation& operation) const noexcept
    {
        return root_->Run(element_.get(), [&](CompoundFile& file) { return operation(file, *element_); });
    }

    // The same for what only an object that may write does; else STG_E_ACCESSDENIED.
    template <class Operation>
    [[nodiscard]] HRESULT Change(const Operation& operation) const noexcept
    {
        return MayWrite() ? Run(operation) : STG_E_ACCESSDENIED;
    }

    // As IStorage and IStream tell it.
    [[nodiscard]] HRESULT Stat(STATSTG* stat, DWORD flags) const noexcept;

    static constexpr DWORD kAccess = STGM_READ | STGM_WRITE | STGM_READWRITE;
    static constexpr DWORD kSharing =
        STGM_SHARE_EXCLUSIVE | STGM_SHARE_DENY_WRITE | STGM_SHARE_DENY_READ | STGM_SHARE_DENY_NONE;

private:
    const std::shared_ptr<RootFile> root_;
    OpenElementPtr element_;
    const DWORD mode_;
};

// Fills *stat from an entry: everything but grfMode. withName: the name too, in memory of the task
// allocator. E_OUTOFMEMORY.
[[nodiscard]] HRESULT FillStat(const DirEntry& entry, unsigned formatVersion, bool withName,
                               STATSTG* stat) noexcept;

}  // namespace quorvane::cfb

#endif  // QUORVANE_PLATFORM_CFB_ROOT_FILE_H_
