// host/mirror/mirror_records.h: which folders are tied to which Maildirs, and what both sides last agreed on;
// in host.db.
#ifndef QUORVANE_HOST_MIRROR_MIRROR_RECORDS_H_
#define QUORVANE_HOST_MIRROR_MIRROR_RECORDS_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/base/sqlite.h"
#include "host/mirror/plan.h"

namespace quorvane::host {

// A folder and the Maildir that it is tied to.
struct Mirror {
    std::int64_t number = 0;
    std::string entryId;         // of the folder
    std::string folder;          // its path
    std::string directory;       // of the Maildir, absolute
    std::string identity{};      // Maildir::Identity, as it was seen last; empty before that
    std::string problem{};       // why it is stopped, in one line; empty while it isn't
    std::int64_t held = 0;       // mails that wait for a confirmation to be deleted
    std::int64_t confirmed = 0;  // so many may be
    std::int64_t leftAlone = 0;  // files that aren't taken

    bool operator==(const Mirror&) const = default;
};

// For one thread. Methods throw a HostError when the database fails.
//
// What is noted outlives the process, and may be lost with the power: what both sides show is compared then
// as at the first time.
class MirrorRecords {
public:
    explicit MirrorRecords(const std::string& path);

    std::vector<Mirror> All();
    // Another value once anybody else has changed anything.
    std::int64_t Version();
    // How many mails both sides of a mirror show.
    std::int64_t CountMails(std::int64_t mirror);
    // All of them, or none. Throws where a folder or a Maildir is tied already.
    void Add(const std::vector<Mirror>& mirrors);
    void Add(const Mirror& mirror) { Add(std::vector<Mirror>{mirror}); }
    // Nothing is known any more of what both sides agreed on.
    void Remove(std::int64_t number);
    // So many mails as wait now may be deleted.
    void Confirm(std::int64_t number);
    void ForgetConfirmation(std::int64_t number);
    // What a run finds: identity, problem, held, leftAlone.
    void NoteState(const Mirror& mirror);

    std::vector<MailPair> PairsOf(std::int64_t mirror);

    // Changes that are noted together or not at all.
    struct Changes {
        std::vector<MailPair> put;          // new where their number is 0
        std::vector<std::int64_t> removed;  // their numbers; gone before the others are put
        bool IsEmpty() const noexcept { return put.empty() && removed.empty(); }
    };
    void Note(const Changes& changes);

private:
    Database database_;
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_MIRROR_MIRROR_RECORDS_H_
