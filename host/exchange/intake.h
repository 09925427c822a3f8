// host/exchange/intake.h: in which order the packages of one sender are applied.
//
// A sender numbers its packages 1, 2, 3 ... within an epoch. They are applied strictly in that order: behind
// a gap nothing is applied, skipped or forgotten. A sender that finds itself behind its own traces (its
// mailbox came out of a backup) begins a new epoch, and what it sent in the one before is then over: such a
// package may be any old one.
#ifndef QUORVANE_HOST_EXCHANGE_INTAKE_H_
#define QUORVANE_HOST_EXCHANGE_INTAKE_H_

#include <chrono>
#include <cstdint>
#include <optional>
#include <set>
#include <vector>

#include "host/exchange/acks.h"
#include "host/exchange/seal.h"

namespace quorvane::host::exchange {

// What is kept of a sender, from run to run.
struct SenderState {
    Epoch epoch{};
    std::uint64_t applied = 0;   // all up to this number
    std::set<Epoch> overEpochs;  // those before
};

// What is to be done with a verified package of a sender's.
enum class Intake {
    kApply,     // it is the next one
    kApplied,   // it was applied already
    kTooEarly,  // those before it aren't here yet: it stays where it is
    kNewEpoch,  // the first of an epoch that wasn't heard of: the folders are compared before it is applied
    kOver,      // of an epoch that is over: refused
};

Intake JudgeOrder(const SenderState& sender, const PackageLabel& label);

// Notes that a package (kApply, or kNewEpoch after the comparison) is applied and durable.
void NoteApplied(SenderState& sender, const PackageLabel& label);

// The packages that are missing before those that lie there; empty when the next one is there, or none at
// all. lying: their numbers, rising.
std::optional<SequenceRange> GapBefore(const SenderState& sender, const std::vector<std::uint64_t>& lying);

// Tells when a gap is to be asked for: when it has stood for a minute, since files come late and out of
// order.
class GapWatch {
public:
    using Time = std::chrono::steady_clock::time_point;
    static constexpr std::chrono::seconds kPatience{60};

    // The gap that is seen at this time, and which of it is to be asked for.
    std::optional<SequenceRange> Ask(const std::optional<SequenceRange>& seen, Time now);

private:
    std::uint64_t first_ = 0;  // the missing number that is waited for; 0 for none
    Time since_{};
};

}  // namespace quorvane::host::exchange

#endif  // QUORVANE_HOST_EXCHANGE_INTAKE_H_
