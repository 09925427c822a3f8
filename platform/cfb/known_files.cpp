#include "platform/cfb/known_files.h"

#include <algorithm>
#include <utility>

namespace quorvane::cfb {

KnownFiles& KnownFiles::Instance()
{
    static KnownFiles instance;
    return instance;
}

std::unique_ptr<Volume> KnownFiles::Take(const ByteStore::Identity& identity) noexcept
{
    const MutexLock lock(lock_);
    for (Known& known : files_) {
        if (known.volume && known.identity == identity)
            return std::move(known.volume);
    }
    return nullptr;
}

void KnownFiles::Keep(const ByteStore::Identity& identity, std::unique_ptr<Volume> volume) noexcept
{
    const MutexLock lock(lock_);
    if (files_.front().volume)
        files_.front().volume->file.DropCache();
    // What is known of an earlier state of the file is of no use.
    const auto same = std::find_if(files_.begin(), files_.end() - 1, [&](const Known& known) {
        return !known.volume ||
               (known.identity.device == identity.device && known.identity.file == identity.file);
    });
    std::move_backward(files_.begin(), same, same + 1);
    files_.front() = Known{identity, std::move(volume)};
}

}  // namespace quorvane::cfb
