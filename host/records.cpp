#include "host/records.h"

#include <map>
#include <set>

namespace quorvane::host {

namespace {

constexpr char kSchema[] = R"sql(
CREATE TABLE mailbox (name TEXT NOT NULL, instance TEXT NOT NULL);
CREATE TABLE share (
    folder_id TEXT PRIMARY KEY,
    entry_id TEXT NOT NULL UNIQUE,
    store_id TEXT NOT NULL,
    name TEXT NOT NULL);
CREATE TABLE member (
    folder_id TEXT NOT NULL REFERENCES share(folder_id),
    name TEXT NOT NULL,
    announced INTEGER NOT NULL,
    PRIMARY KEY (folder_id, name));
CREATE TABLE item (
    id TEXT PRIMARY KEY,
    folder_id TEXT NOT NULL,
    stamp INTEGER NOT NULL,
    member TEXT NOT NULL,
    deleted INTEGER NOT NULL,
    modified INTEGER NOT NULL);
CREATE INDEX item_folder ON item (folder_id);
CREATE TABLE outgoing (
    number INTEGER PRIMARY KEY AUTOINCREMENT,
    path TEXT NOT NULL UNIQUE,
    recipients TEXT NOT NULL,
    planned INTEGER NOT NULL DEFAULT 0);
CREATE TABLE delivery (
    package INTEGER NOT NULL REFERENCES outgoing(number),
    member TEXT NOT NULL,
    sequence INTEGER NOT NULL,
    PRIMARY KEY (package, member));
CREATE TABLE sequence (member TEXT PRIMARY KEY, last INTEGER NOT NULL);
CREATE TABLE received (sender TEXT PRIMARY KEY, last INTEGER NOT NULL);
)sql";

// From version 1 on: `told` is of how many members, this mailbox included, a member knows; `due` that it is to be
// told of the others.
constexpr char kUpgradeFrom1[] = R"sql(
ALTER TABLE member ADD COLUMN told INTEGER NOT NULL DEFAULT 0;
ALTER TABLE member ADD COLUMN due INTEGER NOT NULL DEFAULT 0;
UPDATE member AS own SET told = (SELECT count(*) + 1 FROM member WHERE folder_id = own.folder_id)
    WHERE announced = 1;
CREATE TABLE resend (
    number INTEGER PRIMARY KEY AUTOINCREMENT,
    folder_id TEXT NOT NULL REFERENCES share(folder_id),
    member TEXT NOT NULL,
    scope INTEGER NOT NULL,
    since INTEGER NOT NULL,
    cancelled INTEGER NOT NULL DEFAULT 0,
    done INTEGER NOT NULL DEFAULT 0,
    total INTEGER NOT NULL DEFAULT 0,
    per_second INTEGER NOT NULL DEFAULT 0,
    UNIQUE (folder_id, member));
CREATE TABLE given (
    resend INTEGER NOT NULL REFERENCES resend(number),
    item TEXT NOT NULL,
    PRIMARY KEY (resend, item)) WITHOUT ROWID;
CREATE TABLE unsent (
    item TEXT PRIMARY KEY,
    folder_id TEXT NOT NULL,
    subject TEXT NOT NULL,
    reason TEXT NOT NULL);
INSERT INTO resend (folder_id, member, scope, since) SELECT folder_id, name, 1, 0 FROM member WHERE announced = 0;
)sql";

Share ReadShare(const Statement& row)
{
    return {row.Text(0), row.Text(1), row.Text(2), row.Text(3)};
}

std::optional<Share> FindOneShare(Database& database, const char* sql, const std::string& key)
{
    Statement select(database, sql);
    if (!select.Bind(1, key).Step())
        return std::nullopt;
    return ReadShare(select);
}

ItemRecord ReadItemRecord(const Statement& row)
{
    return {row.Text(0),
            row.Text(1),
            {static_cast<std::uint64_t>(row.Number(2)), row.Text(3)},
            row.Number(4) != 0,
            static_cast<std::uint64_t>(row.Number(5))};
}

