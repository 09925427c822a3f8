#include "host/exchange/intake.h"

#include <algorithm>
#include <stdexcept>

namespace quorvane::host::exchange {

Intake JudgeOrder(const SenderState& sender, const PackageLabel& label)
{
    if (sender.overEpochs.contains(label.epoch))
        return Intake::kOver;
    if (label.epoch != sender.epoch)
        return label.sequence == 1 ? Intake::kNewEpoch : Intake::kTooEarly;
    if (label.sequence <= sender.applied)
        return Intake::kApplied;
    return label.sequence == sender.applied + 1 ? Intake::kApply : Intake::kTooEarly;
}

void NoteApplied(SenderState& sender, const PackageLabel& label)
{
    const Intake order = JudgeOrder(sender, label);
    if (order == Intake::kNewEpoch) {
        // Of a sender that wasn't heard of there is no epoch that could be over.
        if (sender.applied > 0)
            sender.overEpochs.insert(sender.epoch);
        sender.epoch = label.epoch;
    } else if (order != Intake::kApply) {
        throw std::logic_error("a package is noted as applied whose turn it wasn't");
    }
    sender.applied = label.sequence;
}

std::optional<SequenceRange> GapBefore(const SenderState& sender, const std::vector<std::uint64_t>& lying)
{
    const auto next = std::upper_bound(lying.begin(), lying.end(), sender.applied);
    if (next == lying.end() || *next == sender.applied + 1)
        return std::nullopt;
    return SequenceRange{sender.applied + 1, *next - 1};
}

std::optional<SequenceRange> GapWatch::Ask(const std::optional<SequenceRange>& seen, Time now)
{
    const std::uint64_t first = seen ? seen->first : 0;
    if (first != first_) {
        first_ = first;
        since_ = now;
    }
    return seen && now - since_ >= kPatience ? seen : std::nullopt;
}

}  // namespace quorvane::host::exchange
