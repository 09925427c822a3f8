#include "host/records.h"

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
void PlanDelivery(Database& database, std::int64_t package, const std::string& member,
                  const std::string& announcedFolder)
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
    Statement(database, "UPDATE member SET announced = 1 WHERE folder_id = ? AND name = ?")
        .Bind(1, announcedFolder)
        .Bind(2, member)
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
    Statement(database, "INSERT INTO mailbox (name, instance) VALUES (?, ?)")
        .Bind(1, name)
        .Bind(2, instance)
        .Run();
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

bool Records::AddMember(const std::string& folderId, const std::string& name, bool announced)
{
    const Durable durable(*this);
    Statement(database_, "INSERT OR IGNORE INTO member (folder_id, name, announced) VALUES (?, ?, ?)")
        .Bind(1, folderId)
        .Bind(2, name)
        .Bind(3, std::int64_t{announced})
        .Run();
    return database_.Changes() > 0;
}

void Records::AnnounceAgain(const std::string& folderId)
{
    const Durable durable(*this);
    Statement(database_, "UPDATE member SET announced = 0 WHERE folder_id = ?").Bind(1, folderId).Run();
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

std::vector<Delivery> Records::PlanDeliveries(std::int64_t package, const std::vector<std::string>& members,
                                              const std::string& announcedFolder)
{
    const Durable durable(*this);
    Transaction transaction(database_);
    Statement planned(database_, "SELECT planned FROM outgoing WHERE number = ?");
    if (!planned.Bind(1, package).Step())
        return {};
    if (planned.Number(0) == 0) {
        for (const std::string& member : members)
            PlanDelivery(database_, package, member, announcedFolder);
        Statement(database_, "UPDATE outgoing SET planned = 1 WHERE number = ?").Bind(1, package).Run();
    }
    planned.Reset();
    transaction.Commit();
    return ReadDeliveries(database_, package);
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

}  // namespace quorvane::host
