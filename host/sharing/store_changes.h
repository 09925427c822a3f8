// host/sharing/store_changes.h: what other processes do in a mailbox's message store, told sooner than it
// finds out.
#ifndef QUORVANE_HOST_SHARING_STORE_CHANGES_H_
#define QUORVANE_HOST_SHARING_STORE_CHANGES_H_

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include "host/base/sqlite.h"
#include "quorvane3/com.h"
#include "quorvane3/message_store.h"

namespace quorvane::host {

// For one thread.
class StoreChanges {
public:
    using Clock = std::chrono::steady_clock;

    // path  of the store's file.
    StoreChanges(std::filesystem::path path, IUnknown& store);

    // What the store's files look like from outside: whoever writes there changes that.
    std::string Look() const;
    // Changes with each commit, whoever made it, and not before the commit can be seen: what was read after
    // this was asked, and is the same still, is all that there is to be read. Throws a HostError.
    std::int64_t Version();

    // So long after its files changed the store is had to look: a commit can be seen some time after its last
    // write to the file, as the disk may be waited for in between.
    static constexpr auto kCommitTime = std::chrono::milliseconds(200);
    // What comes when nothing came for so long is fresh for such a moment.
    static constexpr auto kStillFor = std::chrono::seconds(1);
    static constexpr auto kFreshTime = std::chrono::milliseconds(300);

    // Has the store look for what others did, where its files have just changed: to be called again and
    // again. now  the time, which doesn't go back.
    void Follow(Clock::time_point now = Clock::now());

    // Whether the files have changed a moment ago and hadn't for a while before: what follows from that is
    // waited for.
    bool IsFresh(Clock::time_point now = Clock::now()) const { return now < freshUntil_; }

private:
    const std::filesystem::path path_;
    std::unique_ptr<Database> versions_;  // asked for nothing else
    ComPtr<IChangesOfOthers> changes_;    // null: the store finds them by itself
    std::string look_;
    Clock::time_point moved_{};  // when they had changed; long ago at first
    Clock::time_point freshUntil_{};
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_SHARING_STORE_CHANGES_H_
