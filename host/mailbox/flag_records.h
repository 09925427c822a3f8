// host/mailbox/flag_records.h: what is known of the flags of items whose folder's members share them
// (exchange/item_flags.h), and who is to be told of what; in host.db.
#ifndef QUORVANE_HOST_MAILBOX_FLAG_RECORDS_H_
#define QUORVANE_HOST_MAILBOX_FLAG_RECORDS_H_

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "host/base/sqlite.h"
#include "host/exchange/item_flags.h"

namespace quorvane::host {

struct FlagRecord {
    std::string item;
    std::string folderId;
    exchange::ItemFlags flags;
    bool isPending = false;  // something was changed here that no package holds
    std::uint8_t due = 0;    // those of flags.Shown() that the item's message doesn't show as they are yet
};

// Any thread. Methods throw a HostError when the database fails.
class FlagRecords {
public:
    // So many records of a folder are kept whose items aren't here yet.
    static constexpr std::int64_t kMostWaiting = 10'000;

    explicit FlagRecords(const std::string& path);

    // Whether the members of a folder that is shared here share the items' flags.
    bool AreShared(const std::string& folderId);
    std::optional<FlagRecord> Find(const std::string& item);
    // Of all items of a folder of which any is known, by rising id.
    std::map<std::string, exchange::ItemFlags> Of(const std::string& folderId);
    void Put(const std::vector<FlagRecord>& records);
    // Those of which something is due, and whose items are here; and that one is shown, if nothing else was
    // noted since.
    std::vector<FlagRecord> Due();
    void NoteShown(const FlagRecord& record);
    // How many of a folder's wait for their item.
    std::int64_t CountWaiting(const std::string& folderId);

    // Changes that were made here, of so many items at the most.
    std::vector<FlagRecord> Pending(const std::string& folderId, std::size_t most);
    bool HasPending();
    // Whether a device knows that the folder's members share flags.
    bool KnowsOf(const std::string& folderId, const std::string& device);
    // The devices that are told of a folder's changes, and those that are to be told of all its flags first.
    // One whose member is being sent the folder waits for the end of that.
    std::vector<std::string> Told(const std::string& folderId);
    std::vector<std::string> Owed(const std::string& folderId);

    // What goes out in one step: files that hold it, for these devices, numbered and noted as packages in
    // their order. With this the records are pending no more, as far as they are what they were, and the
    // devices aren't owed anything.
    struct Going {
        std::vector<std::string> paths;
        std::string recipients;
        std::vector<std::string> devices;
        std::vector<FlagRecord> sent;
        std::string folderId;
        bool isAll = false;
    };
    void NoteGoing(const Going& going);

private:
    std::vector<FlagRecord> Select(const char* where, const std::string& key, std::int64_t most);

    std::mutex mutex_;
    Database database_;
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_MAILBOX_FLAG_RECORDS_H_
