#include "host/exchange/intake.h"

#include <stdexcept>

namespace quorvane::host::exchange {

Intake JudgeOrder(const SenderState& sender, const ForUs& package)
{
    if (sender.overEpochs.contains(package.epoch))
        return Intake::kOver;
    if (sender.applied == 0 || package.epoch != sender.epoch) {
        if (package.sequence <= sender.applied)
            return Intake::kOver;
        return package.previous == 0 ? Intake::kNewEpoch : Intake::kTooEarly;
    }
    if (package.sequence <= sender.applied)
        return Intake::kApplied;
    return package.previous <= sender.applied ? Intake::kApply : Intake::kTooEarly;
}

void NoteApplied(SenderState& sender, const ForUs& package)
{
    const Intake order = JudgeOrder(sender, package);
    if (order == Intake::kNewEpoch) {
        // Of a sender that wasn't heard of there is no epoch that could be over.
        if (sender.applied > 0) {
            if (sender.overEpochs.size() >= SenderState::kMostEpochs)
                sender.overEpochs.erase(sender.overEpochs.begin());
            sender.overEpochs.insert(sender.epoch);
        }
        sender.epoch = package.epoch;
    } else if (order != Intake::kApply) {
        throw std::logic_error("a package is noted as applied whose turn it wasn't");
    }
    sender.applied = package.sequence;
}

std::optional<SequenceRange> GapBefore(const SenderState& sender, const ForUs& package)
{
    if (JudgeOrder(sender, package) != Intake::kTooEarly || package.previous <= sender.applied)
        return std::nullopt;
    return SequenceRange{sender.applied + 1, package.previous};
}

bool GapWatch::IsDue(const std::optional<SequenceRange>& seen, std::int64_t now, std::int64_t patience)
{
    const std::uint64_t missing = seen ? seen->first : 0;
    if (missing != first || now < since) {
        first = missing;
        since = now;
    }
    return seen && now - since >= patience;
}

}  // namespace quorvane::host::exchange
