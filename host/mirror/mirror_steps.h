// host/mirror/mirror_steps.h: carries out what a plan asks for, on both sides of the mirrors.
//
// What is done is noted in an order in which a kill, or a power cut, at any moment loses nothing and doubles
// nothing: that a file is about to be written is noted before it; that it's there, is gone or has another
// name, once that is on the disk, whoever did it; an item is on the disk before it is noted; what goes is in
// the trash before.
#ifndef QUORVANE_HOST_MIRROR_MIRROR_STEPS_H_
#define QUORVANE_HOST_MIRROR_MIRROR_STEPS_H_

#include <functional>
#include <map>
#include <set>
#include <string>
#include <unordered_set>
#include <vector>

#include "host/mirror/maildir.h"
#include "host/mirror/mirror_folder.h"
#include "host/mirror/mirror_records.h"
#include "host/mirror/plan.h"

namespace quorvane::host {

// Both sides of a mirror, open.
struct MirrorSides {
    const Mirror* mirror;
    Maildir* maildir;
    MirrorFolder* folder;
};

class MirrorSteps {
public:
    // report  gets each step that fails, and a line about it.
    // stop    whether to leave the rest for the next time.
    MirrorSteps(MirrorRecords& records, const MailSession& session, std::map<std::int64_t, MirrorSides> sides,
                std::function<void(const MirrorStep&, const std::string&)> report,
                std::function<bool()> stop);

    // Carries out what it can. Throws a HostError where the records or the store can't be written.
    void Run(const MirrorPlan& plan);

private:
    using Steps = std::vector<const MirrorStep*>;

    // Changes of files, and what is to be noted of them once they are on the disk.
    struct FileChanges {
        MirrorRecords::Changes noted;
        std::set<const Maildir*> touched;
    };

    void RunSome(const Steps& steps);
    void SyncGround(const Steps& steps) const;
    void ChangeFiles(const Steps& steps);
    void ChangeFile(const MirrorStep& step, FileChanges& changes);
    void Note(const FileChanges& changes);
    void TryOne(const MirrorStep& step, const std::function<void()>& work);
    void RunOne(const MirrorStep& step);
    void Import(const Steps& steps);
    void Deliver(const Steps& steps);
    void DeliverOne(MailPair pair, FileChanges& done);
    void FinishNext(const MirrorStep& step, FileChanges& changes);
    void MoveItem(const MirrorStep& step);
    void MoveFile(const MirrorStep& step, FileChanges& changes);
    void UpdateItem(const MirrorStep& step);
    void UpdateFile(const MirrorStep& step);
    void Compare(const MirrorStep& step);
    void Mark(const MirrorStep& step, FileChanges& changes);
    void DeleteItem(const MirrorStep& step);
    void DeleteFile(const MirrorStep& step, FileChanges& changes);
    static void NoteRemoved(const MailPair& pair, const Maildir& maildir, FileChanges& changes);
    void Put(const MailPair& pair);
    void Forget(const MailPair& pair);
    const MirrorSides& SidesOf(std::int64_t mirror) const { return sides_.at(mirror); }

    MirrorRecords& records_;
    const MailSession& session_;
    const std::map<std::int64_t, MirrorSides> sides_;
    const std::function<void(const MirrorStep&, const std::string&)> report_;
    const std::function<bool()> stop_;
    std::unordered_set<std::string> free_;  // items that are in no pair
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_MIRROR_MIRROR_STEPS_H_
