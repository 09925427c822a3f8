// host/records.h: what the program itself remembers of a mailbox, in host.db. docs/mailbox.md tells the
// tables.
#ifndef QUORVANE_HOST_RECORDS_H_
#define QUORVANE_HOST_RECORDS_H_

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "host/sqlite.h"

namespace quorvane::host {

// A folder that is shared.
struct Share {
    std::string folderId;  // the same for all members
    std::string entryId;   // the folder's entry identifier here, in hexadecimal text
    std::string storeId;
    std::string name;  // the folder's path
};

// The version of a shared item: who changed it last, and when. Of two versions the greater one wins at every
// member, so that all end with the same.
struct ItemVersion {
    std::uint64_t stamp = 0;  // a FILETIME, or one more than the version before where that lay in the future
    std::string member;

    friend bool operator==(const ItemVersion&, const ItemVersion&) = default;
    friend bool operator<(const ItemVersion& a, const ItemVersion& b)
    {
        return a.stamp != b.stamp ? a.stamp < b.stamp : a.member < b.member;
    }
};

// What is known of a shared item.
struct ItemRecord {
    std::string id;
    std::string folderId;
    ItemVersion version;
    bool deleted = false;
    std::uint64_t modified = 0;  // the message's exact modification time in that version; 0 when unknown
};

// A storage file on its way out.
struct OutgoingPackage {
    std::int64_t number = 0;
    std::string path;
    std::string recipients;
};

struct Delivery {
    std::string member;
    std::uint64_t sequence = 0;
};

// All methods throw a HostError when the database fails. Any thread.
//
// What others rely on (shares, packages, sequence numbers) is on the disk when a method returns. What is noted of
// items outlives the process, and may be lost with the power: such an item is then sent once more.
class Records {
public:
    explicit Records(const std::string& path);

    // Makes the tables of a new mailbox. Called within a transaction.
    static void CreateTables(Database& database, const std::string& name, const std::string& instance);

    // Shares.
    std::vector<Share> Shares();
    std::optional<Share> FindShare(const std::string& folderId);
    std::optional<Share> FindShareByEntryId(const std::string& entryId);
    void AddShare(const Share& share);
    // All members of a folder but this mailbox's own.
    std::vector<std::string> Members(const std::string& folderId);
    // Those whom the folder and its items were sent to already (announced), or not yet.
    std::vector<std::string> Members(const std::string& folderId, bool announced);
    // A member that is known already stays as it is. True if it was new.
    bool AddMember(const std::string& folderId, const std::string& name, bool announced);
    // Every member is to be told of the folder once more.
    void AnnounceAgain(const std::string& folderId);

    // Items.
    std::optional<ItemRecord> FindItem(const std::string& id);
    std::vector<ItemRecord> ItemsOf(const std::string& folderId);
    void PutItem(const ItemRecord& item);
    // Notes the modification time of the message that holds an item's present version.
    void SetModified(const std::string& id, std::uint64_t modified);

    // Packages out. A package is noted before the engine forgets it and forgotten after the last delivery.
    std::int64_t AddOutgoing(const std::string& path, const std::string& recipients);
    std::vector<OutgoingPackage> Outgoing();
    // The deliveries of a package that are not done yet, each with a sequence number of its own to that
    // member. The first call fixes them; from then on `members` count as told of the folder
    // `announcedFolder`, if that isn't empty.
    std::vector<Delivery> PlanDeliveries(std::int64_t package, const std::vector<std::string>& members,
                                         const std::string& announcedFolder);
    void FinishDelivery(std::int64_t package, const std::string& member);
    void FinishOutgoing(std::int64_t package);

    // Packages in: the last sequence number taken from a sender.
    std::uint64_t LastReceived(const std::string& sender);
    void SetLastReceived(const std::string& sender, std::uint64_t sequence);

private:
    class Durable;

    std::mutex mutex_;
    Database database_;
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_RECORDS_H_
