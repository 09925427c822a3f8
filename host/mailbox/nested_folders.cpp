// Shared folders that lie in others: SharedFolders (shared_folders.h).
#include <algorithm>
#include <map>

#include "host/base/errors.h"
#include "host/exchange/error.h"
#include "host/mailbox/shared_folders.h"
#include "host/store/properties.h"

namespace quorvane::host {

namespace {

using exchange::FolderMembers;
using exchange::Membership;
using exchange::MembershipChange;
using exchange::MembershipEntry;
using exchange::SigningKey;
using State = KnownFolder::State;

// How many undecided invitations of one device are kept: those that lie in no other folder that is known
// here, and all together.
constexpr std::int64_t kMostInvitationsOfOne = 100;
constexpr std::int64_t kMostNestedOfOne = 10000;

SigningKey FounderOf(const Membership& membership)
{
    return membership.Changes().front().member;
}

// Of one who was taken out, or left, that stays.
bool WasBroughtIn(const std::vector<MembershipEntry>& changes, const exchange::FolderMember& member)
{
    return std::any_of(changes.begin(), changes.end(), [&](const MembershipEntry& entry) {
        return (entry.change == MembershipChange::kAdd && member.devices.contains(entry.member)) ||
               (entry.change == MembershipChange::kLink && member.devices.contains(entry.device));
    });
}

}  // namespace

void SharedFolders::ShareAsTree(const std::string& folderId)
{
    Here(folderId);
    Statement(database_, "UPDATE share SET tree = 1 WHERE folder_id = ?").Bind(1, folderId).Run();
}

std::set<std::string> SharedFolders::Followed()
{
    Statement select(database_, "SELECT founding FROM folder WHERE state = 1 AND follows = 1");
    std::set<std::string> foundings;
    while (select.Step())
        foundings.insert(select.Text(0));
    return foundings;
}

void SharedFolders::Follow(const std::set<std::string>& foundings)
{
    Work work(*this);
    Statement follow(database_, "UPDATE folder SET follows = 1 WHERE founding = ? AND state = 1");
    for (const std::string& founding : foundings)
        follow.Bind(1, founding).Run();
    work.Commit();
}

std::vector<KnownFolder> SharedFolders::HereAndInvited()
{
    return OutermostFirst(Select("WHERE state BETWEEN 0 AND 1 AND ?1 = '' ORDER BY since, founding", {}));
}

KnownFolder SharedFolders::OutermostInvitation(const KnownFolder& invitation)
{
    std::set<std::string> seen;  // nobody honest puts a folder into itself
    KnownFolder outermost = invitation;
    for (std::optional<KnownFolder> one = invitation;
         one && one->state == State::kInvited && seen.insert(one->founding).second; one = OuterOf(*one))
        outermost = *one;
    return seen.contains(outermost.outer) ? invitation : outermost;
}

// What the inner folder's founder says counts where he is the member who founded the outer one, and still is
// one there: any of his devices may have founded either.
std::optional<KnownFolder> SharedFolders::OuterOf(const KnownFolder& folder)
{
    const auto outer = folder.outer.empty() ? std::nullopt : FindByFounding(folder.outer);
    if (!outer || (outer->state != State::kHere && outer->state != State::kInvited))
        return std::nullopt;
    const SigningKey inner = FounderOf(log_.Load(folder));
    const Membership& membership = log_.Load(*outer);
    const FolderMembers members = membership.Members();
    const auto founder = members.find(FounderOf(membership));
    return founder != members.end() && founder->second.devices.contains(inner) ? outer : std::nullopt;
}

void SharedFolders::NoteOuter(const KnownFolder& folder)
{
    const auto outer = log_.Load(folder).Outer();
    Statement(database_, "UPDATE folder SET lies_in = ?1 WHERE founding = ?2 AND lies_in <> ?1")
        .Bind(1, outer ? MembershipLog::TextOf(*outer) : std::string())
        .Bind(2, folder.founding)
        .Run();
}

// Of those that lie in each other, as nobody honest says, any comes first.
std::vector<KnownFolder> SharedFolders::OutermostFirst(std::vector<KnownFolder> folders)
{
    std::map<std::string, const KnownFolder*> waiting;
    for (const KnownFolder& folder : folders)
        waiting.emplace(folder.founding, &folder);
    std::vector<KnownFolder> ordered;
    for (const KnownFolder& folder : folders) {
        std::vector<const KnownFolder*> around;  // the folder, and what it lies in
        for (auto one = waiting.find(folder.founding); one != waiting.end();) {
            around.push_back(one->second);
            waiting.erase(one);
            one = waiting.find(around.back()->outer);
        }
        for (auto one = around.rbegin(); one != around.rend(); ++one)
            ordered.push_back(**one);
    }
    return ordered;
}

std::vector<Share> SharedFolders::ShareNested(const std::vector<Nested>& folders)
{
    std::vector<Share> shared;
    Work work(*this);
    for (const Nested& nested : folders)
        if (ShareInner(nested))
            shared.push_back(nested.share);
    work.Commit();
    return shared;
}

bool SharedFolders::ShareInner(const Nested& nested)
{
    const auto outer = FindHere(nested.outer);
    auto inner = FindHere(nested.share.folderId);
    const bool isNew = !inner && outer && !IsBeingMade(nested.share);
    if (isNew)
        inner = Begin(nested.share);
    if (!outer || !inner || !IsFounder(inner->folderId))
        return false;
    const std::set<std::string> before = devices_.MembersOf(*inner);
    const bool isElsewhere = NestIn(*outer, *inner), hasOthers = LetInMembersOf(*outer, *inner);
    if (isElsewhere || hasOthers)
        RefreshAfterInviting(*inner, before);
    return isNew;
}

// Another process may have shared it meanwhile, or is about to.
bool SharedFolders::IsBeingMade(const Share& share)
{
    Statement select(database_,
                     "SELECT 1 FROM share WHERE entry_id = ?1 UNION SELECT 1 FROM folder WHERE state = 0 AND "
                     "target = ?2");
    return select.Bind(1, share.entryId).Bind(2, share.name).Step();
}

// True where that is news.
bool SharedFolders::NestIn(const KnownFolder& outer, const KnownFolder& inner)
{
    const auto told = log_.Load(inner).Outer();
    const bool moves = IsFounder(outer.folderId) && (!told || MembershipLog::TextOf(*told) != outer.founding);
    if (moves) {
        MembershipEntry entry;
        entry.change = MembershipChange::kNest;
        entry.member = FounderOf(log_.Load(inner));
        entry.outer = exchange::IdOfEntry(log_.Load(outer).Entries().front());
        log_.Sign(inner, std::move(entry));
        devices_.TellThoseWhoHave(inner);
        NoteOuter(inner);
    }
    const bool hasFlags = !log_.Load(outer).FlagEntries().empty();
    const bool lacksFlags = hasFlags && log_.Load(inner).FlagEntries().empty();
    if (lacksFlags)
        SignFlags(inner);
    return moves || lacksFlags;
}

// One device of each, which lets the others in where it accepts. True where anybody is new.
bool SharedFolders::LetInMembersOf(const KnownFolder& outer, const KnownFolder& inner)
{
    Statement(database_,
              "INSERT OR IGNORE INTO wish (folder_id, name) SELECT ?1, name FROM wish WHERE folder_id = ?2")
        .Bind(1, inner.folderId)
        .Bind(2, outer.folderId)
        .Run();
    bool isAnyNew = database_.Changes() > 0;
    const FolderMembers members = log_.Load(outer).Members();
    for (const auto& [key, member] : members) {
        const SigningKey& device = member.devices.contains(key) ? key : *member.devices.begin();
        if (member.devices.contains(keys_.Signing()) || WasBroughtIn(log_.Load(inner).Changes(), member) ||
            !devices_.IsDeviceKnown(TextOf(exchange::IdOf(device))))
            continue;
        LetIn(inner, device, member.name);
        isAnyNew = true;
    }
    return isAnyNew;
}

void SharedFolders::CheckInvitationsOf(const Peer& from)
{
    Statement select(
        database_,
        "SELECT count(*), sum(NOT EXISTS (SELECT 1 FROM folder AS around WHERE around.founding = "
        "folder.lies_in)) FROM folder WHERE state = 0 AND inviter = ?");
    if (select.Bind(1, TextOf(from.id)).Step() &&
        (select.Number(0) > kMostNestedOfOne || select.Number(1) > kMostInvitationsOfOne))
        exchange::Refuse("'" + from.member + "' has sent more invitations than are kept");
}

}  // namespace quorvane::host
