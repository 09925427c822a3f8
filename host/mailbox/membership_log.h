// host/mailbox/membership_log.h: the signed changes of folders' memberships (exchange/membership.h), as
// host.db holds them.
#ifndef QUORVANE_HOST_MAILBOX_MEMBERSHIP_LOG_H_
#define QUORVANE_HOST_MAILBOX_MEMBERSHIP_LOG_H_

#include <map>
#include <string>
#include <vector>

#include "host/base/sqlite.h"
#include "host/exchange/membership.h"
#include "host/mailbox/known_folder.h"

namespace quorvane::host {

// For the thread of its connection, in whose transaction it takes part. Methods throw a HostError when the
// database fails, or has lost or damaged a folder's changes.
class MembershipLog {
public:
    // database: host.db. keys: this device's. Both outlive the object.
    MembershipLog(Database& database, const exchange::DeviceKeys& keys) : database_(database), keys_(keys) {}

    // What a folder that was founded by this change is known by.
    static std::string FoundingOf(const std::string& entry);
    static std::string TextOf(const exchange::EntryId& id);
    // Notes the change that founds a folder. Of one that is noted already nothing changes.
    void Begin(const std::string& founding, const std::string& entry);

    // A folder's changes as the records hold them; another process may have added some. Good until the next
    // call.
    const exchange::Membership& Load(const KnownFolder& folder) { return LoadOwn(folder); }
    // Adds a change that isn't known. Throws an exchange::Error when it can't be one of this folder's.
    void Keep(const KnownFolder& folder, const std::string& entry);
    // Signs a change and adds it. entry: its change, and whom it is about.
    void Sign(const KnownFolder& folder, exchange::MembershipEntry entry);
    void SignRemoval(const KnownFolder& folder, const exchange::SigningKey& member);
    void SignUnlinking(const KnownFolder& folder, const exchange::SigningKey& member,
                       const exchange::SigningKey& device);

    // The members that this device belongs to: one, but where it was added and linked.
    std::vector<exchange::SigningKey> OwnMembers(const exchange::FolderMembers& members) const;
    // Whether this device took itself out.
    bool HasSignedOff(const KnownFolder& folder);
    // Whether this device was let in once.
    bool HasBeenIn(const KnownFolder& folder);

    // A transaction was undone: what was read within it is read again.
    void Reread() { memberships_.clear(); }

private:
    exchange::Membership& LoadOwn(const KnownFolder& folder);

    Database& database_;
    const exchange::DeviceKeys& keys_;
    std::map<std::string, exchange::Membership> memberships_;  // by founding, as far as they were read
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_MAILBOX_MEMBERSHIP_LOG_H_
