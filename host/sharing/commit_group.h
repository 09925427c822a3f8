// host/sharing/commit_group.h: commits that wait for the disk together.
//
// While many items are sent, or any are applied, what is committed of each outlives the process at once, but
// doesn't wait for the disk by itself: message store, sharing database and records are synchronised together,
// once a second, and before anything is told of them: before a package gets its number, and before one that
// was received counts as applied. (Hash files never wait: what they lack is looked at once more.) Messages
// that are applied are gathered besides: those of some 40 ms are one commit, which a kill takes back as a
// whole. A power cut may take back what came after the last synchronisation, of each file another part. After
// either
//
//     what was being sent     has no number yet, is dropped, and is packed anew (outbox.h)
//     what was being applied  is applied once more out of the sealed copy of its package, which was on the
//                             disk before (recovery.h)
//
// A file beside the databases, `unsynced`, tells the next run that a group was open.
#ifndef QUORVANE_HOST_SHARING_COMMIT_GROUP_H_
#define QUORVANE_HOST_SHARING_COMMIT_GROUP_H_

#include <chrono>
#include <cstddef>
#include <filesystem>

#include "host/base/errors.h"
#include "host/sharing/addin.h"
#include "quorvane3/commit_groups.h"

namespace quorvane::host {

// Messages that were gathered couldn't be committed, as on a full disk. Rows and records tell of them, so
// that this process can't go on; the next run puts it right.
struct MessagesLost : HostError {
    using HostError::HostError;
};

// For the run's thread alone. Methods throw a HostError.
class CommitGroup {
public:
    // To send so few items no group is worth its own synchronisations.
    static constexpr std::size_t kFew = 4;

    // each  every commit of a message or a row waits for the disk. Those of records don't, so that a group
    //       is marked and put right all the same.
    CommitGroup(const Addin::Parts& parts, const EngineSession& engine, bool each);
    CommitGroup(const CommitGroup&) = delete;
    CommitGroup& operator=(const CommitGroup&) = delete;
    ~CommitGroup();

    // Of what items are applied from now on: messages and rows.
    void BeginApplying() { Begin(true); }
    // Of what items are sent: rows alone. One that applies stays one. What is packed goes on in an open file.
    void BeginSending() { Begin(false); }
    // What was committed is on the disk when this returns, and each commit waits for it again. Throws a
    // MessagesLost, and the group stays open, where what was applied isn't there; so do the two below.
    void End();
    bool IsOpen() const noexcept { return isOpen_; }

    // Whether one was open when the last run ended. Until it is put right no other is begun.
    bool WasOpen() const noexcept { return wasOpen_; }
    // What it left is put right.
    void NotePutRight();

    // What was committed is on the disk when this returns. Outside of a group it is.
    void Synchronize();
    // The same where the last time was a second ago.
    void SynchronizeNowAndThen();

private:
    void Begin(bool alsoMessages);
    void CommitMessages(bool goOn);
    void Sync();
    std::filesystem::path MarkPath() const;

    Addin::Parts parts_;
    ComPtr<ICommitGroups> rows_;      // empty where each commit waits
    ComPtr<ICommitGroups> messages_;  // as above
    ComPtr<IGatheredSaves> saves_;    // empty where each is committed
    ComPtr<IKeptPackages> packages_;  // empty where each is closed
    bool isOpen_ = false;
    bool isGathering_ = false;
    HRESULT gathered_ = S_OK;  // a failure lasts
    bool wasOpen_ = false;
    std::chrono::steady_clock::time_point last_{};
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_SHARING_COMMIT_GROUP_H_
