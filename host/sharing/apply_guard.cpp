#include "host/sharing/apply_guard.h"

namespace quorvane::host {

void ApplyGuard::Begin(const std::string& id, const std::string& folderId)
{
    const std::lock_guard lock(mutex_);
    inHand_ = {id, folderId, inHand_.turn + 1};
    ended_.notify_all();
}

void ApplyGuard::End()
{
    Begin({}, {});
}

ApplyGuard::Item ApplyGuard::InHand() const
{
    const std::lock_guard lock(mutex_);
    return inHand_;
}

bool ApplyGuard::AwaitEnd(const Item& item, std::chrono::milliseconds patience) const
{
    std::unique_lock lock(mutex_);
    return ended_.wait_for(lock, patience, [&] { return inHand_.turn != item.turn; });
}

}  // namespace quorvane::host
