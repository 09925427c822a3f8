#include "platform/cfb/root_file.h"

namespace quorvane::cfb {

void RootFile::Drop(OpenElementPtr element) noexcept
{
    const MutexLock lock(lock_);
    const OpenElementPtr dropped = std::move(element);
}

void RootFile::Close(OpenElementPtr held, bool written) noexcept
{
    const MutexLock lock(lock_);
    const OpenElementPtr element = std::move(held);
    if (--element->users > 0 || !file_)
        return;
    file_->Close(*element);
    if (element->type == EntryType::kRoot) {
        try {
            if (written)
                file_->Tidy();
        } catch (const std::bad_alloc&) {
            file_->Failed();  // without memory the file keeps its free space
        }
        file_->Leave();
        file_.reset();
        store_.reset();
    }
}

}  // namespace quorvane::cfb
