// host/mailbox/comparison_records.h: when each shared folder was compared with that of each other device, and
// what came of it; in host.db.
#ifndef QUORVANE_HOST_MAILBOX_COMPARISON_RECORDS_H_
#define QUORVANE_HOST_MAILBOX_COMPARISON_RECORDS_H_

#include <cstdint>
#include <string>
#include <vector>

#include "host/base/sqlite.h"

namespace quorvane::host {

// A folder and a device of another member's who has it. Times are FILETIMEs, 0 for never.
struct ComparisonRecord {
    std::string folderId;
    std::string folder;  // its path
    std::string device;
    std::string member;
    std::uint64_t since = 0;   // when they were first known to have the folder both
    bool isWanted = false;     // to be compared as soon as nothing else passes between them
    std::uint64_t opened = 0;  // the last comparison that was begun here
    std::uint64_t equal = 0;
    std::uint64_t differed = 0;
    std::int64_t tries = 0;           // comparisons in a row that differed
    std::vector<std::string> items;   // in which they differed last; the first of them, if there were many
    std::size_t count = 0;            // how many
    std::int64_t unacknowledged = 0;  // packages for the device

    // Since they last differed they were found equal.
    bool IsEqual() const noexcept { return equal > differed; }
};

// Folders are to be compared: one, or for an empty id all; with one device, or for an empty one all.
// `database` is host.db, in a transaction or not.
void WantComparisons(Database& database, const std::string& folderId, const std::string& device,
                     std::uint64_t now);

// For one thread. Methods throw a HostError when the database fails.
class ComparisonRecords {
public:
    static constexpr std::size_t kItemsNamed = 100;

    explicit ComparisonRecords(const std::string& path) : database_(path, Database::Mode::kOpen) {}

    // All pairs; those that are new are noted as of now.
    std::vector<ComparisonRecord> All(std::uint64_t now);
    void Want(const std::string& folderId, const std::string& device, std::uint64_t now)
    {
        WantComparisons(database_, folderId, device, now);
    }

    void NoteOpened(const std::string& folderId, const std::string& device, std::uint64_t now);
    void NoteEqual(const std::string& folderId, const std::string& device, std::uint64_t now);
    // They are compared once more when what differed was sent.
    void NoteDiffered(const std::string& folderId, const std::string& device,
                      const std::vector<std::string>& items, std::uint64_t now);

private:
    Database database_;
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_MAILBOX_COMPARISON_RECORDS_H_