std::vector<std::string> ReadNames(Statement& select)
{
    std::vector<std::string> names;
    while (select.Step())
        names.push_back(select.Text(0));
    return names;
}

// Gives a package its next sequence number to a member.
void PlanDelivery(Database& database, std::int64_t package, const std::string& member)
{
    Statement(
        database,
        "INSERT INTO sequence (member, last) VALUES (?, 1) ON CONFLICT(member) DO UPDATE SET last = last + 1")
        .Bind(1, member)
        .Run();
    Statement(database,
              "INSERT INTO delivery (package, member, sequence) SELECT ?, member, last FROM sequence WHERE "
              "member = ?")
        .Bind(1, package)
        .Bind(2, member)
        .Run();
}

// A member of a folder who doesn't know of all its members is told when anything passes between it and this mailbox.
void NoteTraffic(Database& database, const std::string& folderId, const std::string& member)
{
    Statement(database,
              "UPDATE member AS own SET due = 1 WHERE folder_id = ? AND name = ? AND announced = 1 AND told < "
              "(SELECT count(*) + 1 FROM member WHERE folder_id = own.folder_id)")
        .Bind(1, folderId)
        .Bind(2, member)
        .Run();
}

void NoteAnnounced(Database& database, const PackagePlan& plan, const std::string& member)
{
    Statement(database,
              "UPDATE member SET announced = 1, due = 0, told = max(told, ?) WHERE folder_id = ? AND name = ?")
        .Bind(1, static_cast<std::int64_t>(plan.membersNamed))
        .Bind(2, plan.announcedFolder)
        .Bind(3, member)
        .Run();
}

// What a member gets isn't owed to it any more.
void NoteGiven(Database& database, const PackagePlan& plan, const std::string& member)
{
    std::map<std::string, std::int64_t> resends;  // of this member, by folder
    Statement find(database, "SELECT folder_id, number FROM resend WHERE member = ?");
    find.Bind(1, member);
    while (find.Step())
        resends.emplace(find.Text(0), find.Number(1));
    std::set<std::string> folders;
    Statement give(database, "INSERT OR IGNORE INTO given (resend, item) VALUES (?, ?)");
    for (const PackagePlan::Item& item : plan.items) {
        if (const auto resend = resends.find(item.folderId); resend != resends.end())
            give.Bind(1, resend->second).Bind(2, item.id).Run();
        if (folders.insert(item.folderId).second)
            NoteTraffic(database, item.folderId, member);
    }
}

void NotePlan(Database& database, std::int64_t package, const PackagePlan& plan)
{
    for (const std::string& member : plan.members) {
        PlanDelivery(database, package, member);
        NoteGiven(database, plan, member);
        NoteAnnounced(database, plan, member);
    }
    Statement forget(database, "DELETE FROM unsent WHERE item = ?");
    for (const PackagePlan::Item& item : plan.items)
        forget.Bind(1, item.id).Run();
    Statement(database, "UPDATE outgoing SET planned = 1 WHERE number = ?").Bind(1, package).Run();
}

constexpr char kSelectResend[] =
    "SELECT number, folder_id, member, scope, since, cancelled, done, total, per_second FROM resend";

std::vector<ResendRecord> ReadResends(Statement&& select)
{
    std::vector<ResendRecord> resends;
    while (select.Step())
        resends.push_back({select.Number(0), select.Text(1), select.Text(2),
                           static_cast<ResendScope>(select.Number(3)),
                           static_cast<std::uint64_t>(select.Number(4)), select.Number(5) != 0, select.Number(6),
                           select.Number(7), select.Number(8)});
    return resends;
}

std::optional<ResendRecord> First(const std::vector<ResendRecord>& resends)
{
    return resends.empty() ? std::nullopt : std::optional(resends.front());
}

std::optional<ResendRecord> FindOneResend(Database& database, const std::string& folderId,
                                          const std::string& member)
{
    Statement select(database, (std::string(kSelectResend) + " WHERE folder_id = ? AND member = ?").c_str());
    return First(ReadResends(std::move(select.Bind(1, folderId).Bind(2, member))));
}

