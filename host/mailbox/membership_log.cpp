#include "host/mailbox/membership_log.h"

#include <algorithm>
#include <set>

#include "host/base/errors.h"
#include "host/exchange/error.h"
#include "host/store/properties.h"

namespace quorvane::host {

namespace {

using exchange::DeviceId;
using exchange::FolderMembers;
using exchange::Membership;
using exchange::MembershipChange;
using exchange::MembershipEntry;
using exchange::SigningKey;

// How many changes a new one names as those that it has seen.
constexpr std::size_t kMostNamed = 200;

std::string HexOfEntry(const std::string& bytes)
{
    return Hex(Bytes(bytes.begin(), bytes.end()));
}

std::string EntryInHex(const std::string& hex)
{
    const Bytes bytes = FromHex(hex);
    return {bytes.begin(), bytes.end()};
}

}  // namespace

std::string MembershipLog::FoundingOf(const std::string& entry)
{
    return TextOf(exchange::IdOfEntry(entry));
}

std::string MembershipLog::TextOf(const exchange::EntryId& id)
{
    DeviceId half;
    std::copy_n(id.begin(), half.bytes.size(), half.bytes.begin());
    const std::string first = exchange::TextOf(half);
    std::copy_n(id.begin() + half.bytes.size(), half.bytes.size(), half.bytes.begin());
    return first + exchange::TextOf(half);
}

void MembershipLog::Begin(const std::string& founding, const std::string& entry)
{
    Statement(database_, "INSERT OR IGNORE INTO membership (founding, number, entry) VALUES (?, 0, ?)")
        .Bind(1, founding)
        .Bind(2, HexOfEntry(entry))
        .Run();
}

Membership& MembershipLog::LoadOwn(const KnownFolder& folder)
{
    auto known = memberships_.find(folder.founding);
    Statement select(database_,
                     "SELECT entry FROM membership WHERE founding = ? AND number >= ? ORDER BY number");
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

void MembershipLog::Keep(const KnownFolder& folder, const std::string& entry)
{
    Membership& membership = LoadOwn(folder);
    if (membership.Take(entry) != Membership::Taken::kNew)
        return;
    Statement(database_, "INSERT INTO membership (founding, number, entry) VALUES (?, ?, ?)")
        .Bind(1, folder.founding)
        .Bind(2, static_cast<std::int64_t>(membership.Entries().size() - 1))
        .Bind(3, HexOfEntry(entry))
        .Run();
}

void MembershipLog::Sign(const KnownFolder& folder, MembershipEntry entry)
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

void MembershipLog::SignRemoval(const KnownFolder& folder, const SigningKey& member)
{
    MembershipEntry entry;
    entry.change = MembershipChange::kRemove;
    entry.member = member;
    Sign(folder, std::move(entry));
}

void MembershipLog::SignUnlinking(const KnownFolder& folder, const SigningKey& member,
                                  const SigningKey& device)
{
    MembershipEntry entry;
    entry.change = MembershipChange::kUnlink;
    entry.member = member;
    entry.device = device;
    Sign(folder, std::move(entry));
}

std::vector<SigningKey> MembershipLog::OwnMembers(const FolderMembers& members) const
{
    std::vector<SigningKey> own;
    for (const auto& [key, member] : members)
        if (member.devices.contains(keys_.Signing()))
            own.push_back(key);
    return own;
}

bool MembershipLog::HasSignedOff(const KnownFolder& folder)
{
    const auto changes = Load(folder).Changes();
    std::set<SigningKey> own{keys_.Signing()};
    for (const MembershipEntry& entry : changes)
        if (entry.change == MembershipChange::kLink && entry.device == keys_.Signing())
            own.insert(entry.member);
    return std::any_of(changes.begin(), changes.end(), [&](const MembershipEntry& entry) {
        const bool isEnd = entry.change == MembershipChange::kRemove ||
                           (entry.change == MembershipChange::kUnlink && entry.device == keys_.Signing());
        return isEnd && own.contains(entry.member) && entry.author == keys_.Signing();
    });
}

bool MembershipLog::HasBeenIn(const KnownFolder& folder)
{
    const auto changes = Load(folder).Changes();
    return std::any_of(changes.begin(), changes.end(), [this](const MembershipEntry& entry) {
        const bool isAdded =
            entry.change == MembershipChange::kFound || entry.change == MembershipChange::kAdd;
        return (isAdded && entry.member == keys_.Signing()) ||
               (entry.change == MembershipChange::kLink && entry.device == keys_.Signing());
    });
}

}  // namespace quorvane::host
