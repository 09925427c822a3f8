// host/mailbox/shared_folders.h: which folders are shared with whom, and which ones others would share with
// this mailbox; in host.db (docs/mailbox.md).
//
// A folder is known by the change of its membership that founded it: whoever gives another folder the same id
// comes to nothing by it. Its members are those of the signed changes (exchange/membership.h). From them
// follow the rows of `member`, who is to be sent what, and whose packages may touch the folder.
//
// What another member is to be told stands in the records until a package that tells it has a number
// (DueNotes), so that a kill loses none of it.
#ifndef QUORVANE_HOST_MAILBOX_SHARED_FOLDERS_H_
#define QUORVANE_HOST_MAILBOX_SHARED_FOLDERS_H_

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "host/exchange/folder_note.h"
#include "host/mailbox/folder_devices.h"
#include "host/mailbox/former_shares.h"
#include "host/mailbox/known_folder.h"
#include "host/mailbox/membership_log.h"
#include "host/mailbox/peers.h"
#include "host/mailbox/records.h"
#include "host/store/folders.h"

namespace quorvane::host {

// What members are to be told of a folder.
struct DueNote {
    std::string founding;
    std::string bytes;
    std::vector<std::string> devices;
};

// For one thread. Methods throw a HostError when the database fails, or the user asks for what can't be; what
// they note is on the disk when they return.
class SharedFolders {
public:
    // path: host.db. keys: this device's; they outlive the object.
    SharedFolders(const std::string& path, const exchange::DeviceKeys& keys);
    SharedFolders(const SharedFolders&) = delete;
    SharedFolders& operator=(const SharedFolders&) = delete;

    // Shares a folder that isn't shared: this mailbox founds its membership.
    void Found(const Share& share);
    // Lets somebody in whom the user named: with the devices that the user has pinned to him, now or as soon
    // as there are any. Several folders: all or none.
    void Invite(const std::string& folderId, const std::string& member)
    {
        Invite(std::vector{folderId}, member);
    }
    void Invite(const std::vector<std::string>& folderIds, const std::string& member);
    // Brings everything up to what is known of devices.
    void Settle();

    // Lets other devices of this member, which the user has linked and which agree to it, into folders that
    // are shared here and that they weren't in before. named: this one also into those that it was in; zeros
    // for none. Gives how many folders it was.
    std::size_t LinkOwnDevices(const exchange::DeviceId& named = {});
    // Takes another device of this member out of all folders.
    struct Unlinked {
        std::vector<std::string> folders;  // it was taken out of, by their names
        std::vector<std::string> stillIn;  // where somebody has added it as a member of its own
    };
    Unlinked UnlinkDevice(const exchange::DeviceId& device);

    // From here on members share what they make of items (exchange/item_flags.h); the founder alone may
    // decide it, and it stays.
    void ShareFlags(const std::string& folderId);

    // Folders that lie in others (nested_folders.cpp). A folder that is shared may be a tree: then a run
    // shares what comes to lie in it with its members (sharing/folder_tree.h). Its founder signs that one of
    // his folders lies in another one of his; who is invited to it learns by that where it belongs.
    void ShareAsTree(const std::string& folderId);
    // A folder of this mailbox, and the shared one that it lies in, by its id.
    struct Nested {
        Share share;
        std::string outer;
    };
    // Shares folders with the members of those that they lie in, as their flags are: those that aren't shared
    // yet, unless an acceptance is just making them, and those that this mailbox's member has founded. Who
    // was a member once and isn't any more isn't let in again. Outer ones come before inner ones; all or
    // none. Gives those that weren't shared.
    std::vector<Share> ShareNested(const std::vector<Nested>& folders);
    // The folder that another one lies in, by the word of both founders, who are one member of the outer one:
    // here, or invited to. Empty where there is none, whoever says otherwise.
    std::optional<KnownFolder> OuterOf(const KnownFolder& folder);
    // The invitation that nobody has decided on and that holds this one, through others of them; itself where
    // there is none.
    KnownFolder OutermostInvitation(const KnownFolder& invitation);
    // Those that were accepted with all that their founders put into them, by their foundings.
    std::set<std::string> Followed();
    // From here on what their founders put into folders that are here, by their foundings, is accepted by
    // itself.
    void Follow(const std::set<std::string>& foundings);
    // Whether this device has declined it once, or left it.
    bool HasSignedOff(const KnownFolder& folder) { return log_.HasSignedOff(folder); }
    // What the records say of a folder that is shared here.
    std::optional<KnownFolder> FindHere(const std::string& folderId);

    // Takes a member out; the founder alone may. Gives how many of his devices were members.
    std::size_t Remove(const std::string& folderId, const std::string& member);
    bool IsFounder(const std::string& folderId);
    // This mailbox takes part no more; other devices of its member do. The folder stays as it is.
    void Leave(const std::string& folderId);
    // The same, after everybody else was taken out.
    void Dissolve(const std::string& folderId);

