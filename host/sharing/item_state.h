// host/sharing/item_state.h: whether a message of a shared folder is the one that was last sent or received.
#ifndef QUORVANE_HOST_SHARING_ITEM_STATE_H_
#define QUORVANE_HOST_SHARING_ITEM_STATE_H_

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "host/mailbox/mailbox.h"
#include "host/mailbox/records.h"
#include "host/mailbox/sharing_rows.h"

namespace quorvane::host {

// Looks rows of the sharing database up, one at a time. Any thread. Throws a HostError.
class ItemState {
public:
    ItemState(const Mailbox& mailbox, Records& records);

    // Of several rows for one message, the one that the program has a record of.
    std::optional<SharingRow> RowOfEntry(const std::string& entryId);
    std::optional<SharingRow> RowOfId(const std::string& id);
    // The same of several messages, as they stand at one moment; in their order.
    std::vector<std::optional<SharingRow>> RowsOf(const std::vector<std::string>& entryIds);

    // A scan that meets a message whose row is only just being written gives it a row of its own. Such a row,
    // with an ID that nobody else knows, goes as soon as it is told from the true one, which is given.
    std::optional<SharingRow> DropStrayRows(const std::string& entryId);
    // The same for all messages.
    void DropStrayRows();

    // Whether a message of this folder with this modification time is what its row, and the program's record
    // of the item, stand for. A row knows whole seconds only; the record knows the time exactly. A move
    // between folders leaves row and time as they were.
    bool IsCurrent(const SharingRow& row, const std::string& folderId, std::uint64_t modified);
    // The same for the record of an item of this folder.
    static bool IsCurrent(const SharingRow& row, const ItemRecord& record, std::uint64_t modified) noexcept;

    // Brings a row's time up to date after its item was sent.
    void SetRowTime(const std::string& id, std::uint64_t modified);

    // Whether what this writes waits for the disk, as it does at first.
    void WaitForDisk(bool waits);

    // The received files that stand in the engine's table of unfinished jobs.
    std::vector<std::string> UnfinishedPaths();
    bool IsUnfinished(const std::string& path);
    // Whether the engine works one of them off. It removes the file at the end, and the row right after that:
    // until then the file's name can't be given to it anew. A row that has no file for as long as a writer
    // waits for the database was left by a run that was killed.
    bool IsReceiving(std::chrono::steady_clock::time_point now = std::chrono::steady_clock::now());

private:
    using Rows = std::vector<SharingRow>;
    Rows FindRows(const char* sql, const std::string& key);
    Rows FindRowsLocked(const char* sql, const std::string& key);
    std::optional<SharingRow> Choose(const Rows& rows);

    Records& records_;
    std::mutex mutex_;
    Database database_;
    std::map<std::string, std::chrono::steady_clock::time_point> ending_;  // rows whose files were found gone
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_SHARING_ITEM_STATE_H_
