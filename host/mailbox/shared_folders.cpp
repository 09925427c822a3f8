#include "host/mailbox/shared_folders.h"

#include <algorithm>

#include "host/base/errors.h"
#include "host/base/output.h"
#include "host/exchange/error.h"
#include "host/exchange/member_name.h"
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

// How many undecided invitations of one device are kept, and how many kinds of refusals.
constexpr std::int64_t kMostInvitationsOfOne = 100;
constexpr std::int64_t kMostRefusals = 200;
// How many changes a new one names as those that it has seen.
constexpr std::size_t kMostNamed = 200;
constexpr std::size_t kFewestDigits = 4;

constexpr char kSelectFolder[] =
    "SELECT founding, folder_id, state, name, inviter, target, since FROM folder ";

// Devices of the members of a folder ?1, by its founding.
#define QV_MEMBERS_DEVICES "FROM folder_device JOIN device ON device.id = folder_device.device WHERE founding = ?1 "

std::string TextOfEntryId(const exchange::EntryId& id)
{
    DeviceId half;
    std::copy_n(id.begin(), half.bytes.size(), half.bytes.begin());
    const std::string first = TextOf(half);
    std::copy_n(id.begin() + half.bytes.size(), half.bytes.size(), half.bytes.begin());
    return first + TextOf(half);
}

std::string HexOfEntry(const std::string& bytes)
{
    return Hex(Bytes(bytes.begin(), bytes.end()));
}

std::string EntryInHex(const std::string& hex)
{
    const Bytes bytes = FromHex(hex);
    return {bytes.begin(), bytes.end()};
}

bool IsFolderPath(const std::string& name)
{
    return Printable(name) == name && name.find_first_not_of('/') != std::string::npos;
}

std::vector<std::string> TextsOf(Statement& select)
{
    std::vector<std::string> texts;
    while (select.Step())
        texts.push_back(select.Text(0));
    return texts;
}

}  // namespace