void ForgetResend(Database& database, std::int64_t number)
{
    Statement(database, "DELETE FROM given WHERE resend = ?").Bind(1, number).Run();
    Statement(database, "DELETE FROM resend WHERE number = ?").Bind(1, number).Run();
}

// One that sends less than an unfinished one before takes that one up: what that one owed is still owed.
void PutResend(Database& database, ResendRecord wanted)
{
    const auto before = FindOneResend(database, wanted.folderId, wanted.member);
    const bool owesAll = before && before->scope == ResendScope::kEverything && before->since == 0;
    if (before && (wanted.scope != ResendScope::kEverything || (owesAll && wanted.since != 0))) {
        Statement(database, "UPDATE resend SET cancelled = 0 WHERE number = ?").Bind(1, before->number).Run();
        return;
    }
    if (before)
        ForgetResend(database, before->number);
    Statement(database, "INSERT INTO resend (folder_id, member, scope, since) VALUES (?, ?, ?, ?)")
        .Bind(1, wanted.folderId)
        .Bind(2, wanted.member)
        .Bind(3, static_cast<std::int64_t>(wanted.scope))
        .Bind(4, static_cast<std::int64_t>(wanted.since))
        .Run();
}

std::vector<Delivery> ReadDeliveries(Database& database, std::int64_t package)
{
    Statement select(database, "SELECT member, sequence FROM delivery WHERE package = ? ORDER BY member");
    select.Bind(1, package);
    std::vector<Delivery> deliveries;
    while (select.Step())
        deliveries.push_back({select.Text(0), static_cast<std::uint64_t>(select.Number(1))});
    return deliveries;
}

}  // namespace

// Takes the lock, and has what is written under it flushed to the disk.
class Records::Durable {
public:
    explicit Durable(Records& records) : lock_(records.mutex_), database_(records.database_)
    {
        database_.Execute("PRAGMA synchronous=FULL");
    }
    Durable(const Durable&) = delete;
    Durable& operator=(const Durable&) = delete;
    ~Durable()
    {
        try {
            database_.Execute("PRAGMA synchronous=NORMAL");
        } catch (...) {
            // Then everything is flushed, which is slower and no less safe.
        }
    }

private:
    std::lock_guard<std::mutex> lock_;
    Database& database_;
};

Records::Records(const std::string& path) : database_(path, Database::Mode::kOpen)
{
    database_.Execute("PRAGMA synchronous=NORMAL");
}

void Records::CreateTables(Database& database, const std::string& name, const std::string& instance)
{
    database.Execute(kSchema);
    Upgrade(database, 1);
    Statement(database, "INSERT INTO mailbox (name, instance) VALUES (?, ?)")
        .Bind(1, name)
        .Bind(2, instance)
        .Run();
}

void Records::Upgrade(Database& database, std::int64_t version)
{
    if (version < kVersion)
        database.Execute(kUpgradeFrom1);
    database.Execute("PRAGMA user_version = " + std::to_string(kVersion));
}

std::vector<Share> Records::Shares()
{
    const std::lock_guard lock(mutex_);
    Statement select(database_, "SELECT folder_id, entry_id, store_id, name FROM share ORDER BY folder_id");
    std::vector<Share> shares;
    while (select.Step())
        shares.push_back(ReadShare(select));
    return shares;
}

std::optional<Share> Records::FindShare(const std::string& folderId)
{
    const std::lock_guard lock(mutex_);
    return FindOneShare(
        database_, "SELECT folder_id, entry_id, store_id, name FROM share WHERE folder_id = ?", folderId);
}

std::optional<Share> Records::FindShareByEntryId(const std::string& entryId)
{
    const std::lock_guard lock(mutex_);
    return FindOneShare(database_, "SELECT folder_id, entry_id, store_id, name FROM share WHERE entry_id = ?",
                        entryId);
}

