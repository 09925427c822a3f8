// tests/model/reference.h: what the engine must do about the changes of two
// shared folders, told as plainly as possible: lists and texts, no threads, no
// code of the engine's.
//
// The store's part in it: what a folder's table tells of its changes when it is
// asked. The engine's part: what it asks the host then, what it sends, and what
// it remembers afterwards.
#ifndef QUORVANE_TESTS_MODEL_REFERENCE_H_
#define QUORVANE_TESTS_MODEL_REFERENCE_H_

#include <array>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace quorvane::model {

// Folders by number: those below kFolders are shared, kElsewhere isn't.
inline constexpr unsigned kFolders = 2;
inline constexpr unsigned kElsewhere = kFolders;

using EntryId = std::string;
// A sharing ID. The engine makes them up, so that the model has names of its
// own for them: "?1", "?2".
using Id = std::string;

struct Mail {
    unsigned folder = 0;
    long number = 0;   // tables show mails in this order
    std::string time;  // of the last change
    long flags = 0;
    std::string subject;
};

enum class Answer { Accept, Ignore, Fail };

inline constexpr long kAdded = 10;
inline constexpr long kModified = 20;
inline constexpr long kDeleted = 30;

// The host is asked about an item.
struct Call {
    EntryId entryId;
    Id id;
    long action = 0;  // tells which of its callbacks it is, too, unless it's about a resend
    bool isResend = false;
    std::string job{};  // of a resend

    auto operator<=>(const Call&) const = default;
};

// An item in a package.
struct Element {
    std::string folder;  // the folder's ID
    long action = 0;
    std::optional<std::string> subject;  // none: it holds no message

    bool operator==(const Element&) const = default;
};
using Package = std::map<Id, Element>;

// How the store behaves.
struct StoreRules {
    bool tellsOfTablesOnly = false;
    bool rowsAreNarrow = false;  // fewer than five columns
};

// A resend of a folder, as the host asks for it.
struct Resend {
    unsigned folder = 0;
    std::string to;
    bool isExtended = false;         // ResendEx, with a restriction
    std::optional<std::string> job;  // its ID, if the host chooses it
    bool all = false;
    std::optional<std::string> since;  // only mails changed then or later are looked at
    unsigned cancelAt = 0;             // the host cancels when it's asked about the so manieth; 0: never
};

// What is left of a resend in the database.
struct Job {
    std::string id;
    std::string folder;
    std::string to;
};

// What comes of a delivery, or of a resend.
struct Delivery {
    unsigned told = 0;  // notifications
    // Groups in their order; within a group any order is right.
    std::vector<std::vector<Call>> calls;
    // What a resend's progress shows: done and total, after the limits.
    std::vector<std::pair<long, long>> progress;
};

class Reference {
public:
    Reference(StoreRules rules, std::array<std::string, kFolders> folderIds)
        : rules_(rules), folderIds_(std::move(folderIds))
    {}

    // What happens to mails: one is there now, new or changed or in another
    // folder; one is gone.
    void Put(const EntryId& entryId, const Mail& mail);
    // The same for a copy: to a store it concerns the folder that it was made
    // from as well.
    void PutCopy(const EntryId& entryId, const Mail& mail, unsigned from);
    void Remove(const EntryId& entryId);
    const std::map<EntryId, Mail>& Mails() const { return mails_; }

    // What the host does.
    void Lock(const EntryId& entryId, bool autoUnlock) { locks_.emplace(entryId, autoUnlock); }
    bool Unlock(const EntryId& entryId) { return locks_.erase(entryId) > 0; }
    bool IsLocked(const EntryId& entryId) const { return locks_.contains(entryId); }
    // The answer to the next call about an item.
    void AnswerNext(const EntryId& entryId, Answer answer) { answers_[entryId] = answer; }
    void Suspend(unsigned folder, bool suspended) { watched_[folder].suspended = suspended; }
    void EndSession(bool forgets);

    // The engine hears of what happened in a folder since the last time. `seed`
    // draws the order; 0: as it was.
    Delivery Deliver(unsigned folder, unsigned seed);

    // A folder is resent, and the host waits for the end.
    Delivery RunResend(const Resend& resend);
    void CancelResends() { jobs_.clear(); }

    // What is remembered.
    const std::map<EntryId, Id>& Rows() const { return rows_; }
    // Hash, tab, flags. "#" and a time stand for the hash of that time.
    const std::map<EntryId, std::string>& Hashes(unsigned folder) const { return watched_[folder].hashes; }
    const std::vector<Job>& Jobs() const { return jobs_; }
    // By their recipients; a folder's ID stands for its members.
    std::map<std::string, Package>& Packages() { return packages_; }

private:
    enum class Event { Changed, Added, Modified, Deleted };
    struct TableEvent {
        Event event;
        EntryId entryId;
    };
    struct Watched {
        std::vector<EntryId> touched;  // since the last delivery, in order
        std::set<EntryId> shown;       // by the table at the last delivery
        bool suspended = false;
        std::map<EntryId, std::string> hashes;
    };
    struct Change {
        EntryId entryId;
        std::string hash;
        long flags;
    };

    void Touch(unsigned folder, const EntryId& entryId);
    std::vector<TableEvent> TakeEvents(unsigned folder);
    std::vector<EntryId> Table(unsigned folder) const;
    void ScanRow(unsigned folder, const EntryId& entryId, bool all, std::vector<Change>& changes);
    std::vector<Change> ScanTable(unsigned folder, bool all = false,
                                  const std::optional<std::string>& since = std::nullopt);
    Call ResendChange(const Resend& resend, const std::string& job, const Change& change);
    // False: the host failed.
    bool ResendDeletion(unsigned folder, const EntryId& entryId, std::vector<Call>& calls);
    std::vector<EntryId> FindGone(unsigned folder) const;
    void WorkOff(unsigned folder, Event event, const std::vector<Change>& changes,
                 const std::vector<EntryId>& gone, Delivery& delivery);
    std::optional<Call> WorkOffChange(unsigned folder, Event event, const Change& change);
    std::optional<Call> WorkOffDeletion(unsigned folder, const EntryId& entryId);
    bool TakeLock(const EntryId& entryId);
    Answer TakeAnswer(const EntryId& entryId);
    void Send(const std::string& to, unsigned folder, const Id& id, long action,
              std::optional<std::string> subject);
    Id NewId() { return "?" + std::to_string(++ids_); }

    const StoreRules rules_;
    const std::array<std::string, kFolders> folderIds_;
    std::map<EntryId, Mail> mails_;
    std::array<Watched, kFolders> watched_;
    std::map<EntryId, Id> rows_;
    std::map<EntryId, bool> locks_;
    std::map<EntryId, Id> moved_;
    std::map<EntryId, Answer> answers_;
    std::map<std::string, Package> packages_;
    std::vector<Job> jobs_;
    unsigned ids_ = 0;
};

}  // namespace quorvane::model

#endif  // QUORVANE_TESTS_MODEL_REFERENCE_H_
