#include "host/mirror/plan.h"

#include <algorithm>
#include <map>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "host/mirror/maildir_name.h"

namespace quorvane::host {

namespace {

using Kind = MirrorStep::Kind;

// Finds for each pair where its file and its item are now, and what follows from that.
class Planner {
public:
    explicit Planner(const std::vector<MirrorView>& mirrors) : mirrors_(mirrors) {}

    MirrorPlan Plan()
    {
        IndexBothSides();
        FindOwnFiles();
        FindMovedFiles(true);
        FindMovedFiles(false);
        for (Known& known : known_)
            PlanPair(known);
        PlanNew();
        HoldDeletions();
        std::stable_sort(plan_.steps.begin(), plan_.steps.end(),
                         [](const MirrorStep& a, const MirrorStep& b) { return a.kind < b.kind; });
        return std::move(plan_);
    }

private:
    struct FilePlace {
        const MirrorView* mirror = nullptr;
        const MailFile* file = nullptr;
    };
    struct ItemPlace {
        const MirrorView* mirror = nullptr;
        const MailItem* item = nullptr;
    };
    // A pair with what was found of it.
    struct Known {
        const MirrorView* mirror;
        const MailPair* pair;
        FilePlace file{};
        const MailFile* next = nullptr;
    };

    void IndexBothSides()
    {
        for (const MirrorView& mirror : mirrors_) {
            if (!mirror.isStopped)
                for (const MailFile& file : mirror.files)
                    files_.emplace(std::pair(mirror.number, file.base), FilePlace{&mirror, &file});
            for (const MailItem& item : mirror.items)
                items_.emplace(item.id, ItemPlace{&mirror, &item});
            for (const MailPair& pair : mirror.pairs) {
                paired_.insert(pair.item);
                if (!mirror.isStopped)
                    known_.push_back({&mirror, &pair});
            }
        }
    }

    const MailFile* Claim(const MirrorView& mirror, const std::string& base)
    {
        const auto found = files_.find({mirror.number, base});
        if (found == files_.end() || !claimed_.insert(found->second.file).second)
            return nullptr;
        return found->second.file;
    }

    void FindOwnFiles()
    {
        for (Known& known : known_) {
            if (const MailFile* const file = Claim(*known.mirror, known.pair->base))
                known.file = {known.mirror, file};
            if (!known.pair->next.empty())
                known.next = Claim(*known.mirror, known.pair->next);
        }
        FindRenamedFiles();
    }

    // A file of this mirror's own making may have got a number (",U=7") before it was noted that it is there:
    // until then nothing else is known of it than its unique name.
    void FindRenamedFiles()
    {
        std::map<std::pair<std::int64_t, std::string>, FilePlace> renamed;
        const bool isAwaited = std::any_of(known_.begin(), known_.end(), IsAwaited);
        for (const auto& [name, place] : files_)
            if (isAwaited && !claimed_.contains(place.file))
                renamed.emplace(std::pair(name.first, BaseElsewhere(name.second)), place);
        if (renamed.empty())
            return;
        for (Known& known : known_) {
            if (!IsAwaited(known))
                continue;
            const bool isNext = !known.pair->next.empty();
            const auto found =
                renamed.find({known.mirror->number, isNext ? known.pair->next : known.pair->base});
            if (found == renamed.end() || !claimed_.insert(found->second.file).second)
                continue;
            if (isNext)
                known.next = found->second.file;
            else
                known.file = found->second;
        }
    }

    static bool IsAwaited(const Known& known)
    {
        return known.pair->next.empty() ? known.pair->isArriving && !known.file.file : !known.next;
    }