void Records::AddShare(const Share& share)
{
    const Durable durable(*this);
    Statement(database_, "INSERT INTO share (folder_id, entry_id, store_id, name) VALUES (?, ?, ?, ?)")
        .Bind(1, share.folderId)
        .Bind(2, share.entryId)
        .Bind(3, share.storeId)
        .Bind(4, share.name)
        .Run();
}

std::vector<std::string> Records::Members(const std::string& folderId)
{
    const std::lock_guard lock(mutex_);
    Statement select(database_, "SELECT name FROM member WHERE folder_id = ? ORDER BY name");
    return ReadNames(select.Bind(1, folderId));
}

std::vector<std::string> Records::Members(const std::string& folderId, bool announced)
{
    const std::lock_guard lock(mutex_);
    Statement select(database_,
                     "SELECT name FROM member WHERE folder_id = ? AND announced = ? ORDER BY name");
    return ReadNames(select.Bind(1, folderId).Bind(2, std::int64_t{announced}));
}

std::vector<std::string> Records::MembersToTell(const std::string& folderId)
{
    const std::lock_guard lock(mutex_);
    Statement select(database_,
                     "SELECT name FROM member WHERE folder_id = ? AND (announced = 0 OR due = 1) ORDER BY name");
    return ReadNames(select.Bind(1, folderId));
}

bool Records::AddMember(const std::string& folderId, const std::string& name)
{
    const Durable durable(*this);
    Transaction transaction(database_);
    Statement(database_, "INSERT OR IGNORE INTO member (folder_id, name, announced) VALUES (?, ?, 0)")
        .Bind(1, folderId)
        .Bind(2, name)
        .Run();
    const bool isNew = database_.Changes() > 0;
    if (isNew)
        PutResend(database_, {0, folderId, name, ResendScope::kEverything, 0});
    transaction.Commit();
    return isNew;
}

void Records::LearnMembers(const std::string& folderId, const std::vector<std::string>& names, bool owesOwn)
{
    const Durable durable(*this);
    Transaction transaction(database_);
    for (const std::string& name : names) {
        Statement(database_, "INSERT OR IGNORE INTO member (folder_id, name, announced) VALUES (?, ?, 1)")
            .Bind(1, folderId)
            .Bind(2, name)
            .Run();
        if (database_.Changes() > 0 && owesOwn)
            PutResend(database_, {0, folderId, name, ResendScope::kOwn});
    }
    for (const std::string& name : names)
        Statement(database_, "UPDATE member SET told = max(told, ?) WHERE folder_id = ? AND name = ?")
            .Bind(1, static_cast<std::int64_t>(names.size() + 1))
            .Bind(2, folderId)
            .Bind(3, name)
            .Run();
    transaction.Commit();
}

void Records::NoteHeardFrom(const std::string& folderId, const std::string& member)
{
    const std::lock_guard lock(mutex_);
    NoteTraffic(database_, folderId, member);
}

std::optional<ItemRecord> Records::FindItem(const std::string& id)
{
    const std::lock_guard lock(mutex_);
    Statement select(database_,
                     "SELECT id, folder_id, stamp, member, deleted, modified FROM item WHERE id = ?");
    if (!select.Bind(1, id).Step())
        return std::nullopt;
    return ReadItemRecord(select);
}

std::vector<ItemRecord> Records::ItemsOf(const std::string& folderId)
{
    const std::lock_guard lock(mutex_);
    Statement select(database_,
                     "SELECT id, folder_id, stamp, member, deleted, modified FROM item "
                     "WHERE folder_id = ? AND deleted = 0");
    select.Bind(1, folderId);
    std::vector<ItemRecord> items;
    while (select.Step())
        items.push_back(ReadItemRecord(select));
    return items;
}

