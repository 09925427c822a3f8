#include "host/mailbox/flag_records.h"

#include "host/base/errors.h"
#include "host/exchange/error.h"
#include "host/mailbox/records.h"
#include "host/store/properties.h"

namespace quorvane::host {

namespace {

constexpr char kSelectFlags[] =
    "SELECT item, item_flags.folder_id, flags, item_flags.pending, due FROM item_flags ";

// Devices of a folder ?1 that may be sealed to, and whose members aren't being sent it.
constexpr char kSelectDevices[] =
    "SELECT device.id FROM folder_device JOIN folder USING (founding) JOIN device ON device.id = "
    "folder_device.device WHERE folder.folder_id = ?1 AND state = 1 AND is_in = 1 AND has = 1 AND told = 1 "
    "AND card <> '' AND silent = 0 AND flags = ?2 AND NOT EXISTS (SELECT 1 FROM resend WHERE "
    "resend.folder_id = ?1 AND resend.member = device.member AND cancelled = 0) ORDER BY device.id";

std::string FlagText(const exchange::ItemFlags& flags)
{
    exchange::WireWriter bytes;
    flags.Write(bytes);
    return Hex(Bytes(bytes.Bytes().begin(), bytes.Bytes().end()));
}

exchange::ItemFlags FlagsOfText(const std::string& item, const std::string& text)
{
    try {
        const Bytes bytes = FromHex(text);
        const std::string_view view(reinterpret_cast<const char*>(bytes.data()), bytes.size());
        exchange::WireReader reader(view, "its record");
        const exchange::ItemFlags flags = exchange::ItemFlags::Read(reader, "its record");
        reader.End();
        return flags;
    } catch (const exchange::Error& error) {
        Fail("read the flags of the item", item, error.what());
    }
}

std::vector<std::string> DevicesWith(Database& database, const std::string& folderId, std::int64_t state)
{
    Statement select(database, kSelectDevices);
    select.Bind(1, folderId).Bind(2, state);
    std::vector<std::string> devices;
    while (select.Step())
        devices.push_back(select.Text(0));
    return devices;
}

}  // namespace

FlagRecords::FlagRecords(const std::string& path) : database_(path, Database::Mode::kOpen)
{
    database_.Execute("PRAGMA synchronous=NORMAL");
}

std::vector<FlagRecord> FlagRecords::Select(const char* where, const std::string& key, std::int64_t most)
{
    const std::lock_guard lock(mutex_);
    Statement select(database_, (std::string(kSelectFlags) + where + " LIMIT ?2").c_str());
    select.Bind(1, key).Bind(2, most);
    std::vector<FlagRecord> records;
    while (select.Step())
        records.push_back({select.Text(0), select.Text(1), FlagsOfText(select.Text(0), select.Text(2)),
                           select.Number(3) != 0, static_cast<std::uint8_t>(select.Number(4))});
    return records;
}

bool FlagRecords::AreShared(const std::string& folderId)
{
    const std::lock_guard lock(mutex_);
    Statement select(database_, "SELECT flags FROM share WHERE folder_id = ?");
    return select.Bind(1, folderId).Step() && select.Number(0) != 0;
}

std::optional<FlagRecord> FlagRecords::Find(const std::string& item)
{
    const auto found = Select("WHERE item = ?1", item, 1);
    return found.empty() ? std::nullopt : std::optional(found.front());
}

std::map<std::string, exchange::ItemFlags> FlagRecords::Of(const std::string& folderId)
{
    std::map<std::string, exchange::ItemFlags> flags;
    for (FlagRecord& record : Select("WHERE folder_id = ?1", folderId, -1))
        flags.emplace(std::move(record.item), record.flags);
    return flags;
}

std::vector<FlagRecord> FlagRecords::Due()
{
    return Select(
        "JOIN item ON item.id = item_flags.item WHERE ?1 = '' AND due <> 0 AND deleted = 0 AND whole = 1", {},
        -1);
}

std::vector<FlagRecord> FlagRecords::Pending(const std::string& folderId, std::size_t most)
{
    return Select("WHERE folder_id = ?1 AND pending = 1 ORDER BY item", folderId,
                  static_cast<std::int64_t>(most));
}

bool FlagRecords::HasPending()
{
    return !Select("WHERE ?1 = '' AND pending = 1", {}, 1).empty();
}

void FlagRecords::Put(const std::vector<FlagRecord>& records)
{
    if (records.empty())
        return;
    const std::lock_guard lock(mutex_);
    Transaction transaction(database_);
    Statement put(
        database_,
        "INSERT OR REPLACE INTO item_flags (item, folder_id, flags, pending, due) VALUES (?, ?, ?, ?, ?)");
    for (const FlagRecord& record : records)
        put.Bind(1, record.item)
            .Bind(2, record.folderId)
            .Bind(3, FlagText(record.flags))
            .Bind(4, std::int64_t{record.isPending})
            .Bind(5, std::int64_t{record.due})
            .Run();
    transaction.Commit();
}

void FlagRecords::NoteShown(const FlagRecord& record)
{
    const std::lock_guard lock(mutex_);
    Statement(database_, "UPDATE item_flags SET due = 0 WHERE item = ? AND flags = ?")
        .Bind(1, record.item)
        .Bind(2, FlagText(record.flags))
        .Run();
}

std::int64_t FlagRecords::CountWaiting(const std::string& folderId)
{
    const std::lock_guard lock(mutex_);
    Statement select(database_,
                     "SELECT count(*) FROM item_flags WHERE folder_id = ? AND NOT EXISTS (SELECT 1 FROM item "
                     "WHERE item.id = item_flags.item)");
    return select.Bind(1, folderId).Step() ? select.Number(0) : 0;
}

bool FlagRecords::KnowsOf(const std::string& folderId, const std::string& device)
{
    const std::lock_guard lock(mutex_);
    Statement select(
        database_,
        "SELECT 1 FROM folder_device JOIN folder USING (founding) WHERE folder_id = ? AND device = ? "
        "AND state = 1 AND flags > 0");
    return select.Bind(1, folderId).Bind(2, device).Step();
}

std::vector<std::string> FlagRecords::Told(const std::string& folderId)
{
    const std::lock_guard lock(mutex_);
    return DevicesWith(database_, folderId, 2);
}

std::vector<std::string> FlagRecords::Owed(const std::string& folderId)
{
    const std::lock_guard lock(mutex_);
    return DevicesWith(database_, folderId, 1);
}

// What others rely on is on the disk when this returns, as all that is on its way out.
void FlagRecords::NoteGoing(const Going& going)
{
    const std::lock_guard lock(mutex_);
    database_.Execute("PRAGMA synchronous=FULL");
    Transaction transaction(database_);
    for (const std::string& path : going.paths)
        Statement(database_,
                  "INSERT INTO outgoing (path, recipients, planned, sequence, kind) VALUES (?, ?, 1, ?, ?)")
            .Bind(1, path)
            .Bind(2, going.recipients)
            .Bind(3, static_cast<std::int64_t>(NumberPackage(database_, going.devices)))
            .Bind(4, std::int64_t{static_cast<int>(exchange::PackageKind::kFlags)})
            .Run();
    Statement sent(database_, "UPDATE item_flags SET pending = 0 WHERE item = ? AND flags = ?");
    for (const FlagRecord& record : going.sent)
        sent.Bind(1, record.item).Bind(2, FlagText(record.flags)).Run();
    Statement told(
        database_,
        "UPDATE folder_device SET flags = 2 WHERE device = ? AND flags = 1 AND founding IN (SELECT founding "
        "FROM folder WHERE folder_id = ? AND state = 1)");
    if (going.isAll)
        for (const std::string& device : going.devices)
            told.Bind(1, device).Bind(2, going.folderId).Run();
    transaction.Commit();
    database_.Execute("PRAGMA synchronous=NORMAL");
}

}  // namespace quorvane::host
