#include "host/mailbox/folder_devices.h"

#include <map>
#include <set>

#include "host/exchange/member_name.h"
#include "host/mailbox/peers.h"
#include "host/store/properties.h"

namespace quorvane::host {

namespace {

using exchange::DeviceId;
using exchange::FolderMember;
using exchange::FolderMembers;
using exchange::SigningKey;

// Devices of the members of a folder ?1, by its founding.
#define QV_MEMBERS_DEVICES \
    "FROM folder_device JOIN device ON device.id = folder_device.device WHERE founding = ?1 "

std::vector<std::string> TextsOf(Statement& select)
{
    std::vector<std::string> texts;
    while (select.Step())
        texts.push_back(select.Text(0));
    return texts;
}

}  // namespace

void FolderDevices::Refresh(const KnownFolder& folder, const FolderMembers& members,
                            const std::string& teller)
{
    RefreshDevices(folder, members);
    Introduce(members, teller.empty() ? MemberOfDevice(folder.inviter) : teller);
    RefreshMembers(folder);
    AskAnother(folder);
}

void FolderDevices::RefreshDevices(const KnownFolder& folder, const FolderMembers& members)
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
                      "UPDATE folder_device SET is_in = 0, has = 0, told = 0, flags = 0 WHERE founding = ? "
                      "AND device = ?")
                .Bind(1, folder.founding)
                .Bind(2, device)
                .Run();
    for (const std::string& device : devices)
        Statement(
            database_,
            "INSERT INTO folder_device (founding, device) VALUES (?1, ?2) ON CONFLICT (founding, device) DO "
            "UPDATE SET is_in = 1, has = 0, told = 0, due = 0, flags = 0")
            .Bind(1, folder.founding)
            .Bind(2, device)
            .Run();
}

// Devices of members that nobody told of yet come to be known, by the name that their folder has for them, or
// where somebody else has that here, by one of their own.
void FolderDevices::Introduce(const FolderMembers& members, const std::string& teller)
{
    Statement insert(
        database_,
        "INSERT OR IGNORE INTO device (id, member, introducer, how, pinned) SELECT ?1, ?2, ?3, 'introduced "
        "by ' || ?3, ?4 WHERE NOT EXISTS (SELECT 1 FROM dropped WHERE device = ?1) AND (SELECT count(*) FROM "
        "device) < ?5");
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

bool FolderDevices::IsDeviceKnown(const std::string& device)
{
    Statement select(database_, "SELECT 1 FROM device WHERE id = ?");
    return select.Bind(1, device).Step();
}

std::string FolderDevices::MemberOfDevice(const std::string& device)
{
    Statement select(database_, "SELECT member FROM device WHERE id = ?");
    return select.Bind(1, device).Step() ? select.Text(0) : std::string("its members");
}

std::string FolderDevices::NameFor(const FolderMember& member, const std::string& device)
{
    constexpr std::size_t kDigits = 8;
    if (member.devices.contains(keys_.Signing()))
        return ownName_;
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

void FolderDevices::RefreshMembers(const KnownFolder& folder)
{
    std::map<std::string, bool> names;  // and whether they have the folder
    Statement wished(database_, "SELECT name FROM wish WHERE folder_id = ?");
    for (const std::string& name : TextsOf(wished.Bind(1, folder.folderId)))
        names.emplace(name, false);
    Statement select(database_,
                     "SELECT member, max(has) " QV_MEMBERS_DEVICES "AND is_in = 1 GROUP BY member");
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
                  "INSERT INTO member (folder_id, name, announced) VALUES (?1, ?2, ?3) ON CONFLICT "
                  "(folder_id, name) DO "
                  "UPDATE SET announced = ?3")
            .Bind(1, folder.folderId)
            .Bind(2, name)
            .Bind(3, std::int64_t{has})
            .Run();
        if (has && !before.contains(name))
            OweNewcomer(folder, name);
    }
}

void FolderDevices::ForgetMember(const std::string& folderId, const std::string& name)
{
    for (const char* sql :
         {"DELETE FROM given WHERE resend IN (SELECT number FROM resend WHERE folder_id = ? AND member = ?)",
          "DELETE FROM resend WHERE folder_id = ? AND member = ?",
          "DELETE FROM member WHERE folder_id = ? AND name = ?"})
        Statement(database_, sql).Bind(1, folderId).Bind(2, name).Run();
}

