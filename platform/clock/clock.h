// platform/clock/clock.h: the time, and giving it away.
#ifndef QUORVANE_PLATFORM_CLOCK_CLOCK_H_
#define QUORVANE_PLATFORM_CLOCK_CLOCK_H_

#include <chrono>
#include <cstdint>
#include <string>

#include "platform/com/com.h"

namespace quorvane {

// The time now, UTC: in parts to the millisecond, and in units of 100 ns since 1601.
SYSTEMTIME UtcNow() noexcept;
FILETIME FileTimeNow() noexcept;

// Milliseconds of a clock that never goes back, since some moment before the process started.
std::uint64_t TickCount() noexcept;

// A FILETIME as one number, and back.
constexpr std::uint64_t ToTicks(const FILETIME& time) noexcept
{
    return (static_cast<std::uint64_t>(time.dwHighDateTime) << 32) | time.dwLowDateTime;
}
constexpr FILETIME FromTicks(std::uint64_t ticks) noexcept
{
    return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

// A FILETIME as an automation date: days since 30 December 1899, to the second (as SystemTimeToVariantTime
// gives it). E_INVALIDARG: before the year 100 or after 9999, or no time at all; `date` is untouched.
[[nodiscard]] HRESULT DateFromFileTime(const FILETIME& time, DATE& date) noexcept;
[[nodiscard]] HRESULT FileTimeFromDate(DATE date, FILETIME& time) noexcept;

// Sleeps for at least the time. Zero only lets another thread run.
void SleepFor(std::chrono::milliseconds time) noexcept;

// Passes a time that is prescribed between two pieces of work: by `wait`, unless a test has put a clock of
// its own in its place.
using PauseFunction = void (*)(std::chrono::microseconds time) noexcept;
void Pause(std::chrono::microseconds time, PauseFunction wait) noexcept;
// For tests: what passes every pause of this module from now on; null: each its own way again. Returns what
// did before. Any thread may call.
PauseFunction ReplacePauses(PauseFunction clock) noexcept;

// The date in the short form, and the time without an AM or PM mark, as the user's locale writes them.
// Off Windows the time is hours, minutes and seconds on a 24-hour clock. Throw std::bad_alloc.
std::string ShortDate(const SYSTEMTIME& time);
std::string TimeOfDay(const SYSTEMTIME& time);

// The number of the calling thread, as the system shows it.
DWORD ThreadNumber() noexcept;

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_CLOCK_CLOCK_H_
