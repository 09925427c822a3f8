#include "host/mailbox/comparison_records.h"

#include "host/base/output.h"

namespace quorvane::host {

namespace {

std::int64_t TimeNumber(std::uint64_t time)
{
    return static_cast<std::int64_t>(time);
}

// Of how many items, and the first of them.
std::string ItemsText(const std::vector<std::string>& items)
{
    Json named = Json::array();
    for (const std::string& item : items)
        if (named.size() < ComparisonRecords::kItemsNamed)
            named.push_back(item);
    return Json{{"count", items.size()}, {"items", named}}.dump(-1, ' ', false,
                                                                Json::error_handler_t::replace);
}

void ReadItems(const std::string& text, ComparisonRecord& record)
{
    const Json json = Json::parse(text, nullptr, false);
    if (!json.is_object())
        return;
    record.count = json.value("count", std::size_t{0});
    for (const Json& item : json.value("items", Json::array()))
        if (item.is_string())
            record.items.push_back(item.get<std::string>());
}

void NotePairs(Database& database, std::uint64_t now)
{
    // Nothing is written while nothing is new.
    Statement find(
        database,
        "SELECT 1 FROM member JOIN device ON device.member = member.name LEFT JOIN comparison ON "
        "comparison.folder_id = member.folder_id AND comparison.device = device.id WHERE announced = 1 AND "
        "card <> '' AND comparison.device IS NULL LIMIT 1");
    if (!find.Step())
        return;
    find.Reset();
    Statement(database,
              "INSERT OR IGNORE INTO comparison (folder_id, device, since) SELECT member.folder_id, "
              "device.id, ? FROM member JOIN device ON device.member = member.name WHERE announced = 1 AND "
              "card <> ''")
        .Bind(1, TimeNumber(now))
        .Run();
}

}  // namespace

void WantComparisons(Database& database, const std::string& folderId, const std::string& device,
                     std::uint64_t now)
{
    NotePairs(database, now);
    Statement(database,
              "UPDATE comparison SET wanted = 1, tries = 0 WHERE (?1 = '' OR folder_id = ?1) AND (?2 = '' OR "
              "device = ?2)")
        .Bind(1, folderId)
        .Bind(2, device)
        .Run();
}

std::vector<ComparisonRecord> ComparisonRecords::All(std::uint64_t now)
{
    NotePairs(database_, now);
    Statement select(
        database_,
        "SELECT share.folder_id, share.name, device.id, device.member, since, wanted, opened, equal, "
        "differed, tries, items, (SELECT count(*) FROM delivery WHERE delivery.device = device.id) FROM "
        "comparison JOIN share USING (folder_id) JOIN device ON device.id = comparison.device JOIN member ON "
        "member.folder_id = share.folder_id AND member.name = device.member WHERE silent = 0 AND EXISTS "
        "(SELECT 1 FROM folder_device JOIN folder USING (founding) WHERE folder.folder_id = share.folder_id "
        "AND state = 1 AND folder_device.device = device.id AND is_in = 1 AND has = 1 AND told = 1) ORDER BY "
        "share.name, device.member, device.id");
    std::vector<ComparisonRecord> records;
    while (select.Step()) {
        ComparisonRecord record;
        record.folderId = select.Text(0);
        record.folder = select.Text(1);
        record.device = select.Text(2);
        record.member = select.Text(3);
        record.since = static_cast<std::uint64_t>(select.Number(4));
        record.isWanted = select.Number(5) != 0;
        record.opened = static_cast<std::uint64_t>(select.Number(6));
        record.equal = static_cast<std::uint64_t>(select.Number(7));
        record.differed = static_cast<std::uint64_t>(select.Number(8));
        record.tries = select.Number(9);
        ReadItems(select.Text(10), record);
        record.unacknowledged = select.Number(11);
        records.push_back(std::move(record));
    }
    return records;
}

void ComparisonRecords::NoteOpened(const std::string& folderId, const std::string& device, std::uint64_t now)
{
    Statement(database_, "UPDATE comparison SET opened = ?3 WHERE folder_id = ?1 AND device = ?2")
        .Bind(1, folderId)
        .Bind(2, device)
        .Bind(3, TimeNumber(now))
        .Run();
}

void ComparisonRecords::NoteEqual(const std::string& folderId, const std::string& device, std::uint64_t now)
{
    NotePairs(database_, now);
    Statement(database_,
              "UPDATE comparison SET equal = ?3, wanted = 0, tries = 0 WHERE folder_id = ?1 AND device = ?2")
        .Bind(1, folderId)
        .Bind(2, device)
        .Bind(3, TimeNumber(now))
        .Run();
}

void ComparisonRecords::NoteDiffered(const std::string& folderId, const std::string& device,
                                     const std::vector<std::string>& items, std::uint64_t now)
{
    NotePairs(database_, now);
    Statement(database_,
              "UPDATE comparison SET differed = ?3, items = ?4, wanted = 1, tries = tries + 1 WHERE "
              "folder_id = ?1 AND device = ?2")
        .Bind(1, folderId)
        .Bind(2, device)
        .Bind(3, TimeNumber(now))
        .Bind(4, ItemsText(items))
        .Run();
}

}  // namespace quorvane::host
