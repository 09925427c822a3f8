#include "host/mirror/mirror_steps.h"

#include <utility>

#include "host/base/errors.h"
#include "host/mirror/maildir_name.h"
#include "host/store/folders.h"
#include "host/store/item_marks.h"

namespace quorvane::host {

namespace {

using Kind = MirrorStep::Kind;

// So many are noted together.
constexpr std::size_t kBatch = 100;

// A name for a file with these marks: what nobody has looked at yet is new.
std::pair<std::string, std::string> PlaceFor(const std::string& base, const std::string& info, Marks marks)
{
    const std::string text = InfoWith(info, marks);
    return text.empty() ? std::pair<std::string, std::string>{"new", base}
                        : std::pair<std::string, std::string>{"cur", base + ":2," + text};
}

std::string Shown(const MirrorSides& sides, const MailFile& file)
{
    return sides.mirror->directory + "/" + file.part + "/" + file.name;
}

// False where another program has renamed or removed it meanwhile.
bool MarkFile(const MirrorSides& sides, const MailFile& file, Marks marks)
{
    if (file.marks == marks)
        return true;
    const MaildirName name(file.name);
    const std::string target = name.base + ":2," + InfoWith(name.info, marks);
    const auto renamed = sides.maildir->Rename(file, *sides.maildir, "cur", target);
    if (renamed == Maildir::Renamed::kTaken)
        Fail("rename it to", target, "there is something else of that name");
    return renamed == Maildir::Renamed::kDone;
}

}  // namespace

MirrorSteps::MirrorSteps(MirrorRecords& records, const MailSession& session,
                         std::map<std::int64_t, MirrorSides> sides,
                         std::function<void(const MirrorStep&, const std::string&)> report,
                         std::function<bool()> stop)
    : records_(records),
      session_(session),
      sides_(std::move(sides)),
      report_(std::move(report)),
      stop_(std::move(stop))
{}

// Steps of one kind stand together.
void MirrorSteps::Run(const MirrorPlan& plan)
{
    for (const MirrorStep& step : plan.steps)
        if (step.kind == Kind::kDeliver && !step.pair)
            free_.insert(step.Item().id);
    for (const auto& [number, sides] : sides_)
        sides.folder->Refresh();
    Steps some;
    for (const MirrorStep& step : plan.steps) {
        if (!some.empty() && (some.size() == kBatch || some.back()->kind != step.kind))
            RunSome(std::exchange(some, {}));
        if (stop_())
            return;
        some.push_back(&step);
    }
    RunSome(some);
}

void MirrorSteps::RunSome(const Steps& steps)
{
    if (steps.empty())
        return;
    const Kind kind = steps.front()->kind;
    if (kind == Kind::kImport)
        return Import(steps);
    if (kind == Kind::kDeliver)
        return Deliver(steps);
    if (kind == Kind::kNote || kind == Kind::kForget) {
        MirrorRecords::Changes changes;
        for (const MirrorStep* const step : steps)
            if (kind == Kind::kNote)
                changes.put.push_back(step->Pair());
            else
                changes.removed.push_back(step->Pair().number);
        return records_.Note(changes);
    }
    if (kind == Kind::kFinishNext || kind == Kind::kMoveFile || kind == Kind::kMark ||
        kind == Kind::kDeleteFile)
        return ChangeFiles(steps);
    SyncGround(steps);
    for (const MirrorStep* const step : steps) {
        if (stop_())
            return;
        TryOne(*step, [&] { RunOne(*step); });
    }
}

// Who removed or renamed a file may not have waited for the disk: what follows from it does.
void MirrorSteps::SyncGround(const Steps& steps) const
{
    std::set<const Maildir*> grounds;
    for (const MirrorStep* const step : steps)
        if (step->kind == Kind::kDeleteItem || step->kind == Kind::kMoveItem)
            grounds.insert(SidesOf(step->mirror).maildir);
    for (const Maildir* const maildir : grounds)
        maildir->Sync();
}

void MirrorSteps::ChangeFiles(const Steps& steps)
{
    FileChanges changes;
    for (const MirrorStep* const step : steps) {
        if (stop_())
            break;
        TryOne(*step, [&] { ChangeFile(*step, changes); });
    }
    Note(changes);
}

void MirrorSteps::ChangeFile(const MirrorStep& step, FileChanges& changes)
{
    switch (step.kind) {
        case Kind::kFinishNext:
            return FinishNext(step, changes);
        case Kind::kMoveFile:
            return MoveFile(step, changes);
        case Kind::kMark:
            return Mark(step, changes);
        default:
            return DeleteFile(step, changes);
    }
}

void MirrorSteps::Note(const FileChanges& changes)
{
    for (const Maildir* const maildir : changes.touched)
        maildir->Sync();
    records_.Note(changes.noted);
}

void MirrorSteps::TryOne(const MirrorStep& step, const std::function<void()>& work)
{
    try {
        work();
    } catch (const HostError& error) {
        const MirrorSides& sides = SidesOf(step.mirror);
        report_(step, step.file ? Shown(sides, *step.file) + ": " + error.what()
                                : std::string(error.what()) + " (in '" + sides.mirror->folder + "')");
    }
}

void MirrorSteps::RunOne(const MirrorStep& step)
{
    switch (step.kind) {
        case Kind::kMoveItem:
            return MoveItem(step);
        case Kind::kUpdateItem:
            return UpdateItem(step);
        case Kind::kUpdateFile:
            return UpdateFile(step);
        case Kind::kCompare:
            return Compare(step);
        case Kind::kDeleteItem:
            return DeleteItem(step);
        case Kind::kFinishNext:
        case Kind::kMoveFile:
        case Kind::kMark:
        case Kind::kDeleteFile:
        case Kind::kForget:
        case Kind::kNote:
        case Kind::kImport:
        case Kind::kDeliver:
            return;  // in batches
    }
}

void MirrorSteps::Put(const MailPair& pair)
{
    records_.Note({{pair}, {}});
}

void MirrorSteps::Forget(const MailPair& pair)
{
    records_.Note({{}, {pair.number}});
}

// A kill before they are noted leaves items that are found again as the same mails.
void MirrorSteps::Import(const Steps& steps)
{
    FileChanges changes;
    for (const MirrorStep* const step : steps) {
        if (stop_())
            break;
        TryOne(*step, [&] {
            const MirrorSides& sides = SidesOf(step->mirror);
            const MailFile& file = step->File();
            MailBytes bytes;
            if (!sides.maildir->Read(file, bytes))
                return;  // it was changed, or is gone
            if (sides.maildir->SyncNew(file))
                changes.touched.insert(sides.maildir);
            std::function<bool(const std::string&)> isFree;
            if (!free_.empty())
                isFree = [this](const std::string& id) { return free_.contains(id); };
            const MirrorFolder::Imported imported = sides.folder->Import(bytes, file.marks, isFree);
            free_.erase(imported.item.id);
            MailPair pair;
            pair.mirror = step->mirror;
            pair.item = imported.item.id;
            pair.base = file.base;
            pair.marks = imported.isFound ? Marks{0} : file.marks;
            pair.look = file.look;
            pair.digest = file.digest;
            pair.modified = imported.item.modified;
            changes.noted.put.push_back(std::move(pair));
        });
    }
    if (changes.noted.put.empty())
        return;
    Check(session_.Store().SaveChanges(0), "save", "the items of Maildirs");
    Note(changes);
}

void MirrorSteps::Deliver(const Steps& steps)
{
    MirrorRecords::Changes begun;
    Steps delivered;  // of the pairs that are begun
    for (const MirrorStep* const step : steps) {
        if (!step->pair && !free_.contains(step->Item().id))
            continue;  // an import has found it
        MailPair pair = step->pair.value_or(MailPair{});
        pair.mirror = step->mirror;
        pair.item = step->Item().id;
        if (pair.base.empty())
            pair.base = NewBase();
        pair.isArriving = true;
        pair.marks = step->Item().marks;
        pair.modified = step->Item().modified;
        begun.put.push_back(std::move(pair));
        delivered.push_back(step);
    }
    records_.Note(begun);
    FileChanges done;
    for (std::size_t i = 0; i < delivered.size() && !stop_(); ++i)
        TryOne(*delivered[i], [&] { DeliverOne(begun.put[i], done); });
    Note(done);
}

void MirrorSteps::DeliverOne(MailPair pair, FileChanges& done)
{
    const MirrorSides& sides = SidesOf(pair.mirror);
    Maildir::NewFile file = sides.maildir->Begin(pair.base);
    if (!sides.folder->Export(pair.item, file.Stream()))
        return;  // it is gone
    pair.digest = file.Finish();
    pair.look = file.Look();  // by which it is found where another program renames it at once
    const auto [part, name] = PlaceFor(pair.base, {}, pair.marks);
    if (!sides.maildir->Deliver(file, part, name))
        Fail("deliver", name, "there is something else of that name");
    done.touched.insert(sides.maildir);
    pair.isArriving = false;
    pair.number = 0;  // in the place of the one that was noted at the beginning
    done.noted.put.push_back(std::move(pair));
}

// The file before goes, unless it was changed: it is a new mail then. Its marks may be others by now than
// those that the next one was given.
void MirrorSteps::FinishNext(const MirrorStep& step, FileChanges& changes)
{
    const MirrorSides& sides = SidesOf(step.mirror);
    MailPair pair = step.Pair();
    if (step.former && step.former->digest == pair.digest) {
        const Marks marks = AgreeOnMarks(pair.marks, step.former->marks, step.File().marks);
        changes.touched.insert(sides.maildir);
        if (!MarkFile(sides, step.File(), marks) || !sides.maildir->Remove(*step.former))
            return;
    }
    pair.base = step.File().base;
    pair.next.clear();
    pair.look = step.File().look;
    pair.digest = step.File().digest;
    changes.noted.put.push_back(std::move(pair));
}

void MirrorSteps::MoveItem(const MirrorStep& step)
{
    const MirrorSides& to = SidesOf(step.mirror);
    MailPair pair = step.Pair();
    const bool isChanged = step.Item().modified != pair.modified;
    SidesOf(step.from).folder->MoveTo(*to.folder, pair.item);
    pair.mirror = step.mirror;
    pair.base = step.File().base;
    pair.look = step.File().look;
    pair.digest = step.File().digest;
    pair.modified = isChanged ? 0 : to.folder->TimeOfItem(pair.item);
    Put(pair);
}

void MirrorSteps::MoveFile(const MirrorStep& step, FileChanges& changes)
{
    const MirrorSides& from = SidesOf(step.from);
    const MirrorSides& to = SidesOf(step.mirror);
    const MailFile& file = step.File();
    MailPair pair = step.Pair();
    MaildirName name(file.name);
    name.base = BaseElsewhere(name.base);
    auto renamed = from.maildir->Rename(file, *to.maildir, file.part, name.Text());
    if (renamed == Maildir::Renamed::kTaken) {
        name.base = NewBase();
        renamed = from.maildir->Rename(file, *to.maildir, file.part, name.Text());
    }
    if (renamed == Maildir::Renamed::kOtherDisk) {
        // The item is what both have, and is delivered there as a new one.
        if (to.folder->TimeOfItem(pair.item) != 0 && from.maildir->Remove(file))
            NoteRemoved(pair, *from.maildir, changes);
        return;
    }
    if (renamed != Maildir::Renamed::kDone)
        return;
    changes.touched.insert({from.maildir, to.maildir});
    pair.mirror = step.mirror;
    pair.base = name.base;
    changes.noted.put.push_back(std::move(pair));
}

void MirrorSteps::UpdateItem(const MirrorStep& step)
{
    const MirrorSides& sides = SidesOf(step.mirror);
    MailPair pair = step.Pair();
    MailBytes bytes;
    if (!sides.maildir->Read(step.File(), bytes) || sides.folder->TimeOfItem(pair.item) != pair.modified)
        return;
    if (sides.maildir->SyncNew(step.File()))
        sides.maildir->Sync();
    pair.modified = sides.folder->Update(pair.item, bytes);
    Check(session_.Store().SaveChanges(0), "save", "the items of Maildirs");
    pair.base = step.File().base;
    pair.look = step.File().look;
    pair.digest = step.File().digest;
    Put(pair);
}

// A mail's unique name stands for its bytes, so other bytes are another file. The one before goes with the
// next plan.
void MirrorSteps::UpdateFile(const MirrorStep& step)
{
    const MirrorSides& sides = SidesOf(step.mirror);
    MailPair pair = step.Pair();
    const std::string base = NewBase();
    Maildir::NewFile file = sides.maildir->Begin(base);
    if (!sides.folder->Export(pair.item, file.Stream()))
        return;
    const bool isSame = file.Finish() == pair.digest;
    pair.modified = step.Item().modified;
    pair.base = step.File().base;
    pair.look = step.File().look;
    if (isSame)
        return Put(pair);
    pair.next = base;
    Put(pair);
    MaildirName name(step.File().name);
    name.base = base;
    if (!sides.maildir->Deliver(file, step.File().part, name.Text()))
        Fail("deliver", base, "there is something else of that name");
    sides.maildir->Sync();
}

void MirrorSteps::Compare(const MirrorStep& step)
{
    const MirrorSides& sides = SidesOf(step.mirror);
    MailPair pair = step.Pair();
    Maildir::NewFile file = sides.maildir->Begin(NewBase());
    if (!sides.folder->Export(pair.item, file.Stream()))
        return;
    if (file.Finish() != step.File().digest)
        return Forget(pair);
    pair.modified = step.Item().modified;
    pair.base = step.File().base;
    pair.look = step.File().look;
    pair.digest = step.File().digest;
    Put(pair);
}

void MirrorSteps::Mark(const MirrorStep& step, FileChanges& changes)
{
    const MirrorSides& sides = SidesOf(step.mirror);
    const MailFile& file = step.File();
    MailPair pair = step.Pair();
    if (const auto changed = static_cast<Marks>(step.Item().marks ^ step.marks);
        changed != 0 && !SetMarks(session_, pair.item, step.marks, changed))
        return;
    if (!MarkFile(sides, file, step.marks))
        return;
    changes.touched.insert(sides.maildir);
    pair.marks = step.marks;
    pair.base = file.base;
    pair.look = file.look;
    changes.noted.put.push_back(std::move(pair));
}

void MirrorSteps::DeleteItem(const MirrorStep& step)
{
    SidesOf(step.mirror).folder->Delete(step.Pair().item, step.Pair().digest);
    Forget(step.Pair());
}

// An item that was moved while the folders were listed may be in none of the lists.
void MirrorSteps::DeleteFile(const MirrorStep& step, FileChanges& changes)
{
    const std::string place = FolderOfMessage(session_, step.Pair().item);
    for (const auto& [number, sides] : sides_)
        if (!place.empty() && sides.mirror->entryId == place)
            return;
    const Maildir& maildir = *SidesOf(step.mirror).maildir;
    if (maildir.Remove(step.File()))
        NoteRemoved(step.Pair(), maildir, changes);
}

void MirrorSteps::NoteRemoved(const MailPair& pair, const Maildir& maildir, FileChanges& changes)
{
    changes.touched.insert(&maildir);
    changes.noted.removed.push_back(pair.number);
}

}  // namespace quorvane::host
