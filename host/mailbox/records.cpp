#include "host/mailbox/records.h"

#include <algorithm>
#include <map>
#include <set>

#include "host/base/errors.h"
#include "host/mailbox/device.h"
#include "host/mailbox/item_text.h"
#include "host/mailbox/traffic.h"

namespace quorvane::host {

namespace {

// Whether a row of `device` is one that what happens in the folder ?1 may be sealed to.
#define QV_SHARES_THE_FOLDER                                                                                \
    "card <> '' AND silent = 0 AND EXISTS (SELECT 1 FROM folder_device JOIN folder USING (founding) WHERE " \
    "folder.folder_id = ?1 "                                                                                \
    "AND state = 1 AND folder_device.device = device.id AND is_in = 1 AND has = 1 AND told = 1)"

Share ReadShare(const Statement& row)
{
    return {row.Text(0), row.Text(1), row.Text(2), row.Text(3), row.Number(4) != 0, row.Number(5) != 0};
}

std::optional<Share> FindOneShare(Database& database, const char* sql, const std::string& key)
{
    Statement select(database, sql);
    if (!select.Bind(1, key).Step())
        return std::nullopt;
    return ReadShare(select);
}

#define QV_SELECT_ITEM \
    "SELECT id, folder_id, stamp, member, deleted, modified, heads, whole, pending FROM item"

constexpr std::size_t kItemsInPage = 200;

ItemRecord ReadItemRecord(const Statement& row)
{
    const std::string heads = row.Text(6);
    const auto known = heads.empty() ? exchange::ItemHeads() : ParseHeads(heads);
    if (!known)
        Fail("read what is known of the item", row.Text(0), "its record is damaged");
    return {row.Text(0),
            row.Text(1),
            {static_cast<std::uint64_t>(row.Number(2)), row.Text(3)},
            row.Number(4) != 0,
            static_cast<std::uint64_t>(row.Number(5)),
            *known,
            row.Number(7) != 0,
            row.Number(8) != 0};
}

std::vector<ItemRecord> ReadItemRecords(Statement& select)
{
    std::vector<ItemRecord> items;
    while (select.Step())
        items.push_back(ReadItemRecord(select));
    return items;
}

std::vector<std::string> ReadNames(Statement& select)
{
    std::vector<std::string> names;
    while (select.Step())
        names.push_back(select.Text(0));
    return names;
}

// What a member gets isn't owed to it any more.
void NoteGiven(Database& database, const PackagePlan& plan, const std::string& member)
{
    std::map<std::string, std::int64_t> resends;  // of this member, by folder
    Statement find(database, "SELECT folder_id, number FROM resend WHERE member = ?");
    find.Bind(1, member);
    while (find.Step())
        resends.emplace(find.Text(0), find.Number(1));
    Statement give(database, "INSERT OR IGNORE INTO given (resend, item) VALUES (?, ?)");
    for (const PackagePlan::Item& item : plan.items)
        if (const auto resend = resends.find(item.folderId); resend != resends.end())
            give.Bind(1, resend->second).Bind(2, item.id).Run();
}

constexpr char kSelectResend[] =
    "SELECT number, folder_id, member, scope, since, cancelled, done, total, per_second FROM resend";

std::vector<ResendRecord> ReadResends(Statement&& select)
{
    std::vector<ResendRecord> resends;
    while (select.Step())
        resends.push_back({select.Number(0), select.Text(1), select.Text(2),
                           static_cast<ResendScope>(select.Number(3)),
                           static_cast<std::uint64_t>(select.Number(4)), select.Number(5) != 0,
                           select.Number(6), select.Number(7), select.Number(8)});
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
    const bool owesMost = before && before->scope == ResendScope::kAgain;
    if (before && (owesMost || wanted.scope != ResendScope::kEverything || (owesAll && wanted.since != 0))) {
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

std::vector<std::string> ReachableDevices(Database& database, const std::string& folderId,
                                          const std::string& member)
{
    Statement select(database,
                     "SELECT id FROM device WHERE member = ?2 AND " QV_SHARES_THE_FOLDER " ORDER BY id");
    return ReadNames(select.Bind(1, folderId).Bind(2, member));
}

// Those of a member's that may have all of a package.
std::vector<std::string> ReceiversOf(Database& database, const PackagePlan& plan, const std::string& member)
{
    std::set<std::string> folders;
    for (const PackagePlan::Item& item : plan.items)
        folders.insert(item.folderId);
    if (folders.empty())
        return {};
    std::vector<std::string> devices = ReachableDevices(database, *folders.begin(), member);
    for (const std::string& folder : folders) {
        const std::vector<std::string> allowed = ReachableDevices(database, folder, member);
        std::erase_if(devices, [&](const std::string& device) {
            return std::find(allowed.begin(), allowed.end(), device) == allowed.end();
        });
    }
    return devices;
}

bool IsMember(Database& database, const std::string& folderId, const std::string& name)
{
    Statement select(database, "SELECT 1 FROM member WHERE folder_id = ? AND name = ?");
    return select.Bind(1, folderId).Bind(2, name).Step();
}

// A package passes a member by who has no device yet: what was made here is owed to him.
void NoteOwed(Database& database, const PackagePlan& plan, const std::string& member)
{
    std::set<std::string> folders;
    for (const PackagePlan::Item& item : plan.items)
        if (folders.insert(item.folderId).second && IsMember(database, item.folderId, member))
            PutResend(database, {0, item.folderId, member, ResendScope::kOwn});
}

// One with a device that is silent gets what he lacks when he is compared.
bool IsSilent(Database& database, const std::string& member)
{
    Statement select(database, "SELECT 1 FROM device WHERE member = ? AND silent = 1");
    return select.Bind(1, member).Step();
}

// What has changed again since is still to be sent.
void NoteSent(Database& database, const PackagePlan& plan)
{
    Statement sent(database, "UPDATE item SET pending = 0 WHERE id = ? AND heads = ?");
    for (const PackagePlan::Item& item : plan.items)
        sent.Bind(1, item.id).Bind(2, item.heads).Run();
}

void NotePlan(Database& database, std::int64_t package, const PackagePlan& plan)
{
    std::vector<std::string> devices;
    if (!plan.device.empty())
        devices.push_back(plan.device);
    for (const std::string& member : plan.members) {
        const std::vector<std::string> his = ReceiversOf(database, plan, member);
        devices.insert(devices.end(), his.begin(), his.end());
        if (his.empty()) {
            if (!IsSilent(database, member))
                NoteOwed(database, plan, member);
            continue;
        }
        NoteGiven(database, plan, member);
    }
    Statement forget(database, "DELETE FROM unsent WHERE item = ?");
    for (const PackagePlan::Item& item : plan.items)
        forget.Bind(1, item.id).Run();
    if (plan.isForAll)
        NoteSent(database, plan);
    const std::uint64_t sequence = NumberPackage(database, devices);
    if (sequence > 0 && !plan.items.empty())
        NoteSentTraffic(database, {0, static_cast<std::int64_t>(plan.items.size()), 0}, FileTimeNow());
    Statement(database, "UPDATE outgoing SET planned = 1, sequence = ? WHERE number = ?")
        .Bind(1, static_cast<std::int64_t>(sequence))
        .Bind(2, package)
        .Run();
}

}  // namespace

std::uint64_t NumberPackage(Database& database, const std::vector<std::string>& devices)
{
    if (devices.empty())
        return 0;
    Statement(database, "UPDATE mailbox SET sequence = sequence + 1").Run();
    Statement select(database, "SELECT sequence FROM mailbox");
    if (!select.Step())
        Fail("number a package of", database.Path(), "the mailbox's own row is missing");
    const std::int64_t sequence = select.Number(0);
    Statement note(
        database,
        "INSERT INTO delivery (sequence, device, previous) SELECT ?, id, sent FROM device WHERE id = ?");
    Statement raise(database, "UPDATE device SET sent = ? WHERE id = ?");
    for (const std::string& device : devices) {
        note.Bind(1, sequence).Bind(2, device).Run();
        raise.Bind(1, sequence).Bind(2, device).Run();
    }
    return static_cast<std::uint64_t>(sequence);
}

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

std::vector<Share> Records::Shares()
{
    const std::lock_guard lock(mutex_);
    Statement select(database_,
                     "SELECT folder_id, entry_id, store_id, name, flags, tree FROM share ORDER BY folder_id");
    std::vector<Share> shares;
    while (select.Step())
        shares.push_back(ReadShare(select));
    return shares;
}

std::optional<Share> Records::FindShare(const std::string& folderId)
{
    const std::lock_guard lock(mutex_);
    return FindOneShare(
        database_, "SELECT folder_id, entry_id, store_id, name, flags, tree FROM share WHERE folder_id = ?",
        folderId);
}

std::optional<Share> Records::FindShareByEntryId(const std::string& entryId)
{
    const std::lock_guard lock(mutex_);
    return FindOneShare(
        database_, "SELECT folder_id, entry_id, store_id, name, flags, tree FROM share WHERE entry_id = ?",
        entryId);
}

std::vector<std::string> Records::Members(const std::string& folderId)
{
    const std::lock_guard lock(mutex_);
    Statement select(database_, "SELECT name FROM member WHERE folder_id = ? ORDER BY name");
    return ReadNames(select.Bind(1, folderId));
}

std::vector<std::string> Records::Members(const std::string& folderId, bool hasFolder)
{
    const std::lock_guard lock(mutex_);
    Statement select(database_,
                     "SELECT name FROM member WHERE folder_id = ? AND announced = ? ORDER BY name");
    return ReadNames(select.Bind(1, folderId).Bind(2, std::int64_t{hasFolder}));
}

std::optional<ItemRecord> Records::FindItem(const std::string& id)
{
    const std::lock_guard lock(mutex_);
    Statement select(database_, QV_SELECT_ITEM " WHERE id = ?");
    if (!select.Bind(1, id).Step())
        return std::nullopt;
    return ReadItemRecord(select);
}

std::vector<std::optional<ItemRecord>> Records::FindItems(const std::vector<std::string>& ids)
{
    const std::lock_guard lock(mutex_);
    const ReadTogether reading(database_);
    std::vector<std::optional<ItemRecord>> items;
    Statement select(database_, QV_SELECT_ITEM " WHERE id = ?");
    for (const std::string& id : ids) {
        items.push_back(select.Bind(1, id).Step() ? std::optional(ReadItemRecord(select)) : std::nullopt);
        select.Reset();
    }
    return items;
}

std::int64_t Records::CountItems(const std::string& folderId)
{
    const std::lock_guard lock(mutex_);
    Statement select(database_, "SELECT count(*) FROM item WHERE folder_id = ? AND deleted = 0");
    select.Bind(1, folderId).Step();
    return select.Number(0);
}

// The rows of a folder in their order, of which each page is read then.
std::vector<std::int64_t> Records::ItemRows(const std::string& folderId, Deleted deleted)
{
    const std::lock_guard lock(mutex_);
    Statement select(database_,
                     "SELECT rowid FROM item WHERE folder_id = ? AND (deleted = 0 OR ? = 1) ORDER BY id");
    select.Bind(1, folderId).Bind(2, std::int64_t{deleted == Deleted::kIncluded});
    std::vector<std::int64_t> rows;
    while (select.Step())
        rows.push_back(select.Number(0));
    return rows;
}

std::vector<ItemRecord> Records::ReadItemRows(std::span<const std::int64_t> rows)
{
    const std::lock_guard lock(mutex_);
    const ReadTogether reading(database_);
    std::vector<ItemRecord> items;
    Statement select(database_, QV_SELECT_ITEM " WHERE rowid = ?");
    for (const std::int64_t row : rows) {
        if (select.Bind(1, row).Step())
            items.push_back(ReadItemRecord(select));
        select.Reset();
    }
    return items;
}

void Records::ForEachItem(const std::string& folderId, Deleted deleted,
                          const std::function<void(const ItemRecord&)>& visit)
{
    const std::vector<std::int64_t> rows = ItemRows(folderId, deleted);
    for (std::size_t done = 0; done < rows.size(); done += kItemsInPage) {
        const auto page = std::span(rows).subspan(done, std::min(kItemsInPage, rows.size() - done));
        for (const ItemRecord& item : ReadItemRows(page))
            if (item.folderId == folderId && (!item.deleted || deleted == Deleted::kIncluded))
                visit(item);
    }
}

std::vector<std::string> Records::PendingItems(const std::string& folderId)
{
    const std::lock_guard lock(mutex_);
    Statement select(database_, "SELECT id FROM item WHERE folder_id = ? AND pending = 1 AND whole = 1");
    return ReadNames(select.Bind(1, folderId));
}

std::vector<ItemRecord> Records::MissingItems()
{
    const std::lock_guard lock(mutex_);
    Statement select(database_, QV_SELECT_ITEM " WHERE whole = 0 AND deleted = 0 AND heads <> ''");
    return ReadItemRecords(select);
}

std::vector<ItemRecord> Records::ItemsInConflict()
{
    const std::lock_guard lock(mutex_);
    Statement select(database_, QV_SELECT_ITEM " WHERE beaten > 0 ORDER BY folder_id, id");
    return ReadItemRecords(select);
}

// Of a deletion nothing else is left to tell of it: neither message nor row.
void Records::PutItem(const ItemRecord& item)
{
    if (item.deleted && item.isPending) {
        const Durable durable(*this);
        WriteItem(item);
    } else {
        const std::lock_guard lock(mutex_);
        WriteItem(item);
    }
}

void Records::PutItems(const std::vector<ItemRecord>& items)
{
    const Durable durable(*this);
    Transaction transaction(database_);
    for (const ItemRecord& item : items)
        WriteItem(item);
    transaction.Commit();
}

void Records::WriteItem(const ItemRecord& item)
{
    Statement(database_,
              "INSERT INTO item (id, folder_id, stamp, member, deleted, modified, heads, whole, pending, "
              "beaten) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?) ON CONFLICT (id) DO UPDATE SET "
              "folder_id = excluded.folder_id, stamp = excluded.stamp, member = excluded.member, "
              "deleted = excluded.deleted, modified = excluded.modified, heads = excluded.heads, "
              "whole = excluded.whole, pending = excluded.pending, beaten = excluded.beaten")
        .Bind(1, item.id)
        .Bind(2, item.folderId)
        .Bind(3, static_cast<std::int64_t>(item.version.stamp))
        .Bind(4, item.version.member)
        .Bind(5, std::int64_t{item.deleted})
        .Bind(6, static_cast<std::int64_t>(item.modified))
        .Bind(7, item.heads.Shown() ? FormatHeads(item.heads) : std::string())
        .Bind(8, std::int64_t{item.isWhole})
        .Bind(9, std::int64_t{item.isPending})
        .Bind(10, static_cast<std::int64_t>(item.heads.Shown() ? item.heads.Beaten().size() : 0))
        .Run();
    if (item.deleted)
        Statement(database_, "DELETE FROM item_flags WHERE item = ?").Bind(1, item.id).Run();
}

void Records::ForgetItem(const std::string& id)
{
    const std::lock_guard lock(mutex_);
    Statement(database_, "DELETE FROM item WHERE id = ?").Bind(1, id).Run();
    Statement(database_, "DELETE FROM item_flags WHERE item = ?").Bind(1, id).Run();
}

void Records::SetModified(const std::string& id, std::uint64_t modified)
{
    const std::lock_guard lock(mutex_);
    Statement(database_, "UPDATE item SET modified = ?, whole = 1 WHERE id = ?")
        .Bind(1, static_cast<std::int64_t>(modified))
        .Bind(2, id)
        .Run();
}

Records::Changer Records::OwnChanger()
{
    const std::lock_guard lock(mutex_);
    Statement select(database_, "SELECT device, epoch FROM mailbox");
    const auto device = select.Step() ? exchange::ParseDeviceId(select.Text(0)) : std::nullopt;
    if (!device)
        Fail("read", database_.Path(), "the mailbox has no device");
    return {exchange::ChangerOf(*device, ParseEpoch(select.Text(1))), *device};
}

std::string Records::MemberOf(const exchange::DeviceId& device)
{
    const std::lock_guard lock(mutex_);
    Statement select(
        database_,
        "SELECT name FROM mailbox WHERE device = ?1 UNION ALL SELECT member FROM device WHERE id = ?1");
    return select.Bind(1, exchange::TextOf(device)).Step() ? select.Text(0) : std::string();
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
    Statement select(
        database_,
        "SELECT number, path, recipients, planned, sequence, laid, kind FROM outgoing ORDER BY number");
    std::vector<OutgoingPackage> packages;
    while (select.Step())
        packages.push_back({select.Number(0), select.Text(1), select.Text(2), select.Number(3) != 0,
                            static_cast<std::uint64_t>(select.Number(4)), select.Number(5) != 0,
                            static_cast<exchange::PackageKind>(select.Number(6))});
    return packages;
}

void Records::PlanPackage(std::int64_t package, const PackagePlan& plan)
{
    const Durable durable(*this);
    Transaction transaction(database_);
    Statement planned(database_, "SELECT planned FROM outgoing WHERE number = ?");
    if (!planned.Bind(1, package).Step() || planned.Number(0) != 0)
        return;
    planned.Reset();
    NotePlan(database_, package, plan);
    transaction.Commit();
}

bool Records::IsPlanned(std::int64_t package)
{
    const std::lock_guard lock(mutex_);
    Statement select(database_, "SELECT planned FROM outgoing WHERE number = ?");
    return select.Bind(1, package).Step() && select.Number(0) != 0;
}

void Records::NoteLaid(std::int64_t package, std::uint64_t bytes)
{
    const Durable durable(*this);
    Transaction transaction(database_);
    Statement(database_, "UPDATE outgoing SET laid = 1 WHERE number = ?").Bind(1, package).Run();
    if (bytes > 0)
        NoteSentTraffic(database_, {1, 0, static_cast<std::int64_t>(bytes)}, FileTimeNow());
    transaction.Commit();
}

void Records::FinishOutgoing(std::int64_t package)
{
    const Durable durable(*this);
    Statement(database_, "DELETE FROM outgoing WHERE number = ?").Bind(1, package).Run();
}

bool Records::IsReachable(const std::string& folderId, const std::string& member)
{
    const std::lock_guard lock(mutex_);
    return !ReachableDevices(database_, folderId, member).empty();
}

bool Records::MayGet(const std::string& folderId, const std::string& device)
{
    const std::lock_guard lock(mutex_);
    Statement select(database_, "SELECT 1 FROM device WHERE id = ?2 AND " QV_SHARES_THE_FOLDER);
    return select.Bind(1, folderId).Bind(2, device).Step();
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
    Statement(
        database_,
        "UPDATE folder_device SET flags = 1 WHERE flags = 2 AND EXISTS (SELECT 1 FROM resend JOIN folder "
        "USING (folder_id) JOIN device ON device.member = resend.member WHERE number = ? AND "
        "folder.founding = folder_device.founding AND device.id = folder_device.device)")
        .Bind(1, number)
        .Run();
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
        "SELECT 1 FROM member WHERE folder_id = ?1 AND name <> ?2 AND announced = 1 AND NOT EXISTS (SELECT 1 "
        "FROM resend WHERE resend.folder_id = ?1 AND resend.member = member.name AND scope = 1 AND since = 0 "
        "AND cancelled = 0 AND NOT EXISTS (SELECT 1 FROM given WHERE resend = number AND item = ?3))");
    return select.Bind(1, resend.folderId).Bind(2, resend.member).Bind(3, item).Step();
}

std::vector<std::string> Records::DeletedBy(const std::string& folderId, const std::string& member)
{
    const std::lock_guard lock(mutex_);
    Statement select(database_,
                     "SELECT id FROM item WHERE folder_id = ?1 AND deleted = 1 AND (?2 = '' OR member = ?2)");
    return ReadNames(select.Bind(1, folderId).Bind(2, member));
}

void Records::PutUnsent(const UnsentItem& item)
{
    const Durable durable(*this);
    Statement(database_,
              "INSERT OR REPLACE INTO unsent (item, folder_id, subject, reason) VALUES (?, ?, ?, ?)")
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
