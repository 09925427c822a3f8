// host/mailbox/records.h: what the program itself remembers of a mailbox, in host.db. docs/mailbox.md tells
// the tables.
#ifndef QUORVANE_HOST_MAILBOX_RECORDS_H_
#define QUORVANE_HOST_MAILBOX_RECORDS_H_

#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "host/base/sqlite.h"
#include "host/exchange/item_heads.h"
#include "host/exchange/seal.h"

namespace quorvane::host {

// A folder that is shared.
struct Share {
    std::string folderId;  // the same for all members
    std::string entryId;   // the folder's entry identifier here, in hexadecimal text
    std::string storeId;
    std::string name;       // the folder's path
    bool hasFlags = false;  // its members share the items' flags
    bool isTree = false;    // folders that come to lie in it are shared, too
};

// Who made what a shared item shows, and when.
struct ItemVersion {
    std::uint64_t stamp = 0;  // a FILETIME, or one more than the version before where that lay in the future
    std::string member;

    friend bool operator==(const ItemVersion&, const ItemVersion&) = default;
};

// What is known of a shared item.
struct ItemRecord {
    std::string id;
    std::string folderId;
    ItemVersion version;
    bool deleted = false;
    std::uint64_t modified = 0;   // the message's exact modification time in that version; 0 when unknown
    exchange::ItemHeads heads{};  // empty of one that a former version of the program noted
    bool isWhole = true;          // what it shows is here
    bool isPending = false;       // no package holds what was changed here
};

// A storage file on its way out.
struct OutgoingPackage {
    std::int64_t number = 0;
    std::string path;
    std::string recipients;
    bool isPlanned = false;      // its receivers are fixed
    std::uint64_t sequence = 0;  // the number it has for all of them; 0: nobody gets it
    bool isLaid = false;         // it lies in the exchange
    exchange::PackageKind kind = exchange::PackageKind::kItems;
};

// What a package tells, as far as records follow from it.
struct PackagePlan {
    std::vector<std::string> members;  // who gets it
    struct Item {
        std::string id;
        std::string folderId;
        std::string heads{};  // that the package gives for it, as bytes in hexadecimal
    };
    std::vector<Item> items;
    bool isForAll = false;  // all members of its folder, and not one alone
    std::string device{};   // the one device that gets it, of something that isn't for members
};

// What a member is to be sent of a folder.
enum class ResendScope {
    kChanged = 0,     // what changed since it was sent last
    kEverything = 1,  // all its items
    kOwn = 2,         // the versions and deletions that were made here
    kAgain = 3,       // all its items and all deletions: packages for the member are lost
};

struct ResendRecord {
    std::int64_t number = 0;
    std::string folderId;
    std::string member;
    ResendScope scope = ResendScope::kEverything;
    std::uint64_t since = 0;  // a FILETIME; 0: of any time
    bool cancelled = false;
    // As of the last run that worked on it: items looked at, of how many, and how fast.
    std::int64_t done = 0;
    std::int64_t total = 0;
    std::int64_t perSecond = 0;
};

// An item that was taken out of a package, and so reached nobody.
struct UnsentItem {
    std::string id;
    std::string folderId;
    std::string subject;
    std::string reason;
};

// So many devices of other members, as one package can be sealed to.
inline constexpr std::int64_t kMostKnownDevices = 1000;

// All methods throw a HostError when the database fails. Any thread.
//
// What others rely on (shares, packages, sequence numbers, deletions that were made here) is on the disk when
// a method returns. What else is noted of items outlives the process, and may be lost with the power: such an
// item is then sent once more.
class Records {
public:
    explicit Records(const std::string& path);

    static constexpr int kVersion = 14;
    // Makes the tables of a new mailbox. Called within a transaction.
    static void CreateTables(Database& database, const std::string& name, const std::string& instance);
    // Brings tables of an earlier version up to this one. Called within a transaction.
    static void Upgrade(Database& database, std::int64_t version);

    // Shares.
    std::vector<Share> Shares();
    std::optional<Share> FindShare(const std::string& folderId);
    std::optional<Share> FindShareByEntryId(const std::string& entryId);
    // All members of a folder but this mailbox's own.
    std::vector<std::string> Members(const std::string& folderId);
    // Those who have told that they have the folder, so that they get its changes, or not yet.
    std::vector<std::string> Members(const std::string& folderId, bool hasFolder);

