// host/sharing/runner.h: one run of a mailbox: watches, sends, delivers, receives.
#ifndef QUORVANE_HOST_SHARING_RUNNER_H_
#define QUORVANE_HOST_SHARING_RUNNER_H_

#include <chrono>
#include <memory>
#include <set>
#include <string>

#include "host/base/change_watch.h"
#include "host/base/progress.h"
#include "host/base/stop_signals.h"
#include "host/sharing/addin.h"
#include "host/sharing/comparisons.h"
#include "host/sharing/conflict_copies.h"
#include "host/sharing/flag_sharing.h"
#include "host/sharing/folder_tree.h"
#include "host/sharing/inbox.h"
#include "host/sharing/matcher.h"
#include "host/sharing/missing_contents.h"
#include "host/sharing/outbox.h"
#include "host/sharing/receipts.h"
#include "host/sharing/reconcile.h"
#include "host/sharing/resender.h"
#include "host/sharing/run_observer.h"
#include "host/sharing/run_part.h"
#include "host/sharing/sender.h"
#include "host/sharing/settled_note.h"
#include "host/sharing/store_changes.h"

namespace quorvane::host {

struct RunOptions {
    bool json = false;
    bool verbose = false;
    bool untilIdle = false;
    double idleSeconds = 2;
    std::string mailbox;
    std::string exchange;      // empty: the one that the mailbox remembers
    std::string exchangeMode;  // empty: as it is
    std::int64_t askAfter = exchange::GapWatch::kPatience;
    std::int64_t compareAfter = Comparisons::kOnceInADay;
    std::int64_t silentAfter = Receipts::kMonth;
    std::int64_t lookEvery = 10;       // seconds
    std::uint64_t packageSize = 64;    // megabytes
    bool syncEach = false;             // each commit waits for the disk
    std::set<std::string> acceptFrom;  // members whose invitations are accepted at once
};

// It works when something has changed: in the mailbox's files, whichever process did it, and in the exchange;
// and looks once in a while (RunOptions::lookEvery) for what nobody told of. It steps on for as long as
// anything is under way.
class Runner {
public:
    // Logs on, takes up what an earlier run left, and begins to watch. Throws a HostError.
    //
    // signals, statistics: outlive it; what it counts may be read on any thread.
    Runner(const RunOptions& options, const Mailbox& mailbox, const StopSignals& signals,
           Statistics& statistics);
    Runner(const Runner&) = delete;
    Runner& operator=(const Runner&) = delete;
    ~Runner();

    // Work to be done beside its own, from now on; null: none. One at most.
    void Use(std::unique_ptr<RunPart> part) { part_ = std::move(part); }
    // Who is told from now on that it goes on; null: nobody. It outlives the runner.
    void TellTo(RunObserver* observer) noexcept { observer_ = observer; }
    const MailSession& Mail() const noexcept { return mail_; }

    // Works until a signal, or until nothing is left to do. Throws a HostError when it can't go on.
    void Run();

private:
    void Connect();
    void NameFormerLayout();
    void Start();
    void HoldBack(const Share& share);
    bool WatchShare(const Share& share, bool isSettled = false);
    void Recover();
    void FollowGroup();
    bool IsAwaited(const Share& share);
    void LookThrough(const Share& share);
    void RetryUnsent();
    bool FollowTrees();
    void FollowTreesNowAndThen();
    void FollowShares();
    void AnswerInvitations();
    bool Answer(const KnownFolder& invitation, bool mayFollow);
    void NameInvitation(const KnownFolder& invitation, const std::string& member);
    void Step();
    void MakeCopies();
    void MendMissing();
    void UseExchange();
    void MissExchange(const std::string& reason);
    bool MayTake();
    bool IsIdle();
    std::filesystem::path HomeOf(const exchange::DeviceId& device) const;
    void WatchArrivals();
    void WatchPlaces();
    bool IsAtWork();
    std::string Look();
    std::string LookWith(std::int64_t store) const;
    void NoteSettled();
    bool HasChanged();
    std::chrono::milliseconds UntilNextLook();
    void Rest();
    void CheckNowAndThen();
    bool CheckShares();
    bool IsSettled();
    void ShowProgress();
    std::string DoneText() const;
    std::string StateText() const;
    void TellDone();
    void Say(const std::string& line);

    const RunOptions options_;
    const Mailbox& mailbox_;
    const StopSignals& signals_;
    Statistics& statistics_;
    const SettledNote settledNote_;  // looks before the others write
    ChangeWatch watch_;
    bool isWatching_ = false;  // the mailbox and the exchange
    ChangeWatch arrivals_;     // where others lay packages, while it is at work too
    std::chrono::steady_clock::time_point nextArrivals_{};
    MailSession mail_;
    StoreChanges store_;
    Records records_;
    ItemState state_;
    ApplyGuard applying_;
    Addin::Parts parts_;
    Addin addin_;
    EngineSession engine_;
    CommitGroup group_;
    Sender sender_;
    Reconciler reconciler_;
    Matcher matcher_;
    Outbox outbox_;
    FlagSharing flags_;
    Comparisons comparisons_;
    ConflictCopies copies_;
    MissingContents missing_;
    Resender resender_;
    Inbox inbox_;
    Transport transport_;
    Receipts receipts_;
    FolderTrees trees_;
    Progress progress_;
    std::set<std::string> watched_;  // folders that the engine knows
    std::set<std::string> named_;    // invitations that were told of
    std::string told_;               // of what was done
    bool exchangeLost_ = false;
    std::chrono::steady_clock::time_point nextCheck_{};
    std::chrono::steady_clock::time_point busyUntil_{};
    std::string
        settled_;  // as `checked_`, at the last check that found all as it was sent, and nothing packed
    std::string checked_;  // what the message store looked like, and when anything was reported last, at the
                           // last check
    std::chrono::steady_clock::time_point nextTrees_{};
    std::string treesSeen_;  // what trees hung on when they were looked at last
    std::unique_ptr<RunPart> part_;
    RunObserver* observer_ = nullptr;
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_SHARING_RUNNER_H_