void Records::PutItem(const ItemRecord& item)
{
    const std::lock_guard lock(mutex_);
    Statement(database_,
              "INSERT OR REPLACE INTO item (id, folder_id, stamp, member, deleted, modified) VALUES (?, ?, "
              "?, ?, ?, ?)")
        .Bind(1, item.id)
        .Bind(2, item.folderId)
        .Bind(3, static_cast<std::int64_t>(item.version.stamp))
        .Bind(4, item.version.member)
        .Bind(5, std::int64_t{item.deleted})
        .Bind(6, static_cast<std::int64_t>(item.modified))
        .Run();
}

void Records::SetModified(const std::string& id, std::uint64_t modified)
{
    const std::lock_guard lock(mutex_);
    Statement(database_, "UPDATE item SET modified = ? WHERE id = ?")
        .Bind(1, static_cast<std::int64_t>(modified))
        .Bind(2, id)
        .Run();
}

std::int64_t Records::AddOutgoing(const std::string& path, const std::string& recipients)
{
    const Durable durable(*this);
    Statement(database_, "INSERT OR IGNORE INTO outgoing (path, recipients) VALUES (?, ?)")
        .Bind(1, path)
        .Bind(2, recipients)
        .Run();
    Statement select(database_, "SELECT number FROM outgoing WHERE path = ?");
    select.Bind(1, path).Step();
    return select.Number(0);
}

std::vector<OutgoingPackage> Records::Outgoing()
{
    const std::lock_guard lock(mutex_);
    Statement select(database_, "SELECT number, path, recipients FROM outgoing ORDER BY number");
    std::vector<OutgoingPackage> packages;
    while (select.Step())
        packages.push_back({select.Number(0), select.Text(1), select.Text(2)});
    return packages;
}

std::vector<Delivery> Records::PlanDeliveries(std::int64_t package, const PackagePlan& plan)
{
    const Durable durable(*this);
    Transaction transaction(database_);
    Statement planned(database_, "SELECT planned FROM outgoing WHERE number = ?");
    if (!planned.Bind(1, package).Step())
        return {};
    const bool isPlanned = planned.Number(0) != 0;
    planned.Reset();
    if (!isPlanned)
        NotePlan(database_, package, plan);
    transaction.Commit();
    return ReadDeliveries(database_, package);
}

bool Records::IsPlanned(std::int64_t package)
{
    const std::lock_guard lock(mutex_);
    Statement select(database_, "SELECT planned FROM outgoing WHERE number = ?");
    return select.Bind(1, package).Step() && select.Number(0) != 0;
}

void Records::FinishDelivery(std::int64_t package, const std::string& member)
{
    const std::lock_guard lock(mutex_);
    Statement(database_, "DELETE FROM delivery WHERE package = ? AND member = ?")
        .Bind(1, package)
        .Bind(2, member)
        .Run();
}

void Records::FinishOutgoing(std::int64_t package)
{
    const Durable durable(*this);
    Statement(database_, "DELETE FROM outgoing WHERE number = ?").Bind(1, package).Run();
}

std::uint64_t Records::LastReceived(const std::string& sender)
{
    const std::lock_guard lock(mutex_);
    Statement select(database_, "SELECT last FROM received WHERE sender = ?");
    return select.Bind(1, sender).Step() ? static_cast<std::uint64_t>(select.Number(0)) : 0;
}

void Records::SetLastReceived(const std::string& sender, std::uint64_t sequence)
{
    const Durable durable(*this);
    Statement(database_, "INSERT OR REPLACE INTO received (sender, last) VALUES (?, ?)")
        .Bind(1, sender)
        .Bind(2, static_cast<std::int64_t>(sequence))
        .Run();
}

void Records::AddResend(const std::string& folderId, const std::string& member, ResendScope scope,
                        std::uint64_t since)
{
    const Durable durable(*this);
    Transaction transaction(database_);
    PutResend(database_, {0, folderId, member, scope, since});
    transaction.Commit();
}

std::vector<ResendRecord> Records::Resends()
{
    const std::lock_guard lock(mutex_);
    return ReadResends(Statement(database_, kSelectResend));
}

std::optional<ResendRecord> Records::FindResend(const std::string& folderId, const std::string& member)
{
    const std::lock_guard lock(mutex_);
    return FindOneResend(database_, folderId, member);
}

