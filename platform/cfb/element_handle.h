// platform/cfb/element_handle.h: what the COM objects on one element share.
#ifndef QUORVANE_PLATFORM_CFB_ELEMENT_HANDLE_H_
#define QUORVANE_PLATFORM_CFB_ELEMENT_HANDLE_H_

#include <memory>
#include <utility>

#include "platform/cfb/root_file.h"

namespace quorvane::cfb {

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

#endif  // QUORVANE_PLATFORM_CFB_ELEMENT_HANDLE_H_