// A transaction after whose failure nothing that was read within it is believed.
class SharedFolders::Work {
public:
    explicit Work(SharedFolders& folders) : folders_(folders), transaction_(folders.database_) {}
    Work(const Work&) = delete;
    Work& operator=(const Work&) = delete;
    ~Work()
    {
        if (!isDone_)
            folders_.memberships_.clear();
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

SharedFolders::SharedFolders(const std::string& path, const exchange::DeviceKeys& keys)
    : database_(path, Database::Mode::kOpen), keys_(keys)
{
    Statement select(database_, "SELECT name FROM mailbox");
    if (select.Step())
        ownName_ = select.Text(0);
}

std::vector<KnownFolder> SharedFolders::Select(const char* where, const std::string& key)
{
    Statement select(database_, (std::string(kSelectFolder) + where).c_str());
    select.Bind(1, key);
    std::vector<KnownFolder> folders;
    while (select.Step())
        folders.push_back({select.Text(0), select.Text(1), static_cast<State>(select.Number(2)), select.Text(3),
                           select.Text(4), select.Text(5), static_cast<std::uint64_t>(select.Number(6))});
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
    return Select("WHERE state = 0 AND ?1 = '' ORDER BY since, founding", {});
}

// Its changes as the records hold them; another process may have added some.
Membership& SharedFolders::Load(const KnownFolder& folder)
{
    auto known = memberships_.find(folder.founding);
    Statement select(database_, "SELECT entry FROM membership WHERE founding = ? AND number >= ? ORDER BY number");
    select.Bind(1, folder.founding)
        .Bind(2, static_cast<std::int64_t>(known == memberships_.end() ? 0 : known->second.Entries().size()));
    try {
        while (select.Step()) {
            const std::string entry = EntryInHex(select.Text(0));
            if (known == memberships_.end())
                known = memberships_.emplace(folder.founding, Membership(folder.folderId, entry)).first;
            else
                known->second.Take(entry);
        }
    } catch (const exchange::Error& error) {
        Fail("read who shares", folder.name, error.what());
    }
    if (known == memberships_.end())
        Fail("read who shares", folder.name, "the records have lost it");
    return known->second;
}

// True if it wasn't known.
bool SharedFolders::Keep(const KnownFolder& folder, const std::string& entry)
{
    Membership& membership = Load(folder);
    if (membership.Take(entry) != Membership::Taken::kNew)
        return false;
    Statement(database_, "INSERT INTO membership (founding, number, entry) VALUES (?, ?, ?)")
        .Bind(1, folder.founding)
        .Bind(2, static_cast<std::int64_t>(membership.Entries().size() - 1))
        .Bind(3, HexOfEntry(entry))
        .Run();
    return true;
}

void SharedFolders::Sign(const KnownFolder& folder, MembershipEntry entry)
{
    entry.folder = folder.folderId;
    entry.seen = Load(folder).Latest();
    while (entry.seen.size() > kMostNamed)
        entry.seen.erase(std::prev(entry.seen.end()));
    try {
        Keep(folder, WriteMembershipEntry(keys_, std::move(entry)));
    } catch (const exchange::Error& error) {
        Fail("change who shares", folder.name, error.what());
    }
}

void SharedFolders::SignRemoval(const KnownFolder& folder, const SigningKey& member)
{
    MembershipEntry entry;
    entry.change = MembershipChange::kRemove;
    entry.member = member;
    Sign(folder, std::move(entry));
}

// The one that this device belongs to.
std::optional<SigningKey> SharedFolders::OwnMember(const FolderMembers& members) const
{
    for (const auto& [key, member] : members)
        if (member.devices.contains(keys_.Signing()))
            return key;
    return std::nullopt;
}

void SharedFolders::Found(const Share& share)
{
    MembershipEntry entry;
    entry.change = MembershipChange::kFound;
    entry.folder = share.folderId;
    entry.member = keys_.Signing();
    entry.name = ownName_;
    const std::string bytes = WriteMembershipEntry(keys_, entry);
    const std::string founding = TextOfEntryId(exchange::IdOfEntry(bytes));
    Work work(*this);
    Statement(database_, "INSERT OR IGNORE INTO share (folder_id, entry_id, store_id, name) VALUES (?, ?, ?, ?)")
        .Bind(1, share.folderId)
        .Bind(2, share.entryId)
        .Bind(3, share.storeId)
        .Bind(4, share.name)
        .Run();
    PutFolder({founding, share.folderId, State::kHere, share.name, TextOf(keys_.Id()), {}, FileTimeNow()});
    Statement(database_, "INSERT OR IGNORE INTO membership (founding, number, entry) VALUES (?, 0, ?)")
        .Bind(1, founding)
        .Bind(2, HexOfEntry(bytes))
        .Run();
    NoteJoined(founding, share);
    work.Commit();
}

void SharedFolders::PutFolder(const KnownFolder& folder)
{
    Statement(database_,
              "INSERT INTO folder (founding, folder_id, state, name, inviter, since) VALUES (?1, ?2, ?3, ?4, ?5, ?6) "
              "ON CONFLICT (founding) DO UPDATE SET state = ?3, name = ?4, inviter = ?5, since = ?6, target = ''")
        .Bind(1, folder.founding)
        .Bind(2, folder.folderId)
        .Bind(3, std::int64_t{static_cast<int>(folder.state)})
        .Bind(4, folder.name)
        .Bind(5, folder.inviter)
        .Bind(6, static_cast<std::int64_t>(folder.since))
        .Run();
}

// What is known of its items is looked through before it is watched; where the folder is the one of former times,
// members are owed all of it, since nobody knows what each of them has.
void SharedFolders::NoteJoined(const std::string& founding, const Share& share)
{
    Statement(database_,
              "UPDATE folder SET fresh = 1, owes_all = EXISTS (SELECT 1 FROM former WHERE folder_id = ?2 AND entry_id = "
              "?3) WHERE founding = ?1")
        .Bind(1, founding)
        .Bind(2, share.folderId)
        .Bind(3, share.entryId)
        .Run();
    Statement(database_, "DELETE FROM former WHERE folder_id = ? OR entry_id = ?")
        .Bind(1, share.folderId)
        .Bind(2, share.entryId)
        .Run();
}

bool SharedFolders::Invite(const std::string& folderId, const std::string& name)
{
    const KnownFolder folder = Here(folderId);
    Work work(*this);
    Statement select(database_, "SELECT 1 FROM member WHERE folder_id = ? AND name = ?");
    const bool isNew = !select.Bind(1, folderId).Bind(2, name).Step();
    select.Reset();
    Statement(database_, "INSERT OR IGNORE INTO wish (folder_id, name) VALUES (?, ?)")
        .Bind(1, folderId)
        .Bind(2, name)
        .Run();
    SettleWishes();
    Refresh(folder);
    if (isNew)
        Owe(folderId, name, ResendScope::kEverything);
    work.Commit();
    return isNew;
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
    Statement select(database_, "SELECT id, card FROM device WHERE member = ? AND introducer = '' AND card <> ''");
    select.Bind(1, member);
    std::vector<SigningKey> keys;
    while (select.Step()) {
        const auto id = exchange::ParseDeviceId(select.Text(0));
        if (id)
            keys.push_back(exchange::ReadCard(EntryInHex(select.Text(1)), *id).signing);
    }
    return keys;
}

void SharedFolders::SettleWishes()
{
    std::vector<std::pair<std::string, std::string>> wishes;
    Statement select(database_, "SELECT wish.folder_id, wish.name FROM wish JOIN folder USING (folder_id) WHERE state = 1");
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
    if (!IsDeviceOfMember(Load(folder).Members(), key)) {
        MembershipEntry entry;
        entry.change = MembershipChange::kAdd;
        entry.member = key;
        entry.name = name;
        Sign(folder, std::move(entry));
        RefreshDevices(folder, Load(folder).Members());
        TellAll(folder);
    }
    SetDue(folder, exchange::IdOf(key));
}

bool SharedFolders::IsFounder(const std::string& folderId)
{
    return Load(Here(folderId)).Changes().front().author == keys_.Signing();
}

std::size_t SharedFolders::Remove(const std::string& folderId, const std::string& member)
{
    const KnownFolder folder = Here(folderId);
    if (!IsFounder(folderId))
        Fail("take '" + member + "' out of", folder.name,
             "only '" + Load(folder).Changes().front().name + "', who founded it, can");
    Work work(*this);
    Statement(database_, "DELETE FROM wish WHERE folder_id = ? AND name = ?").Bind(1, folderId).Bind(2, member).Run();
    Statement select(database_, "SELECT device.id " QV_MEMBERS_DEVICES "AND is_in = 1 AND member = ?2");
    const std::vector<std::string> devices = TextsOf(select.Bind(1, folder.founding).Bind(2, member));
    const FolderMembers members = Load(folder).Members();
    for (const auto& [key, one] : members)
        if (std::any_of(one.devices.begin(), one.devices.end(), [&](const SigningKey& device) {
                return std::find(devices.begin(), devices.end(), TextOf(exchange::IdOf(device))) != devices.end();
            }))
            SignRemoval(folder, key);
    TellAll(folder);
    Refresh(folder);
    for (const std::string& device : devices)
        SetDue(folder, *exchange::ParseDeviceId(device));
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
    if (const auto own = OwnMember(Load(folder).Members()))
        SignRemoval(folder, *own);
    Statement(database_, "UPDATE folder_device SET due = 1 WHERE founding = ? AND is_in = 1")
        .Bind(1, folder.founding)
        .Run();
}

void SharedFolders::Dissolve(const std::string& folderId)
{
    const KnownFolder folder = Here(folderId);
    if (!IsFounder(folderId))
        Fail("end the sharing of", folder.name, "only who founded it can; 'quorvane leave' takes this mailbox out");
    Work work(*this);
    Statement(database_, "UPDATE folder_device SET due = 1 WHERE founding = ? AND is_in = 1")
        .Bind(1, folder.founding)
        .Run();
    const FolderMembers members = Load(folder).Members();
    const auto own = OwnMember(members);
    for (const auto& [key, member] : members)
        if (key != own)
            SignRemoval(folder, key);
    SignOff(folder);
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

void SharedFolders::Accept(const KnownFolder& invitation, const Share& share)
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
    Statement(database_, "UPDATE folder SET state = 1, asked = inviter, asked_in = 0, name = ?, target = '' WHERE founding = ?")
        .Bind(1, share.name)
        .Bind(2, invitation.founding)
        .Run();
    NoteJoined(invitation.founding, share);
    Statement(database_, "UPDATE folder_device SET due = 1, told = 0 WHERE founding = ? AND is_in = 1")
        .Bind(1, invitation.founding)
        .Run();
    Refresh(Here(invitation.folderId));
    work.Commit();
}

std::vector<FormerShare> SharedFolders::FormerShares()
{
    Statement select(database_, "SELECT folder_id, entry_id, name FROM former ORDER BY name");
    std::vector<FormerShare> shares;
    while (select.Step())
        shares.push_back({select.Text(0), select.Text(1), select.Text(2)});
    return shares;
}

std::optional<FormerShare> SharedFolders::FindFormer(const std::string& entryId)
{
    for (FormerShare& share : FormerShares())
        if (share.entryId == entryId)
            return std::move(share);
    return std::nullopt;
}

bool SharedFolders::IsFresh(const std::string& folderId)
{
    Statement select(database_, "SELECT fresh FROM folder WHERE folder_id = ? AND state = 1");
    return select.Bind(1, folderId).Step() && select.Number(0) != 0;
}

void SharedFolders::NoteLookedThrough(const std::string& folderId)
{
    Statement(database_, "UPDATE folder SET fresh = 0 WHERE folder_id = ? AND state = 1").Bind(1, folderId).Run();
}

void SharedFolders::SetState(const KnownFolder& folder, State state)
{
    Statement(database_, "UPDATE folder SET state = ?, since = ?, target = '', asked = '' WHERE founding = ?")
        .Bind(1, std::int64_t{static_cast<int>(state)})
        .Bind(2, static_cast<std::int64_t>(FileTimeNow()))
        .Bind(3, folder.founding)
        .Run();
}

// What is known of its items stays, for the day when the same folder is shared again.
void SharedFolders::EndHere(const KnownFolder& folder, State state)
{
    for (const char* sql :
         {"INSERT OR REPLACE INTO former (folder_id, entry_id, name) SELECT folder_id, entry_id, name FROM share WHERE "
          "folder_id = ?",
          "DELETE FROM given WHERE resend IN (SELECT number FROM resend WHERE folder_id = ?)",
          "DELETE FROM resend WHERE folder_id = ?", "DELETE FROM member WHERE folder_id = ?",
          "DELETE FROM wish WHERE folder_id = ?", "DELETE FROM unsent WHERE folder_id = ?",
          "DELETE FROM share WHERE folder_id = ?"})
        Statement(database_, sql).Bind(1, folder.folderId).Run();
    SetState(folder, state);
}

// Brings what follows from the members up to them. teller: the member who told of them, if it is news.
void SharedFolders::Refresh(const KnownFolder& folder, const std::string& teller)
{
    const FolderMembers members = Load(folder).Members();
    RefreshDevices(folder, members);
    Introduce(members, teller.empty() ? MemberOfDevice(folder.inviter) : teller);
    RefreshMembers(folder);
    AskAnother(folder);
}

void SharedFolders::RefreshDevices(const KnownFolder& folder, const FolderMembers& members)
{
    std::set<std::string> devices;
    for (const auto& [key, member] : members)
        for (const SigningKey& device : member.devices)
            if (device != keys_.Signing())
                devices.insert(TextOf(exchange::IdOf(device)));
    Statement select(database_, "SELECT device FROM folder_device WHERE founding = ? AND is_in = 1");
    for (const std::string& device : TextsOf(select.Bind(1, folder.founding)))
        if (devices.erase(device) == 0)
            Statement(database_,
                      "UPDATE folder_device SET is_in = 0, has = 0, told = 0 WHERE founding = ? AND device = ?")
                .Bind(1, folder.founding)
                .Bind(2, device)
                .Run();
    for (const std::string& device : devices)
        Statement(database_,
                  "INSERT INTO folder_device (founding, device) VALUES (?1, ?2) ON CONFLICT (founding, device) DO "
                  "UPDATE SET is_in = 1, has = 0, told = 0, due = 0")
            .Bind(1, folder.founding)
            .Bind(2, device)
            .Run();
}

// Devices of members that nobody told of yet come to be known, by the name that their folder has for them, or where
// somebody else has that here, by one of their own.
void SharedFolders::Introduce(const FolderMembers& members, const std::string& teller)
{
    Statement insert(database_,
                     "INSERT OR IGNORE INTO device (id, member, introducer, how, pinned) SELECT ?1, ?2, ?3, 'introduced "
                     "by ' || ?3, ?4 WHERE NOT EXISTS (SELECT 1 FROM dropped WHERE device = ?1) AND (SELECT count(*) "
                     "FROM device) < ?5");
    for (const auto& [key, member] : members)
        for (const SigningKey& device : member.devices) {
            const std::string id = TextOf(exchange::IdOf(device));
            if (device == keys_.Signing() || IsDeviceKnown(id))
                continue;
            insert.Bind(1, id)
                .Bind(2, NameFor(member, id))
                .Bind(3, teller)
                .Bind(4, static_cast<std::int64_t>(FileTimeNow()))
                .Bind(5, kMostKnownDevices)
                .Run();
        }
}

bool SharedFolders::IsDeviceKnown(const std::string& device)
{
    Statement select(database_, "SELECT 1 FROM device WHERE id = ?");
    return select.Bind(1, device).Step();
}

std::string SharedFolders::MemberOfDevice(const std::string& device)
{
    Statement select(database_, "SELECT member FROM device WHERE id = ?");
    return select.Bind(1, device).Step() ? select.Text(0) : std::string("its members");
}

std::string SharedFolders::NameFor(const exchange::FolderMember& member, const std::string& device)
{
    constexpr std::size_t kDigits = 8;
    for (const SigningKey& other : member.devices) {
        Statement select(database_, "SELECT member FROM device WHERE id = ?");
        if (select.Bind(1, TextOf(exchange::IdOf(other))).Step())
            return select.Text(0);
    }
    Statement select(database_, "SELECT 1 FROM device WHERE member = ?");
    if (member.name != ownName_ && !select.Bind(1, member.name).Step())
        return member.name;
    return member.name.substr(0, kLongestMemberName - kDigits - 1) + "-" + device.substr(0, kDigits);
}

void SharedFolders::RefreshMembers(const KnownFolder& folder)
{
    std::map<std::string, bool> names;  // and whether they have the folder
    Statement wished(database_, "SELECT name FROM wish WHERE folder_id = ?");
    for (const std::string& name : TextsOf(wished.Bind(1, folder.folderId)))
        names.emplace(name, false);
    Statement select(database_, "SELECT member, max(has) " QV_MEMBERS_DEVICES "AND is_in = 1 GROUP BY member");
    select.Bind(1, folder.founding);
    while (select.Step())
        names[select.Text(0)] = select.Number(1) != 0;
    Statement known(database_, "SELECT name FROM member WHERE folder_id = ?");
    std::set<std::string> before;
    for (const std::string& name : TextsOf(known.Bind(1, folder.folderId)))
        if (names.contains(name))
            before.insert(name);
        else
            ForgetMember(folder.folderId, name);
    for (const auto& [name, has] : names) {
        Statement(database_,
                  "INSERT INTO member (folder_id, name, announced) VALUES (?1, ?2, ?3) ON CONFLICT (folder_id, name) DO "
                  "UPDATE SET announced = ?3")
            .Bind(1, folder.folderId)
            .Bind(2, name)
            .Bind(3, std::int64_t{has})
            .Run();
        if (has && !before.contains(name))
            Owe(folder.folderId, name, OwesAll(folder) ? ResendScope::kEverything : ResendScope::kOwn);
    }
}

void SharedFolders::ForgetMember(const std::string& folderId, const std::string& name)
{
    for (const char* sql :
         {"DELETE FROM given WHERE resend IN (SELECT number FROM resend WHERE folder_id = ? AND member = ?)",
          "DELETE FROM resend WHERE folder_id = ? AND member = ?", "DELETE FROM member WHERE folder_id = ? AND name = ?"})
        Statement(database_, sql).Bind(1, folderId).Bind(2, name).Run();
}

// Who was asked for the folder may have gone before he took the question.
void SharedFolders::AskAnother(const KnownFolder& folder)
{
    Statement(database_,
              "UPDATE folder SET asked_in = 0, asked = coalesce((SELECT device.id " QV_MEMBERS_DEVICES
              "AND is_in = 1 AND has = 1 AND card <> '' ORDER BY device.id LIMIT 1), '') WHERE founding = ?1 AND state = "
              "1 AND asked <> '' AND asked NOT IN (SELECT device FROM folder_device WHERE founding = ?1 AND is_in = 1)")
        .Bind(1, folder.founding)
        .Run();
    if (database_.Changes() > 0)
        Statement(database_,
                  "UPDATE folder_device SET due = 1 WHERE founding = ?1 AND device = (SELECT asked FROM folder WHERE "
                  "founding = ?1)")
            .Bind(1, folder.founding)
            .Run();
}

// Something that is owed already isn't owed twice, and what the user has cancelled stays so.
void SharedFolders::Owe(const std::string& folderId, const std::string& member, ResendScope scope)
{
    Statement select(database_, "SELECT scope, since FROM resend WHERE folder_id = ? AND member = ?");
    if (select.Bind(1, folderId).Bind(2, member).Step()) {
        const auto before = static_cast<ResendScope>(select.Number(0));
        if (before == scope || before == ResendScope::kAgain ||
            (before == ResendScope::kEverything && select.Number(1) == 0))
            return;
    }
    select.Reset();
    Statement(database_, "DELETE FROM given WHERE resend IN (SELECT number FROM resend WHERE folder_id = ? AND member = ?)")
        .Bind(1, folderId)
        .Bind(2, member)
        .Run();
    Statement(database_, "INSERT OR REPLACE INTO resend (folder_id, member, scope, since) VALUES (?, ?, ?, 0)")
        .Bind(1, folderId)
        .Bind(2, member)
        .Bind(3, std::int64_t{static_cast<int>(scope)})
        .Run();
}

// Those who have the folder hear of what was signed here.
void SharedFolders::TellAll(const KnownFolder& folder)
{
    Statement(database_, "UPDATE folder_device SET due = 1 WHERE founding = ? AND is_in = 1 AND has = 1")
        .Bind(1, folder.founding)
        .Run();
}

void SharedFolders::SetDue(const KnownFolder& folder, const DeviceId& device)
{
    Statement(database_, "UPDATE folder_device SET due = 1 WHERE founding = ? AND device = ?")
        .Bind(1, folder.founding)
        .Bind(2, TextOf(device))
        .Run();
}

void SharedFolders::Take(const Peer& from, const std::string& bytes)
{
    const FolderNote note = exchange::ReadFolderNote(bytes);
    if (!IsFolderPath(note.name))
        exchange::Refuse("'" + from.member + "' tells of a folder whose name is none");
    const std::string founding = TextOfEntryId(exchange::IdOfEntry(note.entries.front()));
    Work work(*this);
    const auto known = FindByFounding(founding);
    const KnownFolder folder = known ? *known : TakeInvitation(from, note, founding);
    if (folder.folderId != note.folder)
        exchange::Refuse("'" + from.member + "' tells of the folder " + note.folder + " what is another's");
    TakeEntries(folder, from, note);
    const FolderMembers members = Load(folder).Members();
    RefreshDevices(folder, members);
    HearOf(folder, from, note);
    JudgeOwnPart(folder, from, note, members);
    work.Commit();
}

// A folder that nothing is known of.
KnownFolder SharedFolders::TakeInvitation(const Peer& from, const FolderNote& note, const std::string& founding)
{
    Statement select(database_, "SELECT count(*) FROM folder WHERE state = 0 AND inviter = ?");
    if (select.Bind(1, TextOf(from.id)).Step() && select.Number(0) >= kMostInvitationsOfOne)
        exchange::Refuse("'" + from.member + "' has sent more invitations than are kept");
    select.Reset();
    const Membership alone(note.folder, note.entries.front());
    const KnownFolder folder{founding, note.folder, State::kInvited, note.name, TextOf(from.id), {}, FileTimeNow()};
    PutFolder(folder);
    Statement(database_, "INSERT INTO membership (founding, number, entry) VALUES (?, 0, ?)")
        .Bind(1, founding)
        .Bind(2, HexOfEntry(note.entries.front()))
        .Run();
    return folder;
}

// Who was no member before, and isn't one by what he brings, tells nothing: neither can he fill the records.
void SharedFolders::TakeEntries(const KnownFolder& folder, const Peer& from, const FolderNote& note)
{
    const bool wasIn = IsDeviceOfMember(Load(folder).Members(), from.card->signing);
    for (const std::string& entry : note.entries)
        Keep(folder, entry);
    if (!wasIn && !IsDeviceOfMember(Load(folder).Members(), from.card->signing))
        exchange::Refuse("'" + from.member + "' tells of the folder '" + note.name + "' and isn't its member");
}

void SharedFolders::HearOf(const KnownFolder& folder, const Peer& from, const FolderNote& note)
{
    const std::string device = TextOf(from.id);
    Statement select(database_, "SELECT has, told FROM folder_device WHERE founding = ? AND device = ? AND is_in = 1");
    if (!select.Bind(1, folder.founding).Bind(2, device).Step())
        return;
    const bool isNews = note.hasFolder && select.Number(0) == 0, wasTold = select.Number(1) != 0;
    select.Reset();
    Statement(database_, "UPDATE folder_device SET has = ? WHERE founding = ? AND device = ?")
        .Bind(1, std::int64_t{note.hasFolder})
        .Bind(2, folder.founding)
        .Bind(3, device)
        .Run();
    if (folder.state != State::kHere || !note.hasFolder)
        return;
    if (note.asked == keys_.Id())
        Owe(folder.folderId, from.member, ResendScope::kAgain);
    if (isNews)
        Owe(folder.folderId, from.member, OwesAll(folder) ? ResendScope::kEverything : ResendScope::kOwn);
    const std::set<std::string> theirs(note.entries.begin(), note.entries.end());
    const std::vector<std::string>& ours = Load(folder).Entries();
    const bool lacks = std::any_of(ours.begin(), ours.end(),
                                   [&](const std::string& entry) { return !theirs.contains(entry); });
    if (!wasTold || lacks)
        SetDue(folder, from.id);
}

bool SharedFolders::OwesAll(const KnownFolder& folder)
{
    Statement select(database_, "SELECT owes_all FROM folder WHERE founding = ?");
    return select.Bind(1, folder.founding).Step() && select.Number(0) != 0;
}

// What the changes make of this mailbox's own part.
void SharedFolders::JudgeOwnPart(const KnownFolder& folder, const Peer& from, const FolderNote& note,
                                 const FolderMembers& members)
{
    const bool isIn = OwnMember(members).has_value();
    if (folder.state == State::kHere && isIn) {
        Refresh(folder, from.member);
        return;
    }
    if (folder.state == State::kHere) {
        EndHere(folder, HasSignedOff(folder) ? State::kLeft : State::kRemoved);
        return;
    }
    if (folder.state == State::kInvited && !isIn) {
        // One that was taken back; of one that never was, nothing is kept.
        if (!HasBeenIn(folder))
            exchange::Refuse("'" + from.member + "' tells of the folder '" + note.name +
                             "', whose member this mailbox isn't");
        SetState(folder, State::kRemoved);
    }
    if (folder.state != State::kInvited && isIn)
        PutFolder({folder.founding, folder.folderId, State::kInvited, note.name, TextOf(from.id), {}, FileTimeNow()});
}

bool SharedFolders::HasSignedOff(const KnownFolder& folder)
{
    const auto changes = Load(folder).Changes();
    return std::any_of(changes.begin(), changes.end(), [this](const MembershipEntry& entry) {
        return entry.change == MembershipChange::kRemove && entry.member == keys_.Signing() &&
               entry.author == keys_.Signing();
    });
}

bool SharedFolders::HasBeenIn(const KnownFolder& folder)
{
    const auto changes = Load(folder).Changes();
    return std::any_of(changes.begin(), changes.end(), [this](const MembershipEntry& entry) {
        return entry.member == keys_.Signing() && entry.change != MembershipChange::kRemove;
    });
}

bool SharedFolders::HasDueNotes()
{
    Statement select(database_,
                     "SELECT 1 FROM folder_device JOIN device ON device.id = folder_device.device JOIN folder USING "
                     "(founding) WHERE due = 1 AND card <> '' AND state BETWEEN 1 AND 3 LIMIT 1");
    return select.Step();
}

std::vector<DueNote> SharedFolders::DueNotes()
{
    std::vector<DueNote> notes;
    if (!HasDueNotes())
        return notes;
    for (const KnownFolder& folder : Select("WHERE state BETWEEN 1 AND 3 AND ?1 = ''", {})) {
        Statement select(database_, "SELECT device.id " QV_MEMBERS_DEVICES "AND due = 1 AND card <> '' ORDER BY device.id");
        std::vector<std::string> devices = TextsOf(select.Bind(1, folder.founding));
        if (devices.empty())
            continue;
        FolderNote note{folder.state == State::kHere, {}, folder.folderId, folder.name, Load(folder).Entries()};
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
    Statement(database_, "INSERT INTO outgoing (path, recipients, planned, sequence, kind) VALUES (?, '', 1, ?, ?)")
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
    Statement select(database_,
                     "SELECT 1 FROM folder_device JOIN folder USING (founding) WHERE folder_id = ? AND device = ? AND "
                     "state = 1 AND is_in = 1");
    return select.Bind(1, folderId).Bind(2, TextOf(device)).Step();
}

bool SharedFolders::IsKnown(const std::string& folderId)
{
    Statement select(database_, "SELECT 1 FROM folder WHERE folder_id = ?");
    return select.Bind(1, folderId).Step();
}

void SharedFolders::NoteRefusal(const DeviceId& device, const std::string& reason)
{
    Statement(database_,
              "INSERT INTO refusal (device, reason, count, since) SELECT ?1, ?2, 1, ?3 WHERE EXISTS (SELECT 1 FROM "
              "refusal WHERE device = ?1 AND reason = ?2) OR (SELECT count(*) FROM refusal) < ?4 ON CONFLICT (device, "
              "reason) DO UPDATE SET count = count + 1")
        .Bind(1, TextOf(device))
        .Bind(2, reason)
        .Bind(3, static_cast<std::int64_t>(FileTimeNow()))
        .Bind(4, kMostRefusals)
        .Run();
}

std::vector<RefusalRecord> SharedFolders::Refusals()
{
    Statement select(database_, "SELECT device, reason, count, since FROM refusal ORDER BY since");
    std::vector<RefusalRecord> refusals;
    while (select.Step())
        refusals.push_back({exchange::ParseDeviceId(select.Text(0)).value_or(DeviceId{}), select.Text(1),
                            static_cast<std::uint64_t>(select.Number(2)), static_cast<std::uint64_t>(select.Number(3))});
    return refusals;
}

}  // namespace quorvane::host
