#include <windows.h>

#include <cstdint>

#include "host/base/processor_time.h"

namespace quorvane::host {

namespace {

constexpr std::int64_t kNanosecondsInTick = 100;

std::int64_t TicksOf(const FILETIME& time) noexcept
{
    return static_cast<std::int64_t>((static_cast<std::uint64_t>(time.dwHighDateTime) << 32) |
                                     time.dwLowDateTime);
}

}  // namespace

std::chrono::nanoseconds ProcessorTimeOfThread() noexcept
{
    FILETIME begun{}, ended{}, system{}, own{};
    GetThreadTimes(GetCurrentThread(), &begun, &ended, &system, &own);
    return std::chrono::nanoseconds((TicksOf(system) + TicksOf(own)) * kNanosecondsInTick);
}

}  // namespace quorvane::host
