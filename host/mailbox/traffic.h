// host/mailbox/traffic.h: how much passed between this mailbox and the exchange on each day, and how long
// changes of others took until they were applied here; in host.db.
//
// All functions throw a HostError when the database fails. Those that write do so within the transaction of
// what they count, so that a kill counts nothing twice. Days are counted from 1 January 1601 in UTC, as
// FILETIMEs are.
#ifndef QUORVANE_HOST_MAILBOX_TRAFFIC_H_
#define QUORVANE_HOST_MAILBOX_TRAFFIC_H_

#include <cstdint>
#include <vector>

#include "host/base/sqlite.h"

namespace quorvane::host {

inline constexpr std::uint64_t kTrafficDay = std::uint64_t{24} * 3600 * 10'000'000;

// How long days are remembered.
inline constexpr std::int64_t kTrafficDays = 400;

// What went one way. Items are counted with deletions; bytes are those of sealed packages.
struct Traffic {
    std::int64_t packages = 0;
    std::int64_t items = 0;
    std::int64_t bytes = 0;

    friend bool operator==(const Traffic&, const Traffic&) = default;
};

struct TrafficOfADay {
    std::int64_t day = 0;
    Traffic sent;
    Traffic received;
};

// How many changes were applied within so many seconds of their making, and not within the bound before.
struct AppliedWithin {
    std::int64_t seconds = 0;
    std::int64_t items = 0;
};

// The bounds by which that is counted; what took longer than the last one stands under kLonger.
inline constexpr std::int64_t kAppliedBounds[] = {1, 2, 5, 10, 30, 60, 300, 3600, 21'600, 86'400};
inline constexpr std::int64_t kLonger = std::int64_t{1} << 40;

// now: a FILETIME, as all times here.
void NoteSentTraffic(Database& database, const Traffic& sent, std::uint64_t now);
// made: when each of the changes was made that are applied now.
void NoteReceivedTraffic(Database& database, const Traffic& received, const std::vector<std::uint64_t>& made,
                         std::uint64_t now);

// The days from `first` on, by rising day; without those on which nothing passed.
std::vector<TrafficOfADay> ReadTraffic(Database& database, std::int64_t first);
// Of the same days, a count for each bound and for kLonger.
std::vector<AppliedWithin> ReadAppliedWithin(Database& database, std::int64_t first);

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_MAILBOX_TRAFFIC_H_
