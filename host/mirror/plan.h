// host/mirror/plan.h: what is to be done so that folders and Maildirs show the same mails: decided here,
// without a look at anything else and without doing it.
//
// A mail that both sides show is a pair, and its record tells what both last agreed on. A file and an item
// without a record are new. What is decided is a list of steps, each of which may be cut short, or be taken
// twice: the next plan is made of what is there then.
#ifndef QUORVANE_HOST_MIRROR_PLAN_H_
#define QUORVANE_HOST_MIRROR_PLAN_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/store/item_marks.h"

namespace quorvane::host {

// What a file looks like from outside.
struct FileLook {
    std::uint64_t inode = 0;
    std::uint64_t size = 0;
    std::int64_t time = 0;  // of its last change, in nanoseconds; 0: so late that another may not show

    bool operator==(const FileLook&) const = default;
};

// A file of a Maildir.
struct MailFile {
    std::string part;  // "cur" or "new"
    std::string name;
    std::string base;  // of the name
    Marks marks = 0;
    FileLook look;
    std::string digest;   // of its bytes
    std::string problem;  // why it is left alone, in plain words; empty of a mail
};

// An item of a folder.
struct MailItem {
    std::string id;  // entry identifier
    Marks marks = 0;
    std::uint64_t modified = 0;
};

// What both sides last agreed on of one mail.
struct MailPair {
    std::int64_t number = 0;  // 0: not noted yet
    std::int64_t mirror = 0;
    std::string item;
    std::string base;
    std::string next{};       // the unique name of the file that is to take the place of that one
    bool isArriving = false;  // the file is yet to be written, under `base`
    Marks marks = 0;
    FileLook look{};
    std::string digest{};  // of the file
    std::uint64_t modified = 0;
};

// One mirror as it is.
struct MirrorView {
    std::int64_t number = 0;
    bool isStopped = false;      // nothing is to be done, and nothing of its Maildir is known
    bool isSettled = false;      // what isn't among the files isn't there
    std::int64_t confirmed = 0;  // so many mails may go at once
    std::vector<MailFile> files;
    std::vector<MailItem> items;
    std::vector<MailPair> pairs;
};

struct MirrorStep {
    enum class Kind {
        kForget,      // the pair is no more: both went, or each goes its own way
        kNote,        // the pair is as given, in the mirror `mirror`
        kFinishNext,  // the pair's next file is there: the one before goes
        kMoveItem,    // the file went to `mirror`: the item follows
        kMoveFile,    // the item went to `mirror`: the file follows
        kImport,      // the file becomes an item
        kUpdateItem,  // the file was changed: the item is
        kUpdateFile,  // the item was changed: the file is
        kCompare,     // both were: they say the same now, or each goes its own way
        kDeliver,     // the item becomes a file; `pair` where one of its name was begun
        kMark,        // both get `marks`
        kDeleteItem,  // the file went
        kDeleteFile,  // the item went
    };

    Kind kind = Kind::kNote;
    std::int64_t mirror = 0;
    std::optional<MailPair> pair{};
    std::optional<MailFile> file{};
    std::optional<MailItem> item{};
    Marks marks = 0;
    std::int64_t from = 0;             // kMoveItem, kMoveFile: the mirror that it leaves
    std::optional<MailFile> former{};  // kFinishNext: the file before, where it is there

    const MailPair& Pair() const { return pair.value(); }
    const MailFile& File() const { return file.value(); }
    const MailItem& Item() const { return item.value(); }
};

struct MirrorPlan {
    std::vector<MirrorStep> steps;
    // Mirrors of which too many mails would go at once, and how many: nothing of that is among the steps.
    struct Held {
        std::int64_t mirror = 0;
        std::int64_t count = 0;
    };
    std::vector<Held> held;
    bool isUnknown = false;  // something is missing in a Maildir that isn't settled: look again
};

// So many may always go at once; beyond that more than half of a mirror's mails may not, nor more than kMost,
// nor the last ones.
inline constexpr std::int64_t kFewDeletions = 4;
inline constexpr std::int64_t kMostDeletions = 100;

// What is to be done, in the order in which it is best done. An item is in one mirror, and in one pair.
MirrorPlan PlanMirrors(const std::vector<MirrorView>& mirrors);

// What both are to show: a mark that one side changed since they agreed is as that side has it.
Marks AgreeOnMarks(Marks agreed, Marks file, Marks item) noexcept;

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_MIRROR_PLAN_H_