    // Where the folders of the mailbox are by now: those that are, or were, shared here are called so.
    void NotePaths(const std::vector<FolderInfo>& folders);

    std::vector<KnownFolder> All();
    // Those that are here or invited to; outer ones come before inner ones.
    std::vector<KnownFolder> HereAndInvited();
    // Those nobody has decided on; outer ones come before inner ones.
    std::vector<KnownFolder> Invitations();
    // The invitation that a user means by an id or the beginning of one. Throws a HostError when it is none
    // or several.
    KnownFolder FindInvitation(const std::string& id);
    void Decline(const KnownFolder& invitation);
    // A folder is about to be made for it at this path.
    void NoteTarget(const KnownFolder& invitation, const std::string& path);
    // From here on it is `share`. A member is asked for all that it holds. follows: what its founder puts
    // into it is accepted by itself.
    void Accept(const KnownFolder& invitation, const Share& share, bool follows = false);
    // Folders that are shared no more; as long as this object.
    FormerShares& Former() noexcept { return former_; }

    // Folders that were joined since, and of which records of an earlier time are to be looked through.
    bool IsFresh(const std::string& folderId);
    void NoteLookedThrough(const std::string& folderId);

    // Takes what a device tells of a folder, from a package whose signature holds. Throws an exchange::Error
    // (kRefused) when it is no such thing, or not for this mailbox; then nothing changed.
    void Take(const Peer& from, const std::string& bytes);

    // What is to be told, to devices whose cards are known. It is told when it has a number: `path` is the
    // file that holds it.
    std::vector<DueNote> DueNotes();
    bool HasDueNotes();
    void NoteTold(const DueNote& note, const std::string& path);

    // Whether a device is a member's of a folder that is shared here.
    bool IsDeviceOfFolder(const std::string& folderId, const exchange::DeviceId& device);
    // Since when a folder is shared here, a FILETIME; of one that isn't, the end of all times.
    std::uint64_t SharedSince(const std::string& folderId);
    // Whether anything is known of a folder of this id.
    bool IsKnown(const std::string& folderId);

private:
    class Work;
    std::vector<KnownFolder> Select(const char* where, const std::string& key);
    KnownFolder Here(const std::string& folderId);
    std::optional<KnownFolder> FindByFounding(const std::string& founding);
    KnownFolder Begin(const Share& share);
    void PutFolder(const KnownFolder& folder);
    void SetState(const KnownFolder& folder, KnownFolder::State state);

    void SignOff(const KnownFolder& folder);
    void SettleWishes();
    std::vector<exchange::SigningKey> PinnedKeysOf(const std::string& member);
    void LetIn(const KnownFolder& folder, const exchange::SigningKey& key, const std::string& name);
    bool Link(const KnownFolder& folder, const exchange::Card& device, bool evenAgain);
    void Refresh(const KnownFolder& folder, const std::string& teller = {});
    void RefreshFlags(const KnownFolder& folder);
    void SignFlags(const KnownFolder& folder);
    void RefreshAfterInviting(const KnownFolder& folder, const std::set<std::string>& before);
    void NoteOuter(const KnownFolder& folder);
    std::vector<KnownFolder> OutermostFirst(std::vector<KnownFolder> folders);
    bool ShareInner(const Nested& nested);
    bool IsBeingMade(const Share& share);
    bool NestIn(const KnownFolder& outer, const KnownFolder& inner);
    bool LetInMembersOf(const KnownFolder& outer, const KnownFolder& inner);
    void NoteJoined(const std::string& founding, const Share& share);
    void EndHere(const KnownFolder& folder, KnownFolder::State state);

    // What another tells.
    KnownFolder TakeInvitation(const Peer& from, const exchange::FolderNote& note,
                               const std::string& founding);
    void CheckInvitationsOf(const Peer& from);
    void TakeEntries(const KnownFolder& folder, const Peer& from, const exchange::FolderNote& note);
    void HearOf(const KnownFolder& folder, const Peer& from, const exchange::FolderNote& note);
    void JudgeOwnPart(const KnownFolder& folder, const Peer& from, const exchange::FolderNote& note,
                      const exchange::FolderMembers& members);

    Database database_;
    const exchange::DeviceKeys& keys_;
    const std::string ownName_;
    MembershipLog log_;
    FolderDevices devices_;
    FormerShares former_;
};

// A transaction after whose failure nothing that was read within it is believed.
class SharedFolders::Work {
public:
    explicit Work(SharedFolders& folders) : folders_(folders), transaction_(folders.database_) {}
    Work(const Work&) = delete;
    Work& operator=(const Work&) = delete;
    ~Work()
    {
        if (!isDone_)
            folders_.log_.Reread();
    }
    void Commit()
    {
        transaction_.Commit();
        isDone_ = true;
    }

private:
    SharedFolders& folders_;
    Transaction transaction_;
    bool isDone_ = false;
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_MAILBOX_SHARED_FOLDERS_H_
