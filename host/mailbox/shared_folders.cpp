#include "host/mailbox/shared_folders.h"

#include <algorithm>
#include <limits>
#include <set>

#include "host/base/errors.h"
#include "host/base/output.h"
#include "host/exchange/error.h"
#include "host/store/properties.h"

namespace quorvane::host {

namespace {

using exchange::DeviceId;
using exchange::FolderMembers;
using exchange::FolderNote;
using exchange::Membership;
using exchange::MembershipChange;
using exchange::MembershipEntry;
using exchange::SigningKey;
using State = KnownFolder::State;

constexpr std::size_t kFewestDigits = 4;

constexpr char kSelectFolder[] =
    "SELECT founding, folder_id, state, name, inviter, target, since, lies_in, follows FROM folder ";

bool IsFolderPath(const std::string& name)
{
    return Printable(name) == name && name.find_first_not_of('/') != std::string::npos;
}

// A path that is too long for a note is told from its end.
std::string PathToTell(const std::string& path)
{
    if (path.size() <= exchange::kLongestFolderPath)
        return path;
    const std::size_t slash = path.find('/', path.size() - exchange::kLongestFolderPath);
    return slash == std::string::npos || slash + 1 == path.size() ? "a folder" : path.substr(slash + 1);
}

std::string NameOfMailbox(Database& database)
{
    Statement select(database, "SELECT name FROM mailbox");
    return select.Step() ? select.Text(0) : std::string();
}

}  // namespace

SharedFolders::SharedFolders(const std::string& path, const exchange::DeviceKeys& keys)
    : database_(path, Database::Mode::kOpen),
      keys_(keys),
      ownName_(NameOfMailbox(database_)),
      log_(database_, keys),
      devices_(database_, keys, ownName_),
      former_(database_)
{}

std::vector<KnownFolder> SharedFolders::Select(const char* where, const std::string& key)
{
    Statement select(database_, (std::string(kSelectFolder) + where).c_str());
    select.Bind(1, key);
    std::vector<KnownFolder> folders;
    while (select.Step())
        folders.push_back({select.Text(0), select.Text(1), static_cast<State>(select.Number(2)),
                           select.Text(3), select.Text(4), select.Text(5),
                           static_cast<std::uint64_t>(select.Number(6)), select.Text(7),
                           select.Number(8) != 0});
    return folders;
}

std::optional<KnownFolder> SharedFolders::FindHere(const std::string& folderId)
{
    const auto found = Select("WHERE folder_id = ?1 AND state = 1", folderId);
    return found.empty() ? std::nullopt : std::optional(found.front());
}

KnownFolder SharedFolders::Here(const std::string& folderId)
{
    const auto found = FindHere(folderId);
    if (!found)
        Fail("find out who shares", folderId, "it isn't shared here");
    return *found;
}

std::optional<KnownFolder> SharedFolders::FindByFounding(const std::string& founding)
{
    const auto found = Select("WHERE founding = ?1", founding);
    return found.empty() ? std::nullopt : std::optional(found.front());
}

std::vector<KnownFolder> SharedFolders::All()
{
    return Select("WHERE ?1 = '' ORDER BY since, founding", {});
}

std::vector<KnownFolder> SharedFolders::Invitations()
{
    return OutermostFirst(Select("WHERE state = 0 AND ?1 = '' ORDER BY since, founding", {}));
}

void SharedFolders::Found(const Share& share)
{
    Work work(*this);
    Begin(share);
    work.Commit();
}

// Within a transaction.
KnownFolder SharedFolders::Begin(const Share& share)
{
    MembershipEntry entry;
    entry.change = MembershipChange::kFound;
    entry.folder = share.folderId;
    entry.member = keys_.Signing();
    entry.name = ownName_;
    const std::string bytes = WriteMembershipEntry(keys_, entry);
    const std::string founding = MembershipLog::FoundingOf(bytes);
    Statement(database_,
              "INSERT OR IGNORE INTO share (folder_id, entry_id, store_id, name) VALUES (?, ?, ?, ?)")
        .Bind(1, share.folderId)
        .Bind(2, share.entryId)
        .Bind(3, share.storeId)
        .Bind(4, share.name)
        .Run();
    KnownFolder folder{founding, share.folderId, State::kHere, share.name, TextOf(keys_.Id()),
                       {},       FileTimeNow()};
    PutFolder(folder);
    log_.Begin(founding, bytes);
    NoteJoined(founding, share);
    return folder;
}

void SharedFolders::NotePaths(const std::vector<FolderInfo>& folders)
{
    Work work(*this);
    Statement share(database_, "UPDATE share SET name = ?1 WHERE entry_id = ?2 AND name <> ?1");
    Statement former(database_, "UPDATE former SET name = ?1 WHERE entry_id = ?2 AND name <> ?1");
    for (const FolderInfo& folder : folders) {
        share.Bind(1, folder.path).Bind(2, folder.entryId).Run();
        former.Bind(1, folder.path).Bind(2, folder.entryId).Run();
    }
    Statement(database_,
              "UPDATE folder SET name = (SELECT name FROM share WHERE share.folder_id = folder.folder_id) "
              "WHERE state = 1 AND name <> (SELECT name FROM share WHERE share.folder_id = folder.folder_id)")
        .Run();
    work.Commit();
}

void SharedFolders::PutFolder(const KnownFolder& folder)
{
    Statement(
        database_,
        "INSERT INTO folder (founding, folder_id, state, name, inviter, since) VALUES (?1, ?2, ?3, ?4, ?5, "
        "?6) ON CONFLICT (founding) DO UPDATE SET state = ?3, name = ?4, inviter = ?5, since = ?6, target = "
        "'', follows = 0")
        .Bind(1, folder.founding)
        .Bind(2, folder.folderId)
        .Bind(3, std::int64_t{static_cast<int>(folder.state)})
        .Bind(4, folder.name)
        .Bind(5, folder.inviter)
        .Bind(6, static_cast<std::int64_t>(folder.since))
        .Run();
}

// What is known of its items is looked through before it is watched; where the folder is the one of former
// times, members are owed all of it, since nobody knows what each of them has.
void SharedFolders::NoteJoined(const std::string& founding, const Share& share)
{
    Statement(database_,
              "UPDATE folder SET fresh = 1, owes_all = EXISTS (SELECT 1 FROM former WHERE folder_id = ?2 AND "
              "entry_id = ?3) WHERE founding = ?1")
        .Bind(1, founding)
        .Bind(2, share.folderId)
        .Bind(3, share.entryId)
        .Run();
    former_.Forget(share);
}

void SharedFolders::Invite(const std::vector<std::string>& folderIds, const std::string& name)
{
    Work work(*this);
    std::vector<KnownFolder> folders;
    Statement wish(database_, "INSERT OR IGNORE INTO wish (folder_id, name) VALUES (?, ?)");
    for (const std::string& folderId : folderIds) {
        folders.push_back(Here(folderId));
        wish.Bind(1, folderId).Bind(2, name).Run();
    }
    std::vector<std::set<std::string>> before;
    for (const KnownFolder& folder : folders)
        before.push_back(devices_.MembersOf(folder));
    SettleWishes();
    for (std::size_t place = 0; place < folders.size(); ++place)
        RefreshAfterInviting(folders[place], before[place]);
    work.Commit();
}

// Who wasn't among the members before is owed all of it.
void SharedFolders::RefreshAfterInviting(const KnownFolder& folder, const std::set<std::string>& before)
{
    Refresh(folder);
    for (const std::string& name : devices_.MembersOf(folder))
        if (!before.contains(name))
            devices_.Owe(folder.folderId, name, ResendScope::kEverything);
}

void SharedFolders::Settle()
{
    Work work(*this);
    SettleWishes();
    for (const KnownFolder& folder : Select("WHERE state = 1 AND ?1 = ''", {}))
        Refresh(folder);
    work.Commit();
}

// The user's word alone says whose a device is.
std::vector<SigningKey> SharedFolders::PinnedKeysOf(const std::string& member)
{
    Statement select(database_,
                     "SELECT id, card FROM device WHERE member = ? AND introducer = '' AND card <> ''");
    select.Bind(1, member);
    std::vector<SigningKey> keys;
    while (select.Step()) {
        const auto id = exchange::ParseDeviceId(select.Text(0));
        const Bytes card = FromHex(select.Text(1));
        if (id)
            keys.push_back(exchange::ReadCard(std::string(card.begin(), card.end()), *id).signing);
    }
    return keys;
}

void SharedFolders::SettleWishes()
{
    std::vector<std::pair<std::string, std::string>> wishes;
    Statement select(
        database_,
        "SELECT wish.folder_id, wish.name FROM wish JOIN folder USING (folder_id) WHERE state = 1");
    while (select.Step())
        wishes.emplace_back(select.Text(0), select.Text(1));
    for (const auto& [folderId, name] : wishes) {
        const KnownFolder folder = Here(folderId);
        const std::vector<SigningKey> keys = PinnedKeysOf(name);
        for (const SigningKey& key : keys)
            LetIn(folder, key, name);
        if (!keys.empty())
            Statement(database_, "DELETE FROM wish WHERE folder_id = ? AND name = ?")
                .Bind(1, folderId)
                .Bind(2, name)
                .Run();
    }
}

void SharedFolders::LetIn(const KnownFolder& folder, const SigningKey& key, const std::string& name)
{
    if (!IsDeviceOfMember(log_.Load(folder).Members(), key)) {
        MembershipEntry entry;
        entry.change = MembershipChange::kAdd;
        entry.member = key;
        entry.name = name;
        log_.Sign(folder, std::move(entry));
        devices_.RefreshDevices(folder, log_.Load(folder).Members());
        devices_.TellThoseWhoHave(folder);
    }
    devices_.SetDue(folder, exchange::IdOf(key));
}

// Whose link says so already, or said so until the device was taken out, isn't linked by itself.
bool SharedFolders::Link(const KnownFolder& folder, const exchange::Card& device, bool evenAgain)
{
    const auto agreement = AgreementIn(device, keys_.Signing());
    const auto own = log_.OwnMembers(log_.Load(folder).Members());
    const auto changes = log_.Load(folder).Changes();
    const bool wasIn = std::any_of(changes.begin(), changes.end(), [&](const MembershipEntry& entry) {
        return entry.device == device.signing;
    });
    if (!agreement || own.empty() || (wasIn && !evenAgain))
        return false;
    MembershipEntry entry;
    entry.change = MembershipChange::kLink;
    entry.member = own.front();
    entry.device = device.signing;
    entry.agreement = *agreement;
    log_.Sign(folder, std::move(entry));
    devices_.RefreshDevices(folder, log_.Load(folder).Members());
    devices_.TellThoseWhoHave(folder);
    devices_.SetDue(folder, device.Id());
    return true;
}

std::size_t SharedFolders::LinkOwnDevices(const DeviceId& named)
{
    std::vector<std::pair<std::string, exchange::Card>> missing;
    Statement select(
        database_,
        "SELECT folder_id, device.id, card FROM folder, device WHERE state = 1 AND member = ? AND "
        "introducer = '' AND card <> '' AND NOT EXISTS (SELECT 1 FROM folder_device WHERE "
        "folder_device.founding = folder.founding AND device = device.id AND is_in = 1)");
    select.Bind(1, ownName_);
    while (select.Step()) {
        const auto id = exchange::ParseDeviceId(select.Text(1));
        const Bytes card = FromHex(select.Text(2));
        if (id)
            missing.emplace_back(select.Text(0),
                                 exchange::ReadCard(std::string(card.begin(), card.end()), *id));
    }
    select.Reset();
    if (missing.empty())
        return 0;
    std::size_t count = 0;
    Work work(*this);
    for (const auto& [folderId, card] : missing) {
        const KnownFolder folder = Here(folderId);
        if (!Link(folder, card, card.Id() == named))
            continue;
        Refresh(folder);
        ++count;
    }
    work.Commit();
    return count;
}

SharedFolders::Unlinked SharedFolders::UnlinkDevice(const DeviceId& device)
{
    Unlinked done;
    Work work(*this);
    for (const KnownFolder& folder : Select("WHERE state = 1 AND ?1 = ''", {})) {
        const FolderMembers before = log_.Load(folder).Members();
        bool wasIn = false;
        for (const SigningKey& own : log_.OwnMembers(before))
            for (const SigningKey& key : before.at(own).devices)
                if (exchange::IdOf(key) == device) {
                    log_.SignUnlinking(folder, own, key);
                    wasIn = true;
                }
        Refresh(folder);
        if (wasIn)
            devices_.TellThoseWhoHave(folder);
        if (IsDeviceOfFolder(folder.folderId, device))
            done.stillIn.push_back(folder.name);
        else if (wasIn)
            done.folders.push_back(folder.name);
    }
    work.Commit();
    return done;
}

// Any device of the founder's may do what he may.
bool SharedFolders::IsFounder(const std::string& folderId)
{
    const Membership& membership = log_.Load(Here(folderId));
    const auto own = log_.OwnMembers(membership.Members());
    return std::find(own.begin(), own.end(), membership.Changes().front().member) != own.end();
}

void SharedFolders::ShareFlags(const std::string& folderId)
{
    const KnownFolder folder = Here(folderId);
    if (!IsFounder(folderId))
        Fail("share the flags of", folder.name,
             "only '" + log_.Load(folder).Changes().front().name + "', who founded it, can");
    Work work(*this);
    if (log_.Load(folder).FlagEntries().empty())
        SignFlags(folder);
    Refresh(folder);
    work.Commit();
}

void SharedFolders::SignFlags(const KnownFolder& folder)
{
    MembershipEntry entry;
    entry.change = MembershipChange::kFlags;
    entry.member = log_.Load(folder).Changes().front().member;
    log_.Sign(folder, std::move(entry));
}

std::size_t SharedFolders::Remove(const std::string& folderId, const std::string& member)
{
    const KnownFolder folder = Here(folderId);
    if (member == ownName_)
        Fail("take '" + member + "' out of", folder.name,
             "that is this mailbox's own member; 'quorvane members unlink' takes one of its devices out");
    if (!IsFounder(folderId))
        Fail("take '" + member + "' out of", folder.name,
             "only '" + log_.Load(folder).Changes().front().name + "', who founded it, can");
    Work work(*this);
    Statement(database_, "DELETE FROM wish WHERE folder_id = ? AND name = ?")
        .Bind(1, folderId)
        .Bind(2, member)
        .Run();
    const std::vector<std::string> devices = devices_.DevicesOf(folder, member);
    const FolderMembers members = log_.Load(folder).Members();
    for (const auto& [key, one] : members)
        if (std::any_of(one.devices.begin(), one.devices.end(), [&](const SigningKey& device) {
                return std::find(devices.begin(), devices.end(), TextOf(exchange::IdOf(device))) !=
                       devices.end();
            }))
            log_.SignRemoval(folder, key);
    devices_.TellThoseWhoHave(folder);
    Refresh(folder);
    for (const std::string& device : devices)
        devices_.SetDue(folder, *exchange::ParseDeviceId(device));
    work.Commit();
    return devices.size();
}

void SharedFolders::Leave(const std::string& folderId)
{
    const KnownFolder folder = Here(folderId);
    Work work(*this);
    SignOff(folder);
    EndHere(folder, State::kLeft);
    work.Commit();
}

void SharedFolders::SignOff(const KnownFolder& folder)
{
    const FolderMembers members = log_.Load(folder).Members();
    for (const SigningKey& own : log_.OwnMembers(members))
        if (members.at(own).devices.size() == 1)
            log_.SignRemoval(folder, own);
        else
            log_.SignUnlinking(folder, own, keys_.Signing());
    devices_.TellAll(folder);
}

void SharedFolders::Dissolve(const std::string& folderId)
{
    const KnownFolder folder = Here(folderId);
    if (!IsFounder(folderId))
        Fail("end the sharing of", folder.name,
             "only who founded it can; 'quorvane leave' takes this mailbox out");
    Work work(*this);
    devices_.TellAll(folder);
    const FolderMembers members = log_.Load(folder).Members();
    for (const auto& [key, member] : members)
        if (!member.devices.contains(keys_.Signing()))
            log_.SignRemoval(folder, key);
    for (const SigningKey& own : log_.OwnMembers(members))
        log_.SignRemoval(folder, own);
    EndHere(folder, State::kLeft);
    work.Commit();
}

KnownFolder SharedFolders::FindInvitation(const std::string& id)
{
    std::vector<KnownFolder> found;
    for (const KnownFolder& folder : Invitations())
        if (id.size() >= kFewestDigits && folder.founding.starts_with(id))
            found.push_back(folder);
    if (found.empty())
        Fail("find the invitation", id, "there is none ('quorvane invitations' lists them)");
    if (found.size() > 1)
        Fail("find the invitation", id, "several begin with that");
    return found.front();
}

void SharedFolders::Decline(const KnownFolder& invitation)
{
    Work work(*this);
    SignOff(invitation);
    SetState(invitation, State::kDeclined);
    work.Commit();
}

void SharedFolders::NoteTarget(const KnownFolder& invitation, const std::string& path)
{
    Statement(database_, "UPDATE folder SET target = ? WHERE founding = ?")
        .Bind(1, path)
        .Bind(2, invitation.founding)
        .Run();
}

void SharedFolders::Accept(const KnownFolder& invitation, const Share& share, bool follows)
{
    if (FindHere(invitation.folderId))
        Fail("accept", invitation.name, "a folder of this id is shared here already; leave that one first");
    Work work(*this);
    Statement(database_, "INSERT INTO share (folder_id, entry_id, store_id, name) VALUES (?, ?, ?, ?)")
        .Bind(1, share.folderId)
        .Bind(2, share.entryId)
        .Bind(3, share.storeId)
        .Bind(4, share.name)
        .Run();
    Statement(
        database_,
        "UPDATE folder SET state = 1, asked = inviter, asked_in = 0, name = ?, target = '', follows = ? "
        "WHERE founding = ?")
        .Bind(1, share.name)
        .Bind(2, std::int64_t{follows})
        .Bind(3, invitation.founding)
        .Run();
    NoteJoined(invitation.founding, share);
    devices_.TellAllAnew(invitation);
    Refresh(Here(invitation.folderId));
    work.Commit();
}

bool SharedFolders::IsFresh(const std::string& folderId)
{
    Statement select(database_, "SELECT fresh FROM folder WHERE folder_id = ? AND state = 1");
    return select.Bind(1, folderId).Step() && select.Number(0) != 0;
}

std::uint64_t SharedFolders::SharedSince(const std::string& folderId)
{
    const std::optional<KnownFolder> folder = FindHere(folderId);
    return folder ? folder->since : std::numeric_limits<std::uint64_t>::max();
}

void SharedFolders::NoteLookedThrough(const std::string& folderId)
{
    Statement(database_, "UPDATE folder SET fresh = 0 WHERE folder_id = ? AND state = 1")
        .Bind(1, folderId)
        .Run();
}

void SharedFolders::SetState(const KnownFolder& folder, State state)
{
    Statement(
        database_,
        "UPDATE folder SET state = ?, since = ?, target = '', asked = '', follows = 0 WHERE founding = ?")
        .Bind(1, std::int64_t{static_cast<int>(state)})
        .Bind(2, static_cast<std::int64_t>(FileTimeNow()))
        .Bind(3, folder.founding)
        .Run();
}

// What is known of its items stays, for the day when the same folder is shared again.
void SharedFolders::EndHere(const KnownFolder& folder, State state)
{
    former_.Keep(folder.folderId);
    for (const char* sql :
         {"DELETE FROM given WHERE resend IN (SELECT number FROM resend WHERE folder_id = ?)",
          "DELETE FROM resend WHERE folder_id = ?", "DELETE FROM member WHERE folder_id = ?",
          "DELETE FROM wish WHERE folder_id = ?", "DELETE FROM unsent WHERE folder_id = ?",
          "DELETE FROM share WHERE folder_id = ?"})
        Statement(database_, sql).Bind(1, folder.folderId).Run();
    SetState(folder, state);
}

void SharedFolders::Refresh(const KnownFolder& folder, const std::string& teller)
{
    devices_.Refresh(folder, log_.Load(folder).Members(), teller);
    RefreshFlags(folder);
}

// Who comes to know that members share flags tells the others that he does: nobody is sent any before.
void SharedFolders::RefreshFlags(const KnownFolder& folder)
{
    const bool hasFlags = !log_.Load(folder).FlagEntries().empty();
    Statement(database_, "UPDATE share SET flags = ?1 WHERE folder_id = ?2 AND flags <> ?1")
        .Bind(1, std::int64_t{hasFlags})
        .Bind(2, folder.folderId)
        .Run();
    if (hasFlags && database_.Changes() > 0)
        devices_.TellThoseWhoHave(folder);
}

void SharedFolders::Take(const Peer& from, const std::string& bytes)
{
    const FolderNote note = exchange::ReadFolderNote(bytes);
    if (!IsFolderPath(note.name))
        exchange::Refuse("'" + from.member + "' tells of a folder whose name is none");
    const std::string founding = MembershipLog::FoundingOf(note.entries.front());
    Work work(*this);
    const auto known = FindByFounding(founding);
    const KnownFolder folder = known ? *known : TakeInvitation(from, note, founding);
    if (folder.folderId != note.folder)
        exchange::Refuse("'" + from.member + "' tells of the folder " + note.folder + " what is another's");
    TakeEntries(folder, from, note);
    NoteOuter(folder);
    if (!known)
        CheckInvitationsOf(from);
    const FolderMembers members = log_.Load(folder).Members();
    devices_.RefreshDevices(folder, members);
    HearOf(folder, from, note);
    JudgeOwnPart(folder, from, note, members);
    work.Commit();
}

// A folder that nothing is known of.
KnownFolder SharedFolders::TakeInvitation(const Peer& from, const FolderNote& note,
                                          const std::string& founding)
{
    const Membership alone(note.folder, note.entries.front());
    const KnownFolder folder{founding,        note.folder, State::kInvited, note.name,
                             TextOf(from.id), {},          FileTimeNow()};
    PutFolder(folder);
    log_.Begin(founding, note.entries.front());
    return folder;
}

// Who was no member before, and isn't one by what he brings, tells nothing: neither can he fill the records.
void SharedFolders::TakeEntries(const KnownFolder& folder, const Peer& from, const FolderNote& note)
{
    const bool wasIn = IsDeviceOfMember(log_.Load(folder).Members(), from.card->signing);
    for (const std::string& entry : note.entries)
        log_.Keep(folder, entry);
    if (!wasIn && !IsDeviceOfMember(log_.Load(folder).Members(), from.card->signing))
        exchange::Refuse("'" + from.member + "' tells of the folder '" + note.name +
                         "' and isn't its member");
}

void SharedFolders::HearOf(const KnownFolder& folder, const Peer& from, const FolderNote& note)
{
    const std::string device = TextOf(from.id);
    Statement select(database_,
                     "SELECT has, told FROM folder_device WHERE founding = ? AND device = ? AND is_in = 1");
    if (!select.Bind(1, folder.founding).Bind(2, device).Step())
        return;
    const bool isNews = note.hasFolder && select.Number(0) == 0, wasTold = select.Number(1) != 0;
    select.Reset();
    Statement(database_, "UPDATE folder_device SET has = ? WHERE founding = ? AND device = ?")
        .Bind(1, std::int64_t{note.hasFolder})
        .Bind(2, folder.founding)
        .Bind(3, device)
        .Run();
    const std::vector<std::string> flags = log_.Load(folder).FlagEntries();
    if (std::any_of(flags.begin(), flags.end(), [&](const std::string& entry) {
            return std::find(note.entries.begin(), note.entries.end(), entry) != note.entries.end();
        }))
        devices_.NoteFlags(folder, from.id);
    if (folder.state != State::kHere || !note.hasFolder)
        return;
    if (note.asked == keys_.Id())
        devices_.Owe(folder.folderId, from.member, ResendScope::kAgain);
    if (isNews)
        devices_.OweNewcomer(folder, from.member);
    const std::set<std::string> theirs(note.entries.begin(), note.entries.end());
    const std::vector<std::string>& ours = log_.Load(folder).Entries();
    const bool lacks = std::any_of(ours.begin(), ours.end(),
                                   [&](const std::string& entry) { return !theirs.contains(entry); });
    if (!wasTold || lacks)
        devices_.SetDue(folder, from.id);
}

// What the changes make of this mailbox's own part.
void SharedFolders::JudgeOwnPart(const KnownFolder& folder, const Peer& from, const FolderNote& note,
                                 const FolderMembers& members)
{
    const bool isIn = !log_.OwnMembers(members).empty();
    if (folder.state == State::kHere && isIn) {
        Refresh(folder, from.member);
        return;
    }
    if (folder.state == State::kHere) {
        EndHere(folder, log_.HasSignedOff(folder) ? State::kLeft : State::kRemoved);
        return;
    }
    if (folder.state == State::kInvited && !isIn) {
        // One that was taken back; of one that never was, nothing is kept.
        if (!log_.HasBeenIn(folder))
            exchange::Refuse("'" + from.member + "' tells of the folder '" + note.name +
                             "', whose member this mailbox isn't");
        SetState(folder, State::kRemoved);
    }
    if (folder.state != State::kInvited && isIn)
        PutFolder({folder.founding,
                   folder.folderId,
                   State::kInvited,
                   note.name,
                   TextOf(from.id),
                   {},
                   FileTimeNow()});
}

bool SharedFolders::HasDueNotes()
{
    Statement select(
        database_,
        "SELECT 1 FROM folder_device JOIN device ON device.id = folder_device.device JOIN folder USING "
        "(founding) WHERE due = 1 AND card <> '' AND silent = 0 AND state BETWEEN 1 AND 3 LIMIT 1");
    return select.Step();
}

std::vector<DueNote> SharedFolders::DueNotes()
{
    std::vector<DueNote> notes;
    if (!HasDueNotes())
        return notes;
    for (const KnownFolder& folder :
         OutermostFirst(Select("WHERE state BETWEEN 1 AND 3 AND ?1 = '' ORDER BY since, founding", {}))) {
        std::vector<std::string> devices = devices_.Due(folder);
        if (devices.empty())
            continue;
        FolderNote note{folder.state == State::kHere,
                        {},
                        folder.folderId,
                        PathToTell(folder.name),
                        log_.Load(folder).Entries()};
        Statement asked(database_, "SELECT asked FROM folder WHERE founding = ?");
        if (asked.Bind(1, folder.founding).Step())
            note.asked = exchange::ParseDeviceId(asked.Text(0)).value_or(DeviceId{});
        notes.push_back({folder.founding, WriteFolderNote(note), std::move(devices)});
    }
    return notes;
}

void SharedFolders::NoteTold(const DueNote& note, const std::string& path)
{
    Work work(*this);
    const auto sequence = static_cast<std::int64_t>(NumberPackage(database_, note.devices));
    Statement(database_,
              "INSERT INTO outgoing (path, recipients, planned, sequence, kind) VALUES (?, '', 1, ?, ?)")
        .Bind(1, path)
        .Bind(2, sequence)
        .Bind(3, std::int64_t{static_cast<int>(exchange::PackageKind::kMembership)})
        .Run();
    Statement tell(database_, "UPDATE folder_device SET due = 0, told = 1 WHERE founding = ? AND device = ?");
    Statement ask(database_, "UPDATE folder SET asked_in = ? WHERE founding = ? AND asked = ?");
    for (const std::string& device : note.devices) {
        tell.Bind(1, note.founding).Bind(2, device).Run();
        ask.Bind(1, sequence).Bind(2, note.founding).Bind(3, device).Run();
    }
    work.Commit();
}

bool SharedFolders::IsDeviceOfFolder(const std::string& folderId, const DeviceId& device)
{
    Statement select(
        database_,
        "SELECT 1 FROM folder_device JOIN folder USING (founding) WHERE folder_id = ? AND device = ? AND "
        "state = 1 AND is_in = 1");
    return select.Bind(1, folderId).Bind(2, TextOf(device)).Step();
}

bool SharedFolders::IsKnown(const std::string& folderId)
{
    Statement select(database_, "SELECT 1 FROM folder WHERE folder_id = ?");
    return select.Bind(1, folderId).Step();
}

}  // namespace quorvane::host