    // A file that has gone from its name may be there under another one, or in another mirror: as the same
    // file, or as a copy of it.
    void FindMovedFiles(bool isSameFile)
    {
        using Fresh = std::multimap<std::string, FilePlace>;
        Fresh fresh;
        for (const auto& [place, file] : files_)
            if (file.file->problem.empty() && !claimed_.contains(file.file))
                fresh.emplace(file.file->digest, file);
        for (Known& known : known_) {
            const bool mayBeElsewhere =
                !known.file.file && !known.pair->isArriving && (isSameFile || known.mirror->isSettled);
            if (!mayBeElsewhere)
                continue;
            std::optional<Fresh::iterator> best;
            const auto [begin, end] = fresh.equal_range(known.pair->digest);
            for (auto one = begin; one != end; ++one) {
                const bool fits = !isSameFile || (one->second.file->look.inode == known.pair->look.inode &&
                                                  one->second.file->look.size == known.pair->look.size);
                if (fits && (!best || one->second.mirror == known.mirror))
                    best = one;
            }
            if (!best)
                continue;
            known.file = (*best)->second;
            claimed_.insert((*best)->second.file);
            fresh.erase(*best);
        }
    }

    MirrorStep& Add(Kind kind, const MirrorView& mirror, const Known& known, const MailFile* file,
                    const MailItem* item)
    {
        MirrorStep step;
        step.kind = kind;
        step.mirror = mirror.number;
        step.pair = *known.pair;
        if (file)
            step.file = *file;
        if (item)
            step.item = *item;
        plan_.steps.push_back(std::move(step));
        return plan_.steps.back();
    }

    // The pair as it is with this file, which has the bytes that it had.
    static MailPair WithFile(const Known& known, const MirrorView& mirror, const MailFile& file)
    {
        MailPair pair = *known.pair;
        pair.mirror = mirror.number;
        pair.base = file.base;
        pair.look = file.look;
        pair.digest = file.digest;
        return pair;
    }

    void PlanPair(Known& known)
    {
        const auto found = items_.find(known.pair->item);
        const ItemPlace item = found == items_.end() ? ItemPlace{} : found->second;
        if (item.mirror && item.mirror->isStopped)
            return;
        if (known.file.file && !known.file.file->problem.empty())
            return;  // nobody can tell what it is to be
        if (!known.pair->next.empty())
            return PlanNext(known);
        if (!known.file.file)
            return PlanMissingFile(known, item);
        if (!item.item)
            return PlanMissingItem(known);
        if (known.file.mirror == item.mirror)
            return item.mirror == known.mirror ? PlanBoth(known, *item.item)
                                               : Note(known, *known.file.mirror, *known.file.file);
        if (known.file.mirror != known.mirror)
            Add(Kind::kMoveItem, *known.file.mirror, known, known.file.file, item.item).from =
                item.mirror->number;
        else
            Add(Kind::kMoveFile, *item.mirror, known, known.file.file, item.item).from = known.mirror->number;
    }

    void Note(const Known& known, const MirrorView& mirror, const MailFile& file)
    {
        Add(Kind::kNote, mirror, known, &file, nullptr).pair = WithFile(known, mirror, file);
    }

    void PlanNext(const Known& known)
    {
        if (known.next && known.next->problem.empty()) {
            MirrorStep& step = Add(Kind::kFinishNext, *known.mirror, known, known.next, nullptr);
            if (known.file.file && known.file.mirror == known.mirror)
                step.former = *known.file.file;
        } else if (known.mirror->isSettled) {
            MailPair& pair = *Add(Kind::kNote, *known.mirror, known, nullptr, nullptr).pair;
            pair.next.clear();
            pair.modified = 0;  // what the item says is in no file
        } else {
            plan_.isUnknown = true;
        }
    }

    void PlanMissingFile(const Known& known, const ItemPlace& item)
    {
        if (!known.mirror->isSettled) {
            plan_.isUnknown = true;
            return;
        }
        if (item.item && known.pair->isArriving && item.mirror == known.mirror)
            Add(Kind::kDeliver, *known.mirror, known, nullptr, item.item);
        else if (item.item && item.mirror == known.mirror && item.item->modified == known.pair->modified)
            Add(Kind::kDeleteItem, *known.mirror, known, nullptr, item.item);
        else  // what was changed or moved meanwhile is a new item
            Add(Kind::kForget, *known.mirror, known, nullptr, nullptr);
    }

