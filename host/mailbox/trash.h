// host/mailbox/trash.h: what was removed here that nobody here meant: by another member's deletion, by a
// version that hadn't seen it, or with the folder that it was in. It is kept for a while as a .msg file in
// trash/, and listed in host.db.
#ifndef QUORVANE_HOST_MAILBOX_TRASH_H_
#define QUORVANE_HOST_MAILBOX_TRASH_H_

#include <cstdint>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "host/base/sqlite.h"
#include "host/mailbox/mailbox.h"
#include "quorvane3/mapi.h"

namespace quorvane::host {

struct TrashEntry {
    enum class Why {
        kDeleted = 0,   // by another member, or with its folder
        kReplaced = 1,  // by a version that hadn't seen this one
        kBeaten = 2,    // the same, and it was made here: it comes back as an item of its own
        kMirrored = 3,  // its file in a Maildir that the folder is tied to was removed
    };

    std::int64_t number = 0;  // set by Keep
    std::string item;         // its sharing ID; of a deleted folder, its entry identifier
    std::string folderId;     // empty of a deleted folder
    std::string folder;       // its path
    std::string revision;     // of the item: which content this is (Revision, as bytes in hexadecimal)
    std::string subject;
    std::string member;  // who deleted it, or made what it was replaced by
    Why why = Why::kDeleted;
    std::uint64_t since = 0;  // a FILETIME
    std::string copy;         // kBeaten: the ID of the item that it is to become; empty once it did
};

// Any thread. Methods throw a HostError.
class Trash {
public:
    static constexpr std::int64_t kDays = 30;

    explicit Trash(const Mailbox& mailbox);

    // Keeps a message; when this returns, it is on the disk. One content of an item is kept once.
    void Keep(const TrashEntry& entry, IMessage& message);

    // The latest first.
    std::vector<TrashEntry> Entries();
    std::optional<TrashEntry> Find(std::int64_t number);
    // A content of an item, if it was kept.
    std::optional<TrashEntry> FindContent(const std::string& item, const std::string& revision);
    // Those that are yet to become items.
    std::vector<TrashEntry> CopiesDue();
    void NoteCopied(std::int64_t number);
    std::filesystem::path FileOf(const TrashEntry& entry) const;

    void Remove(const TrashEntry& entry);
    // Removes what has been here long enough, and files that a kill left without an entry.
    void Expire(std::uint64_t now);
    std::int64_t Days();
    void SetDays(std::int64_t days);

private:
    std::vector<TrashEntry> Read(const char* where, std::int64_t key);

    const std::filesystem::path directory_;
    std::mutex mutex_;
    Database database_;
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_MAILBOX_TRASH_H_
