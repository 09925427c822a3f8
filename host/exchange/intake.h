// host/exchange/intake.h: in which order the packages of one sender are applied.
//
// A sender numbers its packages, rising, within an epoch, and each package names for each receiver the one
// before it that was for him. So a receiver applies those that are for him strictly in their order, and knows
// what he misses, whatever the others get: behind a gap nothing is applied, skipped or forgotten. What a
// sender no longer has it makes again, and names as its predecessor the last one that the receiver
// acknowledged. A sender that finds itself behind its own traces (its mailbox came out of a backup) begins a
// new epoch, and what it sent in the one before is then over: such a package may be any old one. Numbers rise
// from epoch to epoch, too: of an epoch that wasn't heard of, what has a number up to the last one that was
// applied is of an older one.
#ifndef QUORVANE_HOST_EXCHANGE_INTAKE_H_
#define QUORVANE_HOST_EXCHANGE_INTAKE_H_

#include <cstdint>
#include <optional>
#include <set>

#include "host/exchange/acks.h"
#include "host/exchange/seal.h"

namespace quorvane::host::exchange {

// What is kept of a sender, from run to run.
struct SenderState {
    Epoch epoch{};
    std::uint64_t applied = 0;   // all that is for this device up to this number; 0 before the first
    std::set<Epoch> overEpochs;  // those before, kMostEpochs at most

    // Of one that is forgotten no package passes for a new one's: their numbers are too low.
    static constexpr std::size_t kMostEpochs = 100;
};

// A package of a sender's that is for this device, by its header.
struct ForUs {
    Epoch epoch{};
    std::uint64_t sequence = 0;
    std::uint64_t previous = 0;
    bool operator==(const ForUs&) const = default;
};

// What is to be done with one.
enum class Intake {
    kApply,     // it is the next one
    kApplied,   // it was applied already, or made again since
    kTooEarly,  // those before it aren't here yet: it stays where it is
    kNewEpoch,  // the first of an epoch that wasn't heard of
    kOver,      // of an epoch that is over, or of an older one: refused
};

Intake JudgeOrder(const SenderState& sender, const ForUs& package);

// Notes that a package (kApply or kNewEpoch) is applied and durable.
void NoteApplied(SenderState& sender, const ForUs& package);

// What is missing before a package that came too early; empty for any other, and where nothing that could
// still be applied is missing.
std::optional<SequenceRange> GapBefore(const SenderState& sender, const ForUs& package);

// How long a gap stands until it is asked for: files come late and out of order. Times are those of any clock
// that goes on while nobody looks, in seconds.
struct GapWatch {
    static constexpr std::int64_t kPatience = 60;

    // Kept from run to run.
    std::uint64_t first = 0;  // the missing number that is waited for; 0 for none
    std::int64_t since = 0;

    // Whether the gap that is seen now is to be asked for.
    bool IsDue(const std::optional<SequenceRange>& seen, std::int64_t now, std::int64_t patience = kPatience);
};

}  // namespace quorvane::host::exchange

#endif  // QUORVANE_HOST_EXCHANGE_INTAKE_H_