    // What was changed or moved meanwhile is a new file.
    void PlanMissingItem(const Known& known)
    {
        const bool isAsItWas =
            known.file.mirror == known.mirror && known.file.file->digest == known.pair->digest;
        Add(isAsItWas && !known.pair->isArriving ? Kind::kDeleteFile : Kind::kForget, *known.mirror, known,
            known.file.file, nullptr);
    }

    void PlanBoth(const Known& known, const MailItem& item)
    {
        const MailFile& file = *known.file.file;
        const MailPair& pair = *known.pair;
        if (pair.isArriving) {
            MailPair& arrived = *Add(Kind::kNote, *known.mirror, known, &file, nullptr).pair;
            arrived = WithFile(known, *known.mirror, file);
            arrived.isArriving = false;
            return;
        }
        const bool isFileChanged = file.digest != pair.digest;
        const bool isItemChanged = item.modified != pair.modified;
        const Marks marks = AgreeOnMarks(pair.marks, file.marks, item.marks);
        if (isFileChanged || isItemChanged)
            Add(!isItemChanged  ? Kind::kUpdateItem
                : isFileChanged ? Kind::kCompare
                                : Kind::kUpdateFile,
                *known.mirror, known, &file, &item);
        else if (marks != pair.marks || marks != file.marks || marks != item.marks)
            Add(Kind::kMark, *known.mirror, known, &file, &item).marks = marks;
        else if (file.base != pair.base || file.look != pair.look)
            Note(known, *known.mirror, file);
    }

    void PlanNew()
    {
        for (const MirrorView& mirror : mirrors_) {
            if (mirror.isStopped)
                continue;
            for (const MailFile& file : mirror.files)
                if (file.problem.empty() && !claimed_.contains(&file)) {
                    plan_.steps.emplace_back().kind = Kind::kImport;
                    plan_.steps.back().mirror = mirror.number;
                    plan_.steps.back().file = file;
                }
            for (const MailItem& item : mirror.items)
                if (!paired_.contains(item.id)) {
                    plan_.steps.emplace_back().kind = Kind::kDeliver;
                    plan_.steps.back().mirror = mirror.number;
                    plan_.steps.back().item = item;
                }
        }
    }

    void HoldDeletions()
    {
        for (const MirrorView& mirror : mirrors_) {
            const auto isDeletion = [&](const MirrorStep& step) {
                return step.mirror == mirror.number &&
                       (step.kind == Kind::kDeleteItem || step.kind == Kind::kDeleteFile);
            };
            const auto count =
                static_cast<std::int64_t>(std::count_if(plan_.steps.begin(), plan_.steps.end(), isDeletion));
            const auto all = static_cast<std::int64_t>(mirror.pairs.size());
            const bool isMass = count > kMostDeletions || (count > kFewDeletions && 2 * count > all) ||
                                (count > 1 && count == all);
            if (!isMass || count <= mirror.confirmed)
                continue;
            std::erase_if(plan_.steps, isDeletion);
            plan_.held.push_back({mirror.number, count});
        }
    }

    const std::vector<MirrorView>& mirrors_;
    std::map<std::pair<std::int64_t, std::string>, FilePlace> files_;
    std::unordered_map<std::string, ItemPlace> items_;
    std::unordered_set<std::string> paired_;
    std::unordered_set<const MailFile*> claimed_;
    std::vector<Known> known_;
    MirrorPlan plan_;
};

}  // namespace

MirrorPlan PlanMirrors(const std::vector<MirrorView>& mirrors)
{
    return Planner(mirrors).Plan();
}

Marks AgreeOnMarks(Marks agreed, Marks file, Marks item) noexcept
{
    const int changed = file ^ agreed;
    return static_cast<Marks>((item & ~changed) | (file & changed));
}

}  // namespace quorvane::host
