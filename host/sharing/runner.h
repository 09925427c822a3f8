// host/sharing/runner.h: one run of a mailbox: watches, sends, delivers, receives.
#ifndef QUORVANE_HOST_SHARING_RUNNER_H_
#define QUORVANE_HOST_SHARING_RUNNER_H_

#include <chrono>
#include <memory>
#include <set>
#include <string>

#include "host/base/progress.h"
#include "host/base/stop_signals.h"
#include "host/sharing/addin.h"
#include "host/sharing/comparisons.h"
#include "host/sharing/conflict_copies.h"
#include "host/sharing/inbox.h"
#include "host/sharing/matcher.h"
#include "host/sharing/outbox.h"
#include "host/sharing/receipts.h"
#include "host/sharing/reconcile.h"
#include "host/sharing/resender.h"
#include "host/sharing/sender.h"

namespace quorvane::host {

struct RunOptions {
    bool json = false;
    bool verbose = false;
    bool untilIdle = false;
    double idleSeconds = 2;
    std::string mailbox;
    std::string exchange;         // empty: the one that the mailbox remembers
    std::int64_t askAfter = exchange::GapWatch::kPatience;
    std::int64_t compareAfter = Comparisons::kOnceInADay;
    std::set<std::string> acceptFrom;  // members whose invitations are accepted at once
};

class Runner {
public:
    // Logs on, takes up what an earlier run left, and begins to watch. Throws a HostError.
    Runner(const RunOptions& options, const Mailbox& mailbox);
    Runner(const Runner&) = delete;
    Runner& operator=(const Runner&) = delete;
    ~Runner();

    // Works until a signal, or until nothing is left to do. Throws a HostError when it can't go on.
    void Run(StopSignals& signals);

    const Statistics& Counts() const noexcept { return statistics_; }

private:
    void NameFormerLayout();
    void Start();
    void HoldBack(const Share& share);
    void WatchShare(const Share& share);
    bool IsAwaited(const Share& share);
    void LookThrough(const Share& share);
    void RetryUnsent();
    void FollowShares();
    void AnswerInvitations();
    void Step();
    void MakeCopies();
    void UseExchange();
    void MissExchange(const std::string& reason);
    bool MayTake();
    bool IsIdle();
    void CheckNowAndThen();
    bool CheckShares();
    void ShowProgress();
    void Say(const std::string& line);

    const RunOptions options_;
    const Mailbox& mailbox_;
    Statistics statistics_;
    MailSession mail_;
    Records records_;
    ItemState state_;
    ApplyGuard applying_;
    Addin::Parts parts_;
    Addin addin_;
    EngineSession engine_;
    Sender sender_;
    Reconciler reconciler_;
    Matcher matcher_;
    Outbox outbox_;
    Comparisons comparisons_;
    ConflictCopies copies_;
    Resender resender_;
    Inbox inbox_;
    Transport transport_;
    Receipts receipts_;
    Progress progress_;
    std::set<std::string> watched_;  // folders that the engine knows
    std::set<std::string> named_;    // invitations that were told of
    bool exchangeLost_ = false;
    std::chrono::steady_clock::time_point nextCheck_{};
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_SHARING_RUNNER_H_
