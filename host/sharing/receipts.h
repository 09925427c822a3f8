// host/sharing/receipts.h: what members have taken of what was sent, what is missing, and what this mailbox
// tells of that itself.
#ifndef QUORVANE_HOST_SHARING_RECEIPTS_H_
#define QUORVANE_HOST_SHARING_RECEIPTS_H_

#include <chrono>
#include <functional>
#include <map>
#include <set>
#include <string>

#include "host/base/errors.h"
#include "host/sharing/transport.h"

namespace quorvane::host {

// Somebody else uses the mailbox's keys: this one must not go on.
struct CopyAtWork : HostError {
    CopyAtWork()
        : HostError(
              "another copy of this mailbox is at work in the exchange, with the same keys: only one may "
              "ever run; "
              "a second machine needs a mailbox of its own ('quorvane init')")
    {}
};

// For the run's thread alone. Methods throw a HostError, or an exchange::Error when the place can't be used.
class Receipts {
public:
    static constexpr std::int64_t kMonth = 30 * 86'400;

    // report: gets one line for the user. name: this mailbox's, for its card. askAfter: how many seconds pass
    // at the least until what a member misses is looked for once more. silentAfter: after how many seconds a
    // device of which nothing is heard holds nothing up any more.
    Receipts(std::string name, std::function<void(const std::string&)> report,
             std::int64_t askAfter = exchange::GapWatch::kPatience, std::int64_t silentAfter = kMonth)
        : name_(std::move(name)), report_(std::move(report)), askAfter_(askAfter), silentAfter_(silentAfter)
    {}

    // Lays the card down, and looks whether the mailbox is behind what it did itself: then it came out of a
    // backup, and begins anew. Does this once; before the first package is sent or taken.
    void Begin(Transport& transport);

    // Looks, now and then, for the cards of known devices, for strangers, and for what members acknowledge;
    // removes from the exchange what all have, and has folders compared with who lacks what is lost.
    void Look(Transport& transport);

    // Tells what was taken and what is missing, if that has changed, and once in a while even so: who lives
    // isn't taken for silent.
    void Tell(Transport& transport);

private:
    using Clock = std::chrono::steady_clock;

    bool IsBehind(Transport& transport, std::uint64_t& sequence);
    // What a device's acks said when they were read last.
    struct Heard {
        std::string bytes;
        exchange::Acks acks;
        Clock::time_point judged{};  // when what they ask for was looked for
    };
    Heard* HearFrom(Transport& transport, const Peer& peer);
    bool IsPastOwn(Transport& transport, const Peer& peer, const exchange::Acks& acks);
    void Hear(Transport& transport, const Peer& peer, Heard& heard);
    void KeepOwnNotes(Transport& transport);
    bool IsCardAwaited(const Transport& transport, const Peer& peer) const;
    void LookForCards(Transport& transport);
    void LookForStrangers(Transport& transport);
    void LookForSilence(Transport& transport);
    std::optional<Stranger> StrangerAt(Transport& transport, const exchange::DeviceId& device);
    bool MayRemake(const Peer& peer) const;
    bool IsLost(Transport& transport, const Peer& peer, const exchange::Acks& acks);
    void RemoveTaken(Transport& transport);
    std::chrono::milliseconds UntilTold() const;
    void Report(const std::string& line);

    std::string name_;
    std::function<void(const std::string&)> report_;
    std::int64_t askAfter_;
    std::int64_t silentAfter_;
    bool hasBegun_ = false;
    std::uint64_t foreignSerial_ = 0;  // of acknowledgements that this device has signed, and not here
    Clock::time_point nextAcks_{}, nextCards_{}, nextStrangers_{}, nextSilence_{}, nextTold_{};
    std::map<exchange::DeviceId, Heard> heard_;
    std::map<exchange::DeviceId, exchange::Acknowledged> told_;  // what the own acks say
    std::set<std::string> reported_;
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_SHARING_RECEIPTS_H_
