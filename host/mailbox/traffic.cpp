#include "host/mailbox/traffic.h"

#include <algorithm>
#include <iterator>
#include <map>

namespace quorvane::host {

namespace {

constexpr std::uint64_t kTicksOfASecond = 10'000'000;

std::int64_t TrafficDayOf(std::uint64_t fileTime)
{
    return static_cast<std::int64_t>(fileTime / kTrafficDay);
}

// A clock that is ahead of this one makes changes of the future: they took no time.
std::int64_t BoundOf(std::uint64_t made, std::uint64_t now)
{
    const std::uint64_t took = now > made ? now - made : 0;
    for (const std::int64_t bound : kAppliedBounds)
        if (took <= static_cast<std::uint64_t>(bound) * kTicksOfASecond)
            return bound;
    return kLonger;
}

void AddTraffic(Database& database, const TrafficOfADay& more)
{
    Statement(database,
              "INSERT INTO traffic VALUES (?, ?, ?, ?, ?, ?, ?) ON CONFLICT (day) DO UPDATE SET "
              "packages_sent = packages_sent + excluded.packages_sent, "
              "items_sent = items_sent + excluded.items_sent, bytes_sent = bytes_sent + excluded.bytes_sent, "
              "packages_received = packages_received + excluded.packages_received, "
              "items_received = items_received + excluded.items_received, "
              "bytes_received = bytes_received + excluded.bytes_received")
        .Bind(1, more.day)
        .Bind(2, more.sent.packages)
        .Bind(3, more.sent.items)
        .Bind(4, more.sent.bytes)
        .Bind(5, more.received.packages)
        .Bind(6, more.received.items)
        .Bind(7, more.received.bytes)
        .Run();
    for (const char* sql :
         {"DELETE FROM traffic WHERE day <= ?", "DELETE FROM applied_within WHERE day <= ?"})
        Statement(database, sql).Bind(1, more.day - kTrafficDays).Run();
}

}  // namespace

void NoteSentTraffic(Database& database, const Traffic& sent, std::uint64_t now)
{
    AddTraffic(database, {TrafficDayOf(now), sent, {}});
}

void NoteReceivedTraffic(Database& database, const Traffic& received, const std::vector<std::uint64_t>& made,
                         std::uint64_t now)
{
    AddTraffic(database, {TrafficDayOf(now), {}, received});
    std::map<std::int64_t, std::int64_t> counts;
    for (const std::uint64_t time : made)
        ++counts[BoundOf(time, now)];
    Statement add(database,
                  "INSERT INTO applied_within VALUES (?, ?, ?) ON CONFLICT (day, seconds) DO UPDATE SET "
                  "items = items + excluded.items");
    for (const auto& [bound, items] : counts)
        add.Bind(1, TrafficDayOf(now)).Bind(2, bound).Bind(3, items).Run();
}

std::vector<TrafficOfADay> ReadTraffic(Database& database, std::int64_t first)
{
    Statement select(database,
                     "SELECT day, packages_sent, items_sent, bytes_sent, packages_received, items_received, "
                     "bytes_received FROM traffic WHERE day >= ? ORDER BY day");
    select.Bind(1, first);
    std::vector<TrafficOfADay> days;
    while (select.Step())
        days.push_back({select.Number(0),
                        {select.Number(1), select.Number(2), select.Number(3)},
                        {select.Number(4), select.Number(5), select.Number(6)}});
    return days;
}

std::vector<AppliedWithin> ReadAppliedWithin(Database& database, std::int64_t first)
{
    Statement select(database,
                     "SELECT seconds, sum(items) FROM applied_within WHERE day >= ? GROUP BY seconds");
    select.Bind(1, first);
    std::map<std::int64_t, std::int64_t> counts;
    while (select.Step())
        counts[select.Number(0)] = select.Number(1);
    std::vector<AppliedWithin> all;
    for (const std::int64_t bound : kAppliedBounds)
        all.push_back({bound, counts[bound]});
    all.push_back({kLonger, counts[kLonger]});
    return all;
}

}  // namespace quorvane::host
