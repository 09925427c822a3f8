#include "host/runner.h"

#include <cstdio>

#include "host/output.h"
#include "host/path_text.h"

namespace quorvane::host {

namespace {

constexpr auto kStepTime = std::chrono::milliseconds(50);
// How long a change may take until the engine has reported it by itself.
constexpr auto kPatience = std::chrono::milliseconds(2500);
constexpr auto kCheckInterval = std::chrono::seconds(60);
constexpr auto kFirstCheck = std::chrono::seconds(3);
constexpr auto kQuietBeforeCheck = std::chrono::milliseconds(1000);

}  // namespace

Runner::Runner(const RunOptions& options, const Mailbox& mailbox)
    : options_(options),
      mailbox_(mailbox),
      mail_(options.mailbox),
      records_(mailbox.HostDatabasePath().string()),
      state_(mailbox, records_),
      parts_{mailbox_, mail_, records_, state_, applying_, statistics_, options.verbose},
      addin_(parts_),
      engine_(addin_, options.mailbox),
      sender_(addin_, parts_, engine_),
      reconciler_(sender_, parts_),
      matcher_(parts_, engine_),
      outbox_(engine_, records_, statistics_),
      inbox_(parts_, engine_, matcher_, [this](const std::string& line) { Say(line); }),
      exchange_(PathOf(options.exchange), mailbox),
      progress_(mailbox.Name())
{
    addin_.SetEngine(engine_);
    if (!exchange_.IsReachable())
        Fail("use the exchange", options.exchange, "no such directory");
    Start();
}

void Runner::Say(const std::string& line)
{
    std::fprintf(stderr, "quorvane: %s\n", Printable(line).c_str());
}

void Runner::Start()
{
    outbox_.Resume();
    state_.DropStrayRows();
    matcher_.MatchUnfinished();
    const std::vector<Share> shares = records_.Shares();
    // All of them before the first is compared: an item may have been moved from the one to the other.
    for (const Share& share : shares)
        HoldBack(share);
    for (const Share& share : shares)
        WatchShare(share);
    Check(engine_.Session().ResumeJobs(qv_rs_Both), "resume the jobs of", options_.mailbox);
    statistics_.Touch();
    nextCheck_ = std::chrono::steady_clock::now() + kFirstCheck;
}

// Adds the folder to the engine, which reports nothing of it yet.
void Runner::HoldBack(const Share& share)
{
    Check(AddEngineFolder(engine_, share)->put_IgnoreEvents(VARIANT_TRUE), "watch the folder", share.name);
}

// What happened in the folder while nobody watched is sent before the engine's own reports of it are let
// through.
void Runner::WatchShare(const Share& share)
{
    if (!records_.Members(share.folderId, true).empty())
        reconciler_.SendDifferences(share);
    AnnounceTo(share);
    Check(engine_.FindFolder(share.folderId)->put_IgnoreEvents(VARIANT_FALSE), "watch the folder", share.name);
}

// Tells the members that don't know of a folder yet. The package is taken at once: that fixes who has been
// told.
void Runner::AnnounceTo(const Share& share)
{
    for (const std::string& member : records_.Members(share.folderId, false)) {
        sender_.Announce(share, member, [this](std::size_t) { ShowProgress(); });
        outbox_.TakeReady(false);
    }
}

// Shares and members that another command, or a received announcement, has added since.
void Runner::AnnounceNew()
{
    for (const Share& share : records_.Shares())
        if (engine_.FindFolder(share.folderId)) {
            AnnounceTo(share);
        } else {
            HoldBack(share);
            WatchShare(share);
        }
}

void Runner::Step()
{
    AnnounceNew();
    outbox_.TakeReady(false);
    UseExchange();
    CheckNowAndThen();
    ShowProgress();
}

void Runner::UseExchange()
{
    try {
        if (!exchange_.IsReachable())
            Fail("use the exchange", options_.exchange, "the directory is gone");
        outbox_.Deliver(exchange_);
        while (inbox_.TakeNext(exchange_)) {
        }
        if (exchangeLost_)
            Say("the exchange '" + options_.exchange + "' is back");
        exchangeLost_ = false;
    } catch (const HostError& error) {
        if (!exchangeLost_)
            Say(std::string(error.what()) + "; nothing is lost, it is tried again");
        exchangeLost_ = true;
    }
}

void Runner::CheckNowAndThen()
{
    const auto now = std::chrono::steady_clock::now();
    if (now < nextCheck_ || statistics_.Quiet() < kQuietBeforeCheck || inbox_.IsBusy())
        return;
    bool clean = true;
    for (const Share& share : records_.Shares())
        clean = reconciler_.CheckDifferences(share, kPatience) && clean;
    nextCheck_ = now + (clean ? kCheckInterval : kFirstCheck);
}

bool Runner::IsIdle()
{
    const auto quiet = std::chrono::milliseconds(static_cast<long>(options_.idleSeconds * 1000));
    if (exchangeLost_ || statistics_.Quiet() < quiet || outbox_.HasWork() || inbox_.HasWork(exchange_))
        return false;
    bool clean = true;
    for (const Share& share : records_.Shares())
        clean = reconciler_.CheckDifferences(share, kPatience) &&
                records_.Members(share.folderId, false).empty() && clean;
    return clean;
}

void Runner::ShowProgress()
{
    progress_.Show(0, 0,
                   std::to_string(statistics_.itemsSent + statistics_.deletionsSent) + " changes sent in " +
                       std::to_string(statistics_.packagesSent) + " packages, " +
                       std::to_string(statistics_.itemsApplied + statistics_.deletionsApplied) +
                       " applied from " + std::to_string(statistics_.packagesReceived));
}

void Runner::Run(StopSignals& signals)
{
    while (!signals.Wait(kStepTime)) {
        Step();
        if (options_.untilIdle && IsIdle())
            return;
    }
    // What is packed goes out before the end, if the exchange takes it; else the next run sends it.
    outbox_.TakeReady(true);
    UseExchange();
}

}  // namespace quorvane::host
