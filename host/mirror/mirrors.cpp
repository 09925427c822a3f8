#include "host/mirror/mirrors.h"

#include <algorithm>
#include <map>
#include <system_error>
#include <unordered_map>
#include <utility>

#include "host/base/errors.h"
#include "host/base/files.h"
#include "host/base/output.h"
#include "host/base/path_text.h"
#include "host/mirror/mirror_steps.h"

namespace quorvane::host {

namespace {

using Kind = MirrorStep::Kind;

// How long one step of a run may take: the run has other work.
constexpr auto kLongestStep = std::chrono::seconds(2);
// Between two looks of which the first had nothing to do, as where names change all the time: so many times
// what it took, but neither less nor more than this.
constexpr int kRestForLook = 1;
constexpr auto kShortestRest = std::chrono::milliseconds(50);
constexpr auto kLongestRest = std::chrono::seconds(1);
// Until what failed is tried once more.
constexpr auto kRestAfterFailure = std::chrono::seconds(60);

// A step as it is now: of what has changed it is another one.
std::string KeyOf(const MirrorStep& step)
{
    std::string key = std::to_string(static_cast<int>(step.kind)) + "\n" + std::to_string(step.mirror);
    if (step.item)
        key += "\n" + step.item->id + " " + std::to_string(step.item->modified) + " " +
               std::to_string(step.item->marks);
    if (step.file)
        key += "\n" + step.file->part + "/" + step.file->name + " " + std::to_string(step.file->look.inode) +
               " " + std::to_string(step.file->look.size);
    return key;
}

bool IsUsable(const MailFile& file)
{
    return file.problem.empty();
}

// Of files that have one unique name, one is the mail: the one that was it before, else the last one. A file
// that was renamed while it was listed is seen twice.
void ChooseAmongTwins(std::vector<MailFile>& files, const std::vector<MailPair>& pairs)
{
    std::unordered_map<std::string, std::size_t> chosen;
    std::unordered_map<std::string, std::uint64_t> before;
    std::vector<bool> isDouble(files.size());
    bool hasTwins = false;
    for (std::size_t i = 0; i < files.size(); ++i) {
        const auto [place, isFirst] = chosen.emplace(files[i].base, i);
        if (isFirst)
            continue;
        if (!hasTwins)
            for (const MailPair& pair : pairs)
                before.emplace(pair.base, pair.look.inode);
        hasTwins = true;
        MailFile& other = files[place->second];
        if (other.look.inode == files[i].look.inode) {
            isDouble[place->second] = true;
            place->second = i;
            continue;
        }
        const auto known = before.find(files[i].base);
        const bool otherWasIt = known != before.end() && known->second == other.look.inode;
        const bool staysOther = IsUsable(other) && (otherWasIt || !IsUsable(files[i]));
        MailFile& left = staysOther ? files[i] : other;
        if (IsUsable(left))
            left.problem = "another file has its unique name";
        if (!staysOther)
            place->second = i;
    }
    if (!hasTwins)
        return;
    // The chosen ones first, so that each name stands for its mail.
    std::vector<MailFile> sorted, others;
    for (std::size_t i = 0; i < files.size(); ++i)
        if (!isDouble[i])
            (chosen.at(files[i].base) == i ? sorted : others).push_back(std::move(files[i]));
    sorted.insert(sorted.end(), std::make_move_iterator(others.begin()),
                  std::make_move_iterator(others.end()));
    files = std::move(sorted);
}

std::int64_t CountDeletions(const MirrorPlan& plan, std::int64_t mirror, Kind kind)
{
    return std::count_if(plan.steps.begin(), plan.steps.end(),
                         [&](const MirrorStep& step) { return step.mirror == mirror && step.kind == kind; });
}

std::int64_t HeldOf(const MirrorPlan& plan, std::int64_t mirror)
{
    for (const MirrorPlan::Held& held : plan.held)
        if (held.mirror == mirror)
            return held.count;
    return 0;
}

}  // namespace

Mirrors::Mirrors(const Mailbox& mailbox, const MailSession& session, const StopSignals& signals,
                 std::function<void(const std::string&)> say, Maildir::Patience patience)
    : mailbox_(mailbox),
      session_(session),
      signals_(signals),
      say_(std::move(say)),
      patience_(patience),
      records_(mailbox.HostDatabasePath().string()),
      trash_(mailbox)
{}

void Mirrors::SayOnce(const std::string& line)
{
    if (said_.insert(line).second)
        say_(line);
}

// Ties that were made or ended, and what was confirmed.
void Mirrors::FollowTies()
{
    const std::int64_t version = records_.Version();
    if (version == version_)
        return;
    version_ = version;
    std::vector<std::unique_ptr<Tied>> ties;
    for (const Mirror& mirror : records_.All()) {
        const auto same = std::find_if(ties_.begin(), ties_.end(), [&](const auto& tied) {
            return tied && tied->mirror.number == mirror.number;
        });
        if (same == ties_.end()) {
            ties.push_back(std::make_unique<Tied>());
            ties.back()->mirror = mirror;
            ties.back()->noted = mirror;
            ties.back()->maildir = std::make_unique<Maildir>(PathOf(mirror.directory), patience_);
            ties.back()->pairs = records_.PairsOf(mirror.number);
            for (const MailPair& pair : ties.back()->pairs)
                ties.back()->maildir->Remember(pair.look, pair.digest);
            isDue_ = true;
            isTidy_ = false;
        } else {
            isDue_ |= (*same)->mirror.confirmed != mirror.confirmed;
            (*same)->mirror.confirmed = mirror.confirmed;
            ties.push_back(std::move(*same));
        }
    }
    ties_ = std::move(ties);
}

void Mirrors::WatchPlaces(ChangeWatch& watch)
{
    for (const auto& tied : ties_)
        for (const char* const part : {"cur", "new"}) {
            watch.Watch(tied->maildir->PathOfPart(part));
            watch_.Watch(tied->maildir->PathOfPart(part));
        }
}

std::string Mirrors::LookOfStore() const
{
    const std::string store = mailbox_.StorePath().string();
    return LookOfFile(store) + LookOfFile(store + "-wal");
}

bool Mirrors::HasChanged()
{
    if (watch_.Wait(signals_, std::chrono::milliseconds(0)) == ChangeWatch::Woken::kChange)
        return true;
    return LookOfStore() != store_ || std::any_of(ties_.begin(), ties_.end(), [](const auto& tied) {
               return tied->maildir->OutsideLook() != tied->outside;
           });
}

bool Mirrors::HasWork()
{
    return !ties_.empty() && isDue_ && !hasFailed_;
}

void Mirrors::Step(bool isFree)
{
    FollowTies();
    if (ties_.empty())
        return;
    isDue_ |= HasChanged() || std::any_of(resting_.begin(), resting_.end(),
                                          [](const auto& step) { return step.second <= Clock::now(); });
    if (!isDue_ || !isFree || Clock::now() < nextLook_)
        return;
    const std::string store = LookOfStore();
    hasFailed_ = false;
    try {
        isDue_ = !Look();
    } catch (const HostError& error) {
        SayOnce(std::string("mirror: ") + error.what());
        hasFailed_ = true;
        nextLook_ = Clock::now() + kRestAfterFailure;
    }
    // A file's time may hide a change right after one: what differed is looked at twice.
    isDue_ |= store != store_;
    store_ = store;
}

void Mirrors::LookAtFiles(Tied& tied, MirrorView& view, std::int64_t since)
{
    tied.maildir->Open();
    if (!isTidy_)
        tied.maildir->TidyUp();
    Maildir::Listing listing = tied.maildir->List(since);
    tied.isFresh = listing.isFresh || !listing.isSettled;
    ChooseAmongTwins(listing.files, tied.pairs);
    view.isSettled = listing.isSettled;
    view.files = std::move(listing.files);
    tied.mirror.leftAlone = 0;
    for (const MailFile& file : view.files) {
        if (IsUsable(file) || file.look.time == 0)
            continue;
        ++tied.mirror.leftAlone;
        SayOnce("left alone " + tied.mirror.directory + "/" + file.part + "/" + file.name + ": " +
                file.problem);
    }
}

MirrorView Mirrors::ViewOf(Tied& tied, std::int64_t since)
{
    MirrorView view;
    view.number = tied.mirror.number;
    view.confirmed = tied.mirror.confirmed;
    view.pairs = tied.pairs;
    tied.mirror.problem.clear();
    tied.isFresh = false;
    tied.outside = tied.maildir->OutsideLook();
    try {
        if (!tied.folder)
            tied.folder = std::make_unique<MirrorFolder>(session_, trash_, tied.mirror, mailbox_.Name());
        view.items = tied.folder->Items();
        LookAtFiles(tied, view, since);
    } catch (const HostError& error) {
        tied.folder.reset();
        tied.mirror.problem = error.what();
        view.isStopped = true;
    }
    return view;
}

// Where all mails are gone at once, or some are and the directories aren't those that they lay in, somebody
// has taken the Maildir away rather than its mails.
bool Mirrors::MustStop(Tied& tied, const MirrorView& view, const MirrorPlan& plan) const
{
    const std::int64_t held = HeldOf(plan, view.number);
    const std::int64_t gone = CountDeletions(plan, view.number, Kind::kDeleteItem) + held;
    const bool isEmpty = std::none_of(view.files.begin(), view.files.end(), IsUsable);
    const bool isOther = !tied.mirror.identity.empty() && tied.mirror.identity != tied.maildir->Identity();
    if (gone == 0 || gone <= view.confirmed || !((isEmpty && held > 0) || isOther))
        return false;
    tied.mirror.held = gone;
    tied.mirror.problem =
        "'" + tied.mirror.directory + "' " + (isEmpty ? "is empty" : "isn't the directory that it was") +
        ", and " + Counted(static_cast<std::uint64_t>(gone), "mail") + (gone == 1 ? " is" : " are") + " gone";
    return true;
}

void Mirrors::NoteHeld(Tied& tied, const MirrorView& view, const MirrorPlan& plan)
{
    if (!view.isStopped) {
        tied.mirror.held = HeldOf(plan, view.number);
        tied.mirror.identity = tied.maildir->Identity();
        const bool isDeleting = CountDeletions(plan, view.number, Kind::kDeleteItem) +
                                    CountDeletions(plan, view.number, Kind::kDeleteFile) + tied.mirror.held >
                                0;
        if (tied.mirror.confirmed > 0 && !isDeleting && !plan.isUnknown) {
            records_.ForgetConfirmation(view.number);
            tied.mirror.confirmed = 0;
        }
    }
    if (!tied.mirror.problem.empty() && tied.mirror.problem != tied.noted.problem)
        say_("the mirror of '" + tied.mirror.folder + "' is stopped: " + tied.mirror.problem);
    if (tied.mirror.held > 0 && tied.mirror.held != tied.noted.held)
        say_(Counted(static_cast<std::uint64_t>(tied.mirror.held), "mail") + " of '" + tied.mirror.folder +
             "' would be deleted at once: nothing is until 'quorvane mirror MAILBOX FOLDER --confirm'");
}

void Mirrors::NoteStates()
{
    for (const auto& tied : ties_)
        if (tied->mirror.identity != tied->noted.identity || tied->mirror.problem != tied->noted.problem ||
            tied->mirror.held != tied->noted.held || tied->mirror.leftAlone != tied->noted.leftAlone) {
            records_.NoteState(tied->mirror);
            tied->noted = tied->mirror;
        }
}

// What failed waits for its time, unless it is another step by now.
void Mirrors::LeaveResting(MirrorPlan& plan)
{
    std::erase_if(resting_, [](const auto& step) { return step.second <= Clock::now(); });
    if (!resting_.empty())
        std::erase_if(plan.steps, [&](const MirrorStep& step) { return resting_.contains(KeyOf(step)); });
}

void Mirrors::CarryOut(const MirrorPlan& plan, const std::vector<MirrorView>& views)
{
    std::map<std::int64_t, MirrorSides> sides;
    for (std::size_t i = 0; i < ties_.size(); ++i)
        if (!views[i].isStopped)
            sides[views[i].number] = {&ties_[i]->mirror, ties_[i]->maildir.get(), ties_[i]->folder.get()};
    const auto end = Clock::now() + kLongestStep;
    MirrorSteps steps(
        records_, session_, std::move(sides),
        [this](const MirrorStep& step, const std::string& line) {
            resting_[KeyOf(step)] = Clock::now() + kRestAfterFailure;
            SayOnce("mirror: " + line);
        },
        [&] { return signals_.IsAsked() || Clock::now() > end; });
    steps.Run(plan);
    for (const auto& tied : ties_)
        tied->pairs = records_.PairsOf(tied->mirror.number);
}

bool Mirrors::Look()
{
    FollowTies();
    const auto begin = Clock::now();
    const std::int64_t since = Maildir::Now();
    std::vector<MirrorView> views;
    for (const auto& tied : ties_)
        views.push_back(ViewOf(*tied, since));
    isTidy_ = true;
    MirrorPlan plan = PlanMirrors(views);
    bool isStopping = false;
    for (std::size_t i = 0; i < views.size(); ++i)
        if (!views[i].isStopped && MustStop(*ties_[i], views[i], plan))
            isStopping = views[i].isStopped = true;
    if (isStopping)
        plan = PlanMirrors(views);
    for (std::size_t i = 0; i < views.size(); ++i)
        NoteHeld(*ties_[i], views[i], plan);
    NoteStates();
    LeaveResting(plan);
    if (!plan.steps.empty()) {
        CarryOut(plan, views);
        return false;
    }
    const Clock::duration rest = kRestForLook * (Clock::now() - begin);
    nextLook_ = Clock::now() + std::clamp<Clock::duration>(rest, kShortestRest, kLongestRest);
    return !plan.isUnknown &&
           std::none_of(ties_.begin(), ties_.end(), [](const auto& tied) { return tied->isFresh; });
}

}  // namespace quorvane::host
