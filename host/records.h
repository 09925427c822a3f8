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

// What a package tells, as far as records follow from it.
struct PackagePlan {
    std::vector<std::string> members;  // who gets it
    // An announcement: of which folder, and how many of its members it names.
    std::string announcedFolder;
    std::size_t membersNamed = 0;
    struct Item {
        std::string id;
        std::string folderId;
    };
    std::vector<Item> items;
};

// What a member is to be sent of a folder.
enum class ResendScope {
    kChanged = 0,     // what changed since it was sent last
    kEverything = 1,  // all its items
    kOwn = 2,         // the versions and deletions that were made here
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

    static constexpr int kVersion = 2;
    // Makes the tables of a new mailbox. Called within a transaction.
    static void CreateTables(Database& database, const std::string& name, const std::string& instance);
    // Brings tables of an earlier version up to this one. Called within a transaction.
    static void Upgrade(Database& database, std::int64_t version);

    // Shares.
    std::vector<Share> Shares();
    std::optional<Share> FindShare(const std::string& folderId);
    std::optional<Share> FindShareByEntryId(const std::string& entryId);
    void AddShare(const Share& share);
    // All members of a folder but this mailbox's own.
    std::vector<std::string> Members(const std::string& folderId);
    // Those whom the folder was announced to already, so that they get its changes, or not yet.
    std::vector<std::string> Members(const std::string& folderId, bool announced);
    // Those whom the folder is to be announced to: for the first time, or because they are part in its traffic
    // and don't know of all its members.
    std::vector<std::string> MembersToTell(const std::string& folderId);
    // Another member, whom the folder and all its items are to be sent to. A member that is known already stays as
    // it is. True if it was new.
    bool AddMember(const std::string& folderId, const std::string& name);
    // An announcement named these and this mailbox as the folder's members: they know each other, and have the folder
    // or are given it. Those that are new here are owed the versions that were made here, if `owesOwn`.
    void LearnMembers(const std::string& folderId, const std::vector<std::string>& names, bool owesOwn);
    // Something came from a member.
    void NoteHeardFrom(const std::string& folderId, const std::string& member);

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
    // member. The first call fixes them, and brings the records up to what the members get by them.
    std::vector<Delivery> PlanDeliveries(std::int64_t package, const PackagePlan& plan);
    // Whether the first call has been made.
    bool IsPlanned(std::int64_t package);
    void FinishDelivery(std::int64_t package, const std::string& member);
    void FinishOutgoing(std::int64_t package);

    // Packages in: the last sequence number taken from a sender.
    std::uint64_t LastReceived(const std::string& sender);
    void SetLastReceived(const std::string& sender, std::uint64_t sequence);

    // What members are yet to get of a folder. One request a member and folder: a later one takes the place of an
    // earlier.
    //
    // `everything` without a date, and a member whom nothing was given yet: begins anew. Otherwise what was given by
    // the request before isn't given again.
    void AddResend(const std::string& folderId, const std::string& member, ResendScope scope,
                   std::uint64_t since);
    std::vector<ResendRecord> Resends();
    std::optional<ResendRecord> FindResend(const std::string& folderId, const std::string& member);
    std::optional<ResendRecord> FindResend(std::int64_t number);
    void SetResendProgress(std::int64_t number, std::int64_t done, std::int64_t total, std::int64_t perSecond);
    // Ends those that are under way or wait, of one folder and to one member where these aren't empty. What was given
    // stays noted. Gives how many there were.
    int CancelResends(const std::string& folderId, const std::string& member);
    void FinishResend(std::int64_t number);
    std::int64_t CountGiven(std::int64_t resend);
    // Whether a package for its member holds the item already.
    bool IsGiven(std::int64_t resend, const std::string& item);
    // Whether any other member of the folder has the item, or had: one for whom no request is open that will give it.
    bool OthersHave(const ResendRecord& resend, const std::string& item);
    // Deletions in a folder that `member` made.
    std::vector<std::string> DeletedBy(const std::string& folderId, const std::string& member);

    // Items that couldn't be sent, until a package holds them.
    void PutUnsent(const UnsentItem& item);
    std::vector<UnsentItem> Unsent();
    void ForgetUnsent(const std::string& id);

private:
    class Durable;

    std::mutex mutex_;
    Database database_;
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_RECORDS_H_