std::optional<ResendRecord> Records::FindResend(std::int64_t number)
{
    const std::lock_guard lock(mutex_);
    Statement select(database_, (std::string(kSelectResend) + " WHERE number = ?").c_str());
    return First(ReadResends(std::move(select.Bind(1, number))));
}

void Records::SetResendProgress(std::int64_t number, std::int64_t done, std::int64_t total,
                                std::int64_t perSecond)
{
    const std::lock_guard lock(mutex_);
    Statement(database_, "UPDATE resend SET done = ?, total = ?, per_second = ? WHERE number = ?")
        .Bind(1, done)
        .Bind(2, total)
        .Bind(3, perSecond)
        .Bind(4, number)
        .Run();
}

int Records::CancelResends(const std::string& folderId, const std::string& member)
{
    const Durable durable(*this);
    Statement(database_,
              "UPDATE resend SET cancelled = 1 WHERE cancelled = 0 AND (?1 = '' OR folder_id = ?1) AND "
              "(?2 = '' OR member = ?2)")
        .Bind(1, folderId)
        .Bind(2, member)
        .Run();
    return database_.Changes();
}

void Records::FinishResend(std::int64_t number)
{
    const Durable durable(*this);
    Transaction transaction(database_);
    ForgetResend(database_, number);
    transaction.Commit();
}

std::int64_t Records::CountGiven(std::int64_t resend)
{
    const std::lock_guard lock(mutex_);
    Statement select(database_, "SELECT count(*) FROM given WHERE resend = ?");
    return select.Bind(1, resend).Step() ? select.Number(0) : 0;
}

bool Records::IsGiven(std::int64_t resend, const std::string& item)
{
    const std::lock_guard lock(mutex_);
    Statement select(database_, "SELECT 1 FROM given WHERE resend = ? AND item = ?");
    return select.Bind(1, resend).Bind(2, item).Step();
}

bool Records::OthersHave(const ResendRecord& resend, const std::string& item)
{
    const std::lock_guard lock(mutex_);
    Statement select(
        database_,
        "SELECT 1 FROM member WHERE folder_id = ?1 AND name <> ?2 AND announced = 1 AND NOT EXISTS "
        "(SELECT 1 FROM resend WHERE resend.folder_id = ?1 AND resend.member = member.name AND scope = 1 AND "
        "since = 0 AND cancelled = 0 AND NOT EXISTS (SELECT 1 FROM given WHERE resend = number AND item = ?3))");
    return select.Bind(1, resend.folderId).Bind(2, resend.member).Bind(3, item).Step();
}

std::vector<std::string> Records::DeletedBy(const std::string& folderId, const std::string& member)
{
    const std::lock_guard lock(mutex_);
    Statement select(database_, "SELECT id FROM item WHERE folder_id = ? AND deleted = 1 AND member = ?");
    return ReadNames(select.Bind(1, folderId).Bind(2, member));
}

void Records::PutUnsent(const UnsentItem& item)
{
    const Durable durable(*this);
    Statement(database_, "INSERT OR REPLACE INTO unsent (item, folder_id, subject, reason) VALUES (?, ?, ?, ?)")
        .Bind(1, item.id)
        .Bind(2, item.folderId)
        .Bind(3, item.subject)
        .Bind(4, item.reason)
        .Run();
}

std::vector<UnsentItem> Records::Unsent()
{
    const std::lock_guard lock(mutex_);
    Statement select(database_, "SELECT item, folder_id, subject, reason FROM unsent ORDER BY item");
    std::vector<UnsentItem> items;
    while (select.Step())
        items.push_back({select.Text(0), select.Text(1), select.Text(2), select.Text(3)});
    return items;
}

void Records::ForgetUnsent(const std::string& id)
{
    const std::lock_guard lock(mutex_);
    Statement(database_, "DELETE FROM unsent WHERE item = ?").Bind(1, id).Run();
}

}  // namespace quorvane::host