    // Items.
    std::optional<ItemRecord> FindItem(const std::string& id);
    // In the order of the IDs; null for one that isn't known.
    std::vector<std::optional<ItemRecord>> FindItems(const std::vector<std::string>& ids);
    // How many of a folder there are, without deleted ones.
    std::int64_t CountItems(const std::string& folderId);
    // Visits those of a folder by rising ID. Few are held at once, and no lock: `visit` may write and forget
    // items. What comes meanwhile isn't visited.
    enum class Deleted { kLeftOut, kIncluded };
    void ForEachItem(const std::string& folderId, Deleted deleted,
                     const std::function<void(const ItemRecord&)>& visit);
    void PutItem(const ItemRecord& item);
    // Notes all of them or none, and has that on the disk.
    void PutItems(const std::vector<ItemRecord>& items);
    // Notes the modification time of the message that holds an item's present version, which so is here.
    void SetModified(const std::string& id, std::uint64_t modified);
    // Those that show what isn't here.
    std::vector<ItemRecord> MissingItems();
    // Those with edits that are beaten by others that hadn't seen them.
    std::vector<ItemRecord> ItemsInConflict();
    // Those that were changed or deleted here, are whole if they aren't deleted, and that no package for all
    // members holds.
    std::vector<std::string> PendingItems(const std::string& folderId);

    // Who makes the changes that are made here: this device, in its present epoch.
    struct Changer {
        exchange::ChangerId changer;
        exchange::DeviceId device;
    };
    Changer OwnChanger();
    // The member that a device is known to be of, this mailbox's own name included; empty when it isn't
    // known.
    std::string MemberOf(const exchange::DeviceId& device);

    // Whether packages of the folder can be sealed to a member: a device of his is a member's of the folder,
    // has told that it has it, was told the same, its card is known, and it isn't silent.
    bool IsReachable(const std::string& folderId, const std::string& member);
    // The same of one device.
    bool MayGet(const std::string& folderId, const std::string& device);
    // Forgets what is known of an item.
    void ForgetItem(const std::string& id);

    // Packages out. A package is noted before the engine forgets it and forgotten when it lies in the
    // exchange.
    std::int64_t AddOutgoing(const std::string& path, const std::string& recipients);
    std::vector<OutgoingPackage> Outgoing();
    // Gives a package its number, fixes the devices that it is for, and brings the records up to what their
    // members get by it. A member without a known device is owed what was made here instead. The first call
    // counts.
    void PlanPackage(std::int64_t package, const PackagePlan& plan);
    bool IsPlanned(std::int64_t package);
    // From here on its file isn't needed any more. bytes: that lie in the exchange; 0 where nobody gets it.
    void NoteLaid(std::int64_t package, std::uint64_t bytes);
    void FinishOutgoing(std::int64_t package);

    // What members are yet to get of a folder. One request a member and folder: a later one takes the place
    // of an earlier.
    //
    // `everything` without a date, and a member whom nothing was given yet: begins anew. Otherwise what was
    // given by the request before isn't given again.
    void AddResend(const std::string& folderId, const std::string& member, ResendScope scope,
                   std::uint64_t since);
    std::vector<ResendRecord> Resends();
    std::optional<ResendRecord> FindResend(const std::string& folderId, const std::string& member);
    std::optional<ResendRecord> FindResend(std::int64_t number);
    void SetResendProgress(std::int64_t number, std::int64_t done, std::int64_t total,
                           std::int64_t perSecond);
    // Ends those that are under way or wait, of one folder and to one member where these aren't empty. What
    // was given stays noted. Gives how many there were.
    int CancelResends(const std::string& folderId, const std::string& member);
    // The member's devices are to be told of the flags of all that he was given, where members share them.
    void FinishResend(std::int64_t number);
    std::int64_t CountGiven(std::int64_t resend);
    // Whether a package for its member holds the item already.
    bool IsGiven(std::int64_t resend, const std::string& item);
    // Whether any other member of the folder has the item, or had: one for whom no request is open that will
    // give it.
    bool OthersHave(const ResendRecord& resend, const std::string& item);
    // Deletions in a folder that `member` made; for an empty name all.
    std::vector<std::string> DeletedBy(const std::string& folderId, const std::string& member);

    // Items that couldn't be sent, until a package holds them.
    void PutUnsent(const UnsentItem& item);
    std::vector<UnsentItem> Unsent();
    void ForgetUnsent(const std::string& id);

private:
    class Durable;
    void WriteItem(const ItemRecord& item);
    std::vector<std::int64_t> ItemRows(const std::string& folderId, Deleted deleted);
    std::vector<ItemRecord> ReadItemRows(std::span<const std::int64_t> rows);

    std::mutex mutex_;
    Database database_;
};

// Gives a package for these devices its number; 0 when it is for none. Within a transaction. Throws a
// HostError.
std::uint64_t NumberPackage(Database& database, const std::vector<std::string>& devices);

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_MAILBOX_RECORDS_H_
