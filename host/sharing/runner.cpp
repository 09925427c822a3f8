#include "host/sharing/runner.h"

#include <algorithm>
#include <cstdio>
#include <system_error>

#include "host/base/output.h"
#include "host/base/path_text.h"
#include "host/base/processor_time.h"
#include "host/exchange/error.h"
#include "host/sharing/check_rest.h"
#include "host/sharing/join_folder.h"
#include "host/store/folders.h"

namespace quorvane::host {

namespace {

constexpr auto kStepTime = std::chrono::milliseconds(25);
// The same while somebody's edit is on its way out, and where others lay something into the exchange.
constexpr auto kShortStepTime = std::chrono::milliseconds(8);
// How often it is seen to that the places where others lay packages are watched.
constexpr auto kArrivalsTime = std::chrono::seconds(1);
// How long it steps on after something happened: what follows from it may not be told, and may wait for its
// time.
constexpr auto kAttention = std::chrono::milliseconds(3000);
// How often an exchange that is gone is looked for.
constexpr auto kRetryInterval = std::chrono::milliseconds(1000);
// How long a change may take until the engine has reported it by itself.
constexpr auto kPatience = std::chrono::milliseconds(2500);
constexpr auto kQuietBeforeComparison = std::chrono::milliseconds(300);
constexpr auto kQuietBeforeCheck = std::chrono::milliseconds(1000);

}  // namespace

Runner::Runner(const RunOptions& options, const Mailbox& mailbox, const StopSignals& signals,
               Statistics& statistics)
    : options_(options),
      mailbox_(mailbox),
      signals_(signals),
      statistics_(statistics),
      settledNote_(mailbox),
      mail_(options.mailbox),
      store_(mailbox.StorePath(), mail_.Store()),
      records_(mailbox.HostDatabasePath().string()),
      state_(mailbox, records_),
      parts_{mailbox_, mail_, records_, state_, applying_, statistics_, options.verbose},
      addin_(parts_),
      engine_(addin_, options.mailbox),
      group_(parts_, engine_, options.syncEach),
      sender_(addin_, parts_, engine_),
      reconciler_(sender_, parts_,
                  [this](const std::string& id, const std::string& folderId, const std::string& reason) {
                      outbox_.NoteUnsent(id, folderId, reason);
                  }),
      matcher_(parts_, engine_),
      outbox_(
          parts_, engine_, [this](const std::string& line) { Say(line); }, options.packageSize << 20),
      flags_(parts_),
      comparisons_(
          parts_, sender_, flags_, [this](const std::string& line) { Say(line); }, options.compareAfter),
      copies_(parts_, addin_, engine_, sender_, [this](const std::string& line) { Say(line); }),
      missing_(parts_, addin_, engine_, sender_, [this](const std::string& line) { Say(line); }),
      resender_(parts_, engine_, sender_, reconciler_, outbox_,
                [this](const std::string& line) { Say(line); }),
      inbox_(
          parts_, engine_, matcher_, [this](const std::string& line) { Say(line); }, options.askAfter),
      transport_(mailbox, PathOf(options.exchange)),
      receipts_(
          mailbox.Name(), [this](const std::string& line) { Say(line); }, options.askAfter,
          options.silentAfter),
      trees_(mail_, records_, transport_.folders),
      progress_(mailbox.Name())
{
    Connect();
    if (!transport_.place.IsReachable())
        Fail("use the exchange", options.exchange, "no such directory");
    NameFormerLayout();
    // Before anything gets a number.
    try {
        receipts_.Begin(transport_);
    } catch (const exchange::Error& error) {
        MissExchange(error.what());
    }
    transport_.folders.Settle();
    Start();
}

// Tells its parts of each other.
void Runner::Connect()
{
    addin_.SetEngine(engine_);
    addin_.SetResendRules(&resender_);
    addin_.SetPackageRoom(&outbox_);
    addin_.SetMarkKeeper(&flags_);
    inbox_.SetReports(&comparisons_);
    inbox_.SetFlags(&flags_);
    inbox_.SetGroup(&group_);
    outbox_.SetGroup(&group_);
    reconciler_.SetPacking([this] { return outbox_.HasWork(); });
    reconciler_.SetStop([this] {
        if (observer_)
            observer_->GoesOn();
        return signals_.IsAsked();
    });
}

// The exchange of a former version holds packages in clear, below the receiver's name.
void Runner::NameFormerLayout()
{
    bool found = false;
    try {
        const auto root = exchange::OutsideDirectory::Open(PathOf(options_.exchange));
        if (const auto own = root ? root->Sub(mailbox_.Name()) : nullptr)
            own->ForEachName(
                [&](const std::string& name) { return !(found = name.find('~') != std::string::npos); });
    } catch (const exchange::Error&) {
        return;
    }
    if (found)
        Say("packages of the former layout for '" + mailbox_.Name() +
            "' lie in the exchange and aren't read any more: "
            "their senders send everything once more when they run this version");
}

// The engine outlives what it asks.
Runner::~Runner()
{
    addin_.SetMarkKeeper(nullptr);
    addin_.SetPackageRoom(nullptr);
    addin_.SetResendRules(nullptr);
}

void Runner::Say(const std::string& line)
{
    Tell("quorvane: " + line);
}

void Runner::Start()
{
    const bool wasSettled = settledNote_.Holds() && !group_.WasOpen();
    const std::int64_t version = store_.Version();
    Recover();
    transport_.folders.NotePaths(ListFolders(mail_));
    FollowTrees();
    outbox_.Resume();
    state_.DropStrayRows();
    matcher_.MatchUnfinished();
    const std::vector<Share> shares = records_.Shares();
    // All of them before the first is compared: an item may have been moved from the one to the other.
    for (const Share& share : shares)
        HoldBack(share);
    bool isSettled = true;
    for (const Share& share : shares)
        isSettled = WatchShare(share, wasSettled) && isSettled;
    group_.End();
    outbox_.TakeNotes(transport_.folders);
    RetryUnsent();
    inbox_.ResumeGroup(transport_);
    Check(engine_.Session().ResumeJobs(qv_rs_Both), "resume the jobs of", options_.mailbox);
    addin_.Versions().Removed().Expire(FileTimeNow());
    statistics_.Touch();
    nextCheck_ = std::chrono::steady_clock::now() + kShortestRest;
    if (isSettled && !outbox_.HasWork())
        settled_ = checked_ = LookWith(version);
}

// After a power cut, before anything is compared.
void Runner::Recover()
{
    if (!group_.WasOpen())
        return;
    Recovery recovery(parts_, engine_);
    inbox_.Recover(transport_, recovery);
    for (const Share& share : records_.Shares())
        recovery.ForgetUnsent(share);
    group_.NotePutRight();
}

// Adds the folder to the engine, which reports nothing of it yet.
void Runner::HoldBack(const Share& share)
{
    LookThrough(share);
    watched_.insert(share.folderId);
    Check(AddEngineFolder(engine_, share)->put_IgnoreEvents(VARIANT_TRUE), "watch the folder", share.name);
}

// What happened in the folder while nobody watched is sent before the engine's own reports of it are let
// through; isSettled: nothing did. True where there was nothing to be sent.
bool Runner::WatchShare(const Share& share, bool isSettled)
{
    reconciler_.SetGroup(transport_.peers.Current() ? nullptr : &group_);  // as FollowGroup
    const bool isClean = isSettled || !IsAwaited(share) || reconciler_.SendDifferences(share);
    Check(engine_.FindFolder(share.folderId)->put_IgnoreEvents(VARIANT_FALSE), "watch the folder",
          share.name);
    return isClean;
}

// Whether anybody waits for changes of the folder who isn't to be sent all of it anyway.
bool Runner::IsAwaited(const Share& share)
{
    ResendRecord nobody;
    nobody.folderId = share.folderId;
    return records_.OthersHave(nobody, {});
}

// Of a folder that was shared here in former times, items are known that may lie elsewhere by now, or
// nowhere: nobody who joins again deletes them at the others.
void Runner::LookThrough(const Share& share)
{
    if (!transport_.folders.IsFresh(share.folderId))
        return;
    bool keeps = false;
    records_.ForEachItem(share.folderId, Records::Deleted::kLeftOut, [&](const ItemRecord& item) {
        const auto row = state_.RowOfId(item.id);
        if (row && FolderOfMessage(mail_, row->entryId) == share.entryId) {
            keeps = true;
            return;
        }
        if (row)
            Check(engine_.Session().DeleteItem(BstrOf(item.id).Get()), "forget an item of", share.name);
        records_.ForgetItem(item.id);
    });
    if (!keeps)
        for (const std::string& id : records_.DeletedBy(share.folderId, {}))
            records_.ForgetItem(id);
    transport_.folders.NoteLookedThrough(share.folderId);
}

// What an earlier run had to leave out of a package may be fit to be sent by now.
void Runner::RetryUnsent()
{
    for (const UnsentItem& item : records_.Unsent()) {
        const auto share = records_.FindShare(item.folderId);
        const auto row = state_.RowOfId(item.id);
        try {
            if (!share || !row || !sender_.SendItem(*share, row->entryId, share->entryId))
                records_.ForgetUnsent(item.id);
        } catch (const HostError&) {
            continue;  // it stays noted
        }
    }
}

// What other commands, or members, have made shared or ended since.
void Runner::FollowShares()
{
    std::set<std::string> shared;
    for (const Share& share : records_.Shares()) {
        shared.insert(share.folderId);
        if (!watched_.contains(share.folderId)) {
            HoldBack(share);
            WatchShare(share);
        }
    }
    if (shared.size() == watched_.size() || inbox_.IsBusy())
        return;
    for (auto folder = watched_.begin(); folder != watched_.end();) {
        if (shared.contains(*folder)) {
            ++folder;
            continue;
        }
        if (const ComPtr<IFolder> watched = engine_.FindFolder(*folder)) {
            const std::string entryId = ReadText(*watched, &IFolder::get_EntryID);
            Check(engine_.Folders()->Remove(Variant::Text(FromUtf8(entryId)).Raw()),
                  "stop watching the folder", *folder);
        }
        folder = watched_.erase(folder);
    }
}

// What came to lie in trees is shared; true where nothing had.
bool Runner::FollowTrees()
{
    const std::vector<Share> shared = trees_.ShareWhatLiesIn();
    for (const Share& share : shared)
        Say("shares '" + share.name + "' as the folder that it lies in");
    if (!shared.empty())
        statistics_.Touch();
    return shared.empty();
}

// Where the message store has changed, or somebody told of members.
void Runner::FollowTreesNowAndThen()
{
    if (std::chrono::steady_clock::now() < nextTrees_ || inbox_.IsBusy())
        return;
    const std::string look = store_.Look() + std::to_string(statistics_.packagesReceived.load());
    if (look == treesSeen_)
        return;
    const auto begin = ProcessorTimeOfThread();
    FollowTrees();
    treesSeen_ = look;
    nextTrees_ = std::chrono::steady_clock::now() + RestAfterLook(ProcessorTimeOfThread() - begin);
}

// Invitations are named once; those of members whom the user has named for it are accepted, and those that
// lie in a folder that he has accepted with all that its founder puts into it.
void Runner::AnswerInvitations()
{
    std::set<std::string> followed = transport_.folders.Followed();
    for (const KnownFolder& invitation : transport_.folders.Invitations()) {
        const bool mayFollow = followed.contains(invitation.outer);
        if (named_.insert(invitation.founding + std::to_string(invitation.since) + (mayFollow ? "+" : ""))
                .second &&
            Answer(invitation, mayFollow))
            followed.insert(invitation.founding);
    }
}

// True where it was accepted with all that its founder puts into it.
bool Runner::Answer(const KnownFolder& invitation, bool mayFollow)
{
    SharedFolders& folders = transport_.folders;
    const auto id = exchange::ParseDeviceId(invitation.inviter);
    const auto peer = id ? transport_.peers.Find(*id) : std::nullopt;
    const std::string member = peer ? peer->member : "a member who was forgotten";
    // Who has declined it once, or left it, is asked.
    const bool follows = mayFollow && IsFollowed(invitation, folders) && !folders.HasSignedOff(invitation);
    // By linking another device of his the user has said that he wants what it has.
    const bool isWanted =
        peer && peer->IsPinnedByUser() && (member == mailbox_.Name() || options_.acceptFrom.contains(member));
    if (!follows && !isWanted) {
        NameInvitation(invitation, member);
        return false;
    }
    try {
        const Share share = JoinFolder(invitation, {{}, {}, follows}, mail_, records_, folders, member);
        Say("accepted '" + invitation.name + "' from " + member + " as the folder '" + share.name + "'");
        statistics_.Touch();
        return follows;
    } catch (const HostError& error) {
        Say(error.what());
        return false;
    }
}

// Of those that lie in one that nobody has decided on either, that one alone is named.
void Runner::NameInvitation(const KnownFolder& invitation, const std::string& member)
{
    const KnownFolder outermost = transport_.folders.OutermostInvitation(invitation);
    if (outermost.founding == invitation.founding)
        Say(member + " shares '" + invitation.name + "': 'quorvane accept MAILBOX " + invitation.Id() +
            "' takes part, 'decline' doesn't");
    else if (named_.insert(outermost.founding + " tree").second)
        Say(member + " shares folders in '" + outermost.name + "', too: 'quorvane accept MAILBOX " +
            outermost.Id() + " --tree' takes part in all of them");
}

void Runner::Step()
{
    AnswerInvitations();
    FollowTreesNowAndThen();
    FollowShares();
    outbox_.TakeNotes(transport_.folders);
    outbox_.TakeReady(false);
    outbox_.Plan();
    resender_.Step();
    FollowGroup();
    MakeCopies();
    MendMissing();
    // What an item is marked with is shown before a part of the run looks at it: the engine marks it as
    // unread.
    const bool isFree = !inbox_.IsBusy();
    if (isFree)
        flags_.Show();
    // What was applied is on the disk only once its package is finished; nothing is to follow from it before.
    if (part_)
        part_->Step(isFree && !transport_.peers.Current());
    // What readers did, and a part on their behalf, leaves with this step.
    flags_.Step(isFree);
    outbox_.Plan();
    comparisons_.Step(statistics_.Quiet() >= kQuietBeforeComparison && !resender_.HasWork() &&
                      !outbox_.HasWork() && !copies_.HasWork() && !inbox_.IsBusy());
    UseExchange();
    CheckNowAndThen();
    ShowProgress();
}

// A resend sends many items. A group of what is applied ends with its package; and of one that is applied
// without a group, none begins.
void Runner::FollowGroup()
{
    const bool isWanted = resender_.IsUnderWay();
    if (isWanted != group_.IsOpen() && !transport_.peers.Current())
        isWanted ? group_.BeginSending() : group_.End();
    group_.SynchronizeNowAndThen();
}

// What was made here and was beaten becomes an item of its own.
void Runner::MakeCopies()
{
    if (!copies_.HasWork() || inbox_.IsBusy())
        return;
    group_.End();
    copies_.Make();
}

// What comes by itself comes first.
void Runner::MendMissing()
{
    if (missing_.HasWork() && statistics_.Quiet() >= kQuietBeforeComparison && !copies_.HasWork() &&
        !inbox_.IsBusy()) {
        group_.End();
        missing_.Look();
    }
}

// What was taken is told after it, and nothing is sent before the mailbox knows where it stands.
void Runner::UseExchange()
{
    try {
        if (!transport_.place.IsReachable())
            Fail("use the exchange", options_.exchange, "the directory is gone");
        receipts_.Begin(transport_);
        receipts_.Look(transport_);
        outbox_.Deliver(transport_);
        while (inbox_.TakeNext(transport_)) {
        }
        receipts_.Tell(transport_);
        if (exchangeLost_)
            Say("the exchange '" + options_.exchange + "' is back");
        exchangeLost_ = false;
    } catch (const CopyAtWork&) {
        throw;
    } catch (const MessagesLost&) {
        throw;
    } catch (const HostError& error) {
        MissExchange(error.what());
    } catch (const exchange::Error& error) {
        MissExchange(error.what());
    }
}

void Runner::MissExchange(const std::string& reason)
{
    const bool isThere = transport_.place.IsReachable();
    if (!exchangeLost_)
        Say((isThere ? reason : "the exchange '" + options_.exchange + "' is gone") +
            "; nothing is lost, it is tried again");
    exchangeLost_ = true;
}

void Runner::CheckNowAndThen()
{
    const auto now = std::chrono::steady_clock::now();
    // A resend comes upon most differences by itself, and has what it leaves compared at its end.
    if (resender_.HasWork())
        return;
    if (now < nextCheck_ || statistics_.Quiet() < kQuietBeforeCheck || inbox_.IsBusy() || !HasChanged())
        return;
    const std::string look = Look();
    const auto begin = ProcessorTimeOfThread();
    const bool clean = CheckShares();
    nextCheck_ = std::chrono::steady_clock::now() + RestAfterCheck(ProcessorTimeOfThread() - begin, clean);
    checked_ = clean ? look : std::string();
}

// What the message store looks like, and when the engine reported anything last.
std::string Runner::Look()
{
    return LookWith(store_.Version());
}

std::string Runner::LookWith(std::int64_t store) const
{
    return std::to_string(store) + " " + std::to_string(statistics_.lastActivity.load());
}

// Whether anything happened since the folders were found to be as they were sent.
bool Runner::HasChanged()
{
    return Look() != checked_;
}

// Whether all members who have a folder were sent all of it. Who hasn't yet is sent the whole of it when he
// has.
bool Runner::CheckShares()
{
    bool clean = true;
    for (const Share& share : records_.Shares())
        if (watched_.contains(share.folderId) && IsAwaited(share))
            clean = reconciler_.CheckDifferences(share, kPatience) && clean;
    return clean;
}

// The same, while nothing is being packed. What was found so before isn't compared again.
bool Runner::IsSettled()
{
    const std::string look = Look();
    if (look != settled_)
        settled_ = CheckShares() ? look : std::string();
    return !settled_.empty();
}

// An exchange that is gone just now is missed by the next step.
bool Runner::MayTake()
{
    try {
        return inbox_.HasWork(transport_);
    } catch (const exchange::Error&) {
        return true;
    }
}

bool Runner::IsIdle()
{
    const auto quiet = std::chrono::milliseconds(static_cast<long>(options_.idleSeconds * 1000));
    if (exchangeLost_ || statistics_.Quiet() < quiet || resender_.HasWork() || outbox_.HasWork() ||
        comparisons_.HasWork() || missing_.HasWork() || flags_.HasWork() || (part_ && part_->HasWork()) ||
        MayTake())
        return false;
    return IsSettled() && FollowTrees() && !transport_.folders.HasDueNotes();
}

void Runner::ShowProgress()
{
    if (const std::string resend = resender_.ProgressText(); !resend.empty()) {
        progress_.Show(static_cast<unsigned long long>(resender_.Done()),
                       static_cast<unsigned long long>(resender_.Total()), resend);
        return;
    }
    progress_.Show(0, 0, DoneText());
}

std::string Runner::DoneText() const
{
    return Counted(statistics_.itemsSent + statistics_.deletionsSent, "change") + " sent in " +
           Counted(statistics_.packagesSent, "package") + ", " +
           std::to_string(statistics_.itemsApplied + statistics_.deletionsApplied) + " applied from " +
           std::to_string(statistics_.packagesReceived);
}

std::string Runner::StateText() const
{
    const std::string resend = resender_.ProgressText();
    return (exchangeLost_ ? "the exchange can't be used just now; " : "") +
           (resend.empty() ? DoneText() : resend);
}

// A line each time that a piece of work is done.
void Runner::TellDone()
{
    const std::string text = DoneText();
    if (statistics_.packagesSent + statistics_.packagesReceived > 0 && text != told_)
        Say("so far " + text);
    told_ = text;
}

std::filesystem::path Runner::HomeOf(const exchange::DeviceId& device) const
{
    return transport_.directory / PathOf(exchange::TextOf(device));
}

// Once in a while: with every step it would cost as much as the devices that are known are many.
void Runner::WatchArrivals()
{
    const auto now = std::chrono::steady_clock::now();
    if (now < nextArrivals_)
        return;
    nextArrivals_ = now + kArrivalsTime;
    for (const Peer& peer : transport_.peers.All())
        arrivals_.Watch(HomeOf(peer.id) / "out");
}

// Before it is looked at: what happens after that is told. While it is at work nobody waits to be told of but
// what others send: each of its own writes would be noted.
void Runner::WatchPlaces()
{
    const bool isAtWork = IsAtWork();
    if (isAtWork && isWatching_)
        watch_.End();
    watch_.Forget();
    arrivals_.Forget();
    isWatching_ = !isAtWork;
    WatchArrivals();
    if (part_)
        part_->WatchPlaces(watch_);
    if (isAtWork)
        return;
    watch_.Watch(mailbox_.Directory());
    watch_.Watch(mailbox_.PackagesPath());
    watch_.Watch(transport_.directory);
    std::vector<exchange::DeviceId> devices{transport_.keys.Id()};
    for (const Peer& peer : transport_.peers.All())
        devices.push_back(peer.id);
    for (const exchange::DeviceId& device : devices) {
        const std::filesystem::path home = HomeOf(device);
        watch_.Watch(home);
        watch_.Watch(home / "out");
    }
}

// Whether anything goes on by itself that nobody will tell of.
bool Runner::IsAtWork()
{
    return options_.untilIdle || std::chrono::steady_clock::now() < busyUntil_ ||
           statistics_.Quiet() < kAttention || resender_.IsUnderWay() || (part_ && part_->HasWork()) ||
           (!exchangeLost_ && outbox_.HasWork());
}

std::chrono::milliseconds Runner::UntilNextLook()
{
    std::chrono::milliseconds time = std::chrono::seconds(options_.lookEvery);
    if (exchangeLost_)
        time = std::min(time, kRetryInterval);
    if (observer_)
        time = std::min(time, observer_->LongestRest());
    if (HasChanged()) {
        const auto untilCheck = nextCheck_ - std::chrono::steady_clock::now();
        time = std::min(time, std::chrono::ceil<std::chrono::milliseconds>(untilCheck));
    }
    return std::max(time, kStepTime);
}

void Runner::Rest()
{
    const auto earliest = std::chrono::steady_clock::now() + kShortStepTime;
    if (arrivals_.Wait(signals_, store_.IsFresh() ? kShortStepTime : kStepTime) == ChangeWatch::Woken::kStop)
        return;
    // Who writes a large file there tells of each piece of it.
    const auto rest =
        std::chrono::ceil<std::chrono::milliseconds>(earliest - std::chrono::steady_clock::now());
    if ((rest.count() > 0 && signals_.Wait(rest)) || !isWatching_ || IsAtWork())
        return;
    TellDone();
    if (watch_.Wait(signals_, UntilNextLook()) == ChangeWatch::Woken::kChange)
        busyUntil_ = std::chrono::steady_clock::now() + kAttention;
}

void Runner::Run()
{
    while (!signals_.IsAsked()) {
        WatchPlaces();
        store_.Follow();
        Step();
        if (observer_)
            observer_->HasTurned(StateText());
        if (options_.untilIdle && IsIdle()) {
            NoteSettled();
            return;
        }
        Rest();
    }
    if (observer_)
        observer_->IsEnding();
    resender_.Stop();
    // What is packed goes out before the end, if the exchange takes it; else the next run sends it.
    outbox_.TakeReady(true);
    UseExchange();
    NoteSettled();
}

void Runner::NoteSettled()
{
    settledNote_.Write(
        [this] { return !settled_.empty() && settled_ == Look() && !reconciler_.HasFailed(); });
}

}  // namespace quorvane::host
