// host/mirror/mirrors.h: folders that are tied to Maildirs, kept in step by a run.
//
// Each look lists both sides of all mirrors, has a plan made of that (plan.h) and carries it out
// (mirror_steps.h). It looks when something has changed: inotify tells of the Maildirs, the files of the
// message store tell of the folders. What isn't told shows in the times of the directories, at the run's next
// step.
#ifndef QUORVANE_HOST_MIRROR_MIRRORS_H_
#define QUORVANE_HOST_MIRROR_MIRRORS_H_

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "host/base/stop_signals.h"
#include "host/mailbox/mailbox.h"
#include "host/mailbox/trash.h"
#include "host/mirror/maildir.h"
#include "host/mirror/mirror_folder.h"
#include "host/mirror/mirror_records.h"
#include "host/sharing/run_part.h"
#include "host/store/profile.h"

namespace quorvane::host {

class Mirrors final : public RunPart {
public:
    // say  gets what a user is to know, one line each.
    Mirrors(const Mailbox& mailbox, const MailSession& session, const StopSignals& signals,
            std::function<void(const std::string&)> say)
        : Mirrors(mailbox, session, signals, std::move(say), Maildir::Patience())
    {}
    Mirrors(const Mailbox& mailbox, const MailSession& session, const StopSignals& signals,
            std::function<void(const std::string&)> say, Maildir::Patience patience);

    void WatchPlaces(ChangeWatch& watch) override;
    void Step(bool isFree) override;
    bool HasWork() override;

    // Looks once, whatever was told. Whether nothing was to be done, and all is known.
    bool Look();

private:
    using Clock = std::chrono::steady_clock;

    // A mirror that a run works on.
    struct Tied {
        Mirror mirror;
        Mirror noted;  // as it stands in the records
        std::unique_ptr<Maildir> maildir;
        std::unique_ptr<MirrorFolder> folder;
        std::vector<MailPair> pairs;
        std::string outside;  // what its Maildir looked like at the last look
        bool isFresh = false;
    };

    void FollowTies();
    bool HasChanged();
    std::string LookOfStore() const;
    MirrorView ViewOf(Tied& tied, std::int64_t since);
    void LookAtFiles(Tied& tied, MirrorView& view, std::int64_t since);
    bool MustStop(Tied& tied, const MirrorView& view, const MirrorPlan& plan) const;
    void NoteHeld(Tied& tied, const MirrorView& view, const MirrorPlan& plan);
    void CarryOut(const MirrorPlan& plan, const std::vector<MirrorView>& views);
    void LeaveResting(MirrorPlan& plan);
    void NoteStates();
    void SayOnce(const std::string& line);

    const Mailbox& mailbox_;
    const MailSession& session_;
    const StopSignals& signals_;
    const std::function<void(const std::string&)> say_;
    const Maildir::Patience patience_;
    MirrorRecords records_;
    Trash trash_;
    ChangeWatch watch_;  // of its own: what a run's watch tells is forgotten there
    std::vector<std::unique_ptr<Tied>> ties_;
    std::int64_t version_ = -1;  // of the records, when the ties were read
    std::set<std::string> said_;
    std::string store_;  // what the message store looked like before the last look
    bool isDue_ = true;
    bool hasFailed_ = false;  // a look was cut short: nothing waits for the next one
    bool isTidy_ = false;
    Clock::time_point nextLook_{};
    std::map<std::string, Clock::time_point>
        resting_;  // steps that failed, and when they are tried once more
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_MIRROR_MIRRORS_H_
