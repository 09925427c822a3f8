// When the next change of a file suffers, and how.
#include "engine/persist/testing/file_faults.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>

namespace quorvane::testing {
namespace {

std::atomic<Fault> armed{Fault::None};
std::atomic<unsigned> suffersAt{0};
std::atomic<unsigned> changes{0};

// The fault that the present change suffers. Reads count for their own fault alone.
Fault NextChange(bool isRead) noexcept
{
    const Fault fault = armed;
    if (isRead != (fault == Fault::NoRead) || fault == Fault::KillAtByte)
        return Fault::None;
    return ++changes == suffersAt ? fault : Fault::None;
}

// How many bytes of a change may still arrive before the process ends. A change that isn't a write counts as
// one.
std::size_t BytesLeft(std::size_t count) noexcept
{
    if (armed != Fault::KillAtByte)
        return count;
    const std::size_t done = changes;
    changes = static_cast<unsigned>(done + count);
    return done + count <= suffersAt ? count : suffersAt - std::min<std::size_t>(done, suffersAt);
}

}  // namespace

void Die() noexcept
{
    std::_Exit(9);
}

WriteFate FateOfWrite(std::size_t count) noexcept
{
    if (const std::size_t left = BytesLeft(count); left < count)
        return {left, true};
    switch (NextChange(false)) {
        case Fault::None:
            return {count, false};
        case Fault::Kill:
            return {0, true};
        default:
            return {count / 2, false};
    }
}

bool ChangeFails() noexcept
{
    if (BytesLeft(1) < 1)
        Die();
    const Fault fault = NextChange(false);
    if (fault == Fault::Kill)
        Die();
    return fault == Fault::DiskFull;
}

bool ReadFails() noexcept
{
    return NextChange(true) != Fault::None;
}

void ArmFault(Fault fault, unsigned at) noexcept
{
    armed = fault;
    suffersAt = at;
    changes = 0;
}

unsigned DisarmFault() noexcept
{
    armed = Fault::None;
    suffersAt = 0;
    return changes;
}

}  // namespace quorvane::testing
