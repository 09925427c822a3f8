// host/mailbox/folder_devices.h: what follows from who shares a folder: whose devices are in it, what they
// are to be told and what their members are owed; rows of host.db (docs/mailbox.md).
#ifndef QUORVANE_HOST_MAILBOX_FOLDER_DEVICES_H_
#define QUORVANE_HOST_MAILBOX_FOLDER_DEVICES_H_

#include <set>
#include <string>
#include <utility>
#include <vector>

#include "host/base/sqlite.h"
#include "host/exchange/membership.h"
#include "host/mailbox/known_folder.h"
#include "host/mailbox/records.h"

namespace quorvane::host {

// For the thread of its connection, in whose transaction it takes part. Methods throw a HostError when the
// database fails.
class FolderDevices {
public:
    // database: host.db. keys: this device's. Both outlive the object. ownName: the mailbox's.
    FolderDevices(Database& database, const exchange::DeviceKeys& keys, std::string ownName)
        : database_(database), keys_(keys), ownName_(std::move(ownName))
    {}

    // Brings devices, the names that they have here, and the rows of `member` up to a folder's members. Who
    // has it and wasn't known to is owed it.
    //
    // teller: the member who told of them; empty: who told of the folder.
    void Refresh(const KnownFolder& folder, const exchange::FolderMembers& members,
                 const std::string& teller);
    // The devices alone.
    void RefreshDevices(const KnownFolder& folder, const exchange::FolderMembers& members);
    // Those of a member, by the name that he has here.
    std::vector<std::string> DevicesOf(const KnownFolder& folder, const std::string& member);

    // Its members, by the names that they have here, and those who are awaited.
    std::set<std::string> MembersOf(const KnownFolder& folder);
    // Whether a device is known, and wasn't dropped.
    bool IsDeviceKnown(const std::string& device);

    // Notes that devices are to be told of the folder: one; those who have it; all; all, as if they knew
    // nothing of it.
    void SetDue(const KnownFolder& folder, const exchange::DeviceId& device);
    void TellThoseWhoHave(const KnownFolder& folder);
    void TellAll(const KnownFolder& folder);
    void TellAllAnew(const KnownFolder& folder);
    // A device has told that it knows of members sharing the items' flags: it is to be told of them.
    void NoteFlags(const KnownFolder& folder, const exchange::DeviceId& device);
    // Those to be told whose cards are known, by their IDs.
    std::vector<std::string> Due(const KnownFolder& folder);

    // Notes what a member is to be sent of a folder that is shared here. Something that is owed already isn't
    // owed twice, and what the user has cancelled stays so.
    void Owe(const std::string& folderId, const std::string& member, ResendScope scope);
    // The same for one who has come to have the folder: what is this mailbox's own, or where it joined with
    // what it held in former times, everything.
    void OweNewcomer(const KnownFolder& folder, const std::string& member);

private:
    void Introduce(const exchange::FolderMembers& members, const std::string& teller);
    std::string MemberOfDevice(const std::string& device);
    std::string NameFor(const exchange::FolderMember& member, const std::string& device);
    void RefreshMembers(const KnownFolder& folder);
    void ForgetMember(const std::string& folderId, const std::string& name);
    void AskAnother(const KnownFolder& folder);
    bool OwesAll(const KnownFolder& folder);

    Database& database_;
    const exchange::DeviceKeys& keys_;
    const std::string ownName_;
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_MAILBOX_FOLDER_DEVICES_H_