// Who was asked for the folder may have gone, or fallen silent, before he took the question.
void FolderDevices::AskAnother(const KnownFolder& folder)
{
    Statement(
        database_,
        "UPDATE folder SET asked_in = 0, asked = coalesce((SELECT device.id " QV_MEMBERS_DEVICES
        "AND is_in = 1 AND has = 1 AND card <> '' AND silent = 0 ORDER BY device.id LIMIT 1), '') "
        "WHERE founding = ?1 AND state = 1 AND asked <> '' AND asked NOT IN (SELECT device.id " QV_MEMBERS_DEVICES
        "AND is_in = 1 AND silent = 0)")
        .Bind(1, folder.founding)
        .Run();
    if (database_.Changes() > 0)
        Statement(database_,
                  "UPDATE folder_device SET due = 1 WHERE founding = ?1 AND device = (SELECT asked FROM "
                  "folder WHERE founding = ?1)")
            .Bind(1, folder.founding)
            .Run();
}

void FolderDevices::Owe(const std::string& folderId, const std::string& member, ResendScope scope)
{
    Statement select(database_, "SELECT scope, since FROM resend WHERE folder_id = ? AND member = ?");
    if (select.Bind(1, folderId).Bind(2, member).Step()) {
        const auto before = static_cast<ResendScope>(select.Number(0));
        if (before == scope || before == ResendScope::kAgain ||
            (before == ResendScope::kEverything && select.Number(1) == 0))
            return;
    }
    select.Reset();
    Statement(
        database_,
        "DELETE FROM given WHERE resend IN (SELECT number FROM resend WHERE folder_id = ? AND member = ?)")
        .Bind(1, folderId)
        .Bind(2, member)
        .Run();
    Statement(database_,
              "INSERT OR REPLACE INTO resend (folder_id, member, scope, since) VALUES (?, ?, ?, 0)")
        .Bind(1, folderId)
        .Bind(2, member)
        .Bind(3, std::int64_t{static_cast<int>(scope)})
        .Run();
}

bool FolderDevices::OwesAll(const KnownFolder& folder)
{
    Statement select(database_, "SELECT owes_all FROM folder WHERE founding = ?");
    return select.Bind(1, folder.founding).Step() && select.Number(0) != 0;
}

void FolderDevices::TellThoseWhoHave(const KnownFolder& folder)
{
    Statement(database_, "UPDATE folder_device SET due = 1 WHERE founding = ? AND is_in = 1 AND has = 1")
        .Bind(1, folder.founding)
        .Run();
}

void FolderDevices::NoteFlags(const KnownFolder& folder, const DeviceId& device)
{
    Statement(
        database_,
        "UPDATE folder_device SET flags = 1 WHERE founding = ? AND device = ? AND flags = 0 AND is_in = 1")
        .Bind(1, folder.founding)
        .Bind(2, TextOf(device))
        .Run();
}

void FolderDevices::SetDue(const KnownFolder& folder, const DeviceId& device)
{
    Statement(database_, "UPDATE folder_device SET due = 1 WHERE founding = ? AND device = ?")
        .Bind(1, folder.founding)
        .Bind(2, TextOf(device))
        .Run();
}

void FolderDevices::TellAll(const KnownFolder& folder)
{
    Statement(database_, "UPDATE folder_device SET due = 1 WHERE founding = ? AND is_in = 1")
        .Bind(1, folder.founding)
        .Run();
}

void FolderDevices::TellAllAnew(const KnownFolder& folder)
{
    Statement(database_, "UPDATE folder_device SET due = 1, told = 0 WHERE founding = ? AND is_in = 1")
        .Bind(1, folder.founding)
        .Run();
}

std::vector<std::string> FolderDevices::Due(const KnownFolder& folder)
{
    Statement select(database_, "SELECT device.id " QV_MEMBERS_DEVICES
                                "AND due = 1 AND card <> '' AND silent = 0 ORDER BY device.id");
    return TextsOf(select.Bind(1, folder.founding));
}

std::vector<std::string> FolderDevices::DevicesOf(const KnownFolder& folder, const std::string& member)
{
    Statement select(database_, "SELECT device.id " QV_MEMBERS_DEVICES "AND is_in = 1 AND member = ?2");
    return TextsOf(select.Bind(1, folder.founding).Bind(2, member));
}

std::set<std::string> FolderDevices::MembersOf(const KnownFolder& folder)
{
    Statement select(database_, "SELECT name FROM member WHERE folder_id = ?");
    const auto names = TextsOf(select.Bind(1, folder.folderId));
    return {names.begin(), names.end()};
}

void FolderDevices::OweNewcomer(const KnownFolder& folder, const std::string& member)
{
    Owe(folder.folderId, member, OwesAll(folder) ? ResendScope::kEverything : ResendScope::kOwn);
}

}  // namespace quorvane::host
