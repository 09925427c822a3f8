#include <cmath>

#include "platform/com/calendar.h"
#include "platform/com/com.h"

namespace {

namespace calendar = quorvane::calendar;

constexpr std::int64_t kSecondsPerDay = 86400;
constexpr std::uint64_t kTicksPerMillisecond = 10000;
constexpr std::uint64_t kTicksPerDay = kTicksPerMillisecond * 1000 * kSecondsPerDay;

bool HasTimeOfDay(const SYSTEMTIME& time) noexcept
{
    return time.wHour < 24 && time.wMinute < 60 && time.wSecond < 60 && time.wMilliseconds < 1000;
}

calendar::Date DateOf(const SYSTEMTIME& time) noexcept
{
    return {time.wYear, time.wMonth, time.wDay};
}

void SetDay(SYSTEMTIME& time, std::int64_t day) noexcept
{
    const calendar::Date date = calendar::DateOfDay(day);
    time.wYear = static_cast<WORD>(date.year);
    time.wMonth = static_cast<WORD>(date.month);
    time.wDay = static_cast<WORD>(date.day);
    time.wDayOfWeek = static_cast<WORD>(calendar::WeekdayOfDay(day));
}

void SetSeconds(SYSTEMTIME& time, std::int64_t seconds) noexcept
{
    time.wHour = static_cast<WORD>(seconds / 3600);
    time.wMinute = static_cast<WORD>(seconds / 60 % 60);
    time.wSecond = static_cast<WORD>(seconds % 60);
}

}  // namespace

// Milliseconds don't count. Before the first day the fraction still runs forward within its day.
INT SystemTimeToVariantTime(SYSTEMTIME* time, double* variantTime)
{
    if (!time || !variantTime || !HasTimeOfDay(*time) || time->wYear < 100 || time->wYear > 9999 ||
        !calendar::IsDate(DateOf(*time)))
        return FALSE;
    const std::int64_t day = calendar::DayOfDate(DateOf(*time)) - calendar::kAutomationDay;
    const std::int64_t seconds = time->wHour * 3600 + time->wMinute * 60 + time->wSecond;
    const double fraction = static_cast<double>(seconds) / kSecondsPerDay;
    *variantTime = static_cast<double>(day) + (day < 0 ? -fraction : fraction);
    return TRUE;
}

INT VariantTimeToSystemTime(double variantTime, SYSTEMTIME* time)
{
    constexpr double kFirst = -657435.0;  // behind it, the last day of the year 99
    constexpr double kBehindLast = 2958466.0;
    if (!time || !(variantTime > kFirst) || !(variantTime < kBehindLast))
        return FALSE;
    const double whole = std::trunc(variantTime);
    std::int64_t day = static_cast<std::int64_t>(whole);
    std::int64_t seconds = std::llround(std::fabs(variantTime - whole) * static_cast<double>(kSecondsPerDay));
    if (seconds == kSecondsPerDay) {
        seconds = 0;
        ++day;
    }
    *time = SYSTEMTIME{};
    SetDay(*time, day + calendar::kAutomationDay);
    SetSeconds(*time, seconds);
    return time->wYear >= 100 && time->wYear <= 9999 ? TRUE : FALSE;
}

BOOL FileTimeToSystemTime(const FILETIME* fileTime, SYSTEMTIME* systemTime)
{
    if (!fileTime || !systemTime || (fileTime->dwHighDateTime & 0x80000000u))
        return FALSE;
    const std::uint64_t ticks =
        (static_cast<std::uint64_t>(fileTime->dwHighDateTime) << 32) | fileTime->dwLowDateTime;
    const auto milliseconds = static_cast<std::int64_t>(ticks % kTicksPerDay / kTicksPerMillisecond);
    *systemTime = SYSTEMTIME{};
    SetDay(*systemTime, static_cast<std::int64_t>(ticks / kTicksPerDay) + calendar::kFileTimeDay);
    SetSeconds(*systemTime, milliseconds / 1000);
    systemTime->wMilliseconds = static_cast<WORD>(milliseconds % 1000);
    return TRUE;
}

BOOL SystemTimeToFileTime(const SYSTEMTIME* systemTime, FILETIME* fileTime)
{
    if (!fileTime || !systemTime || !HasTimeOfDay(*systemTime) || systemTime->wYear < 1601 ||
        systemTime->wYear > 30827 || !calendar::IsDate(DateOf(*systemTime)))
        return FALSE;
    const auto days =
        static_cast<std::uint64_t>(calendar::DayOfDate(DateOf(*systemTime)) - calendar::kFileTimeDay);
    const std::uint64_t seconds = systemTime->wHour * 3600u + systemTime->wMinute * 60u + systemTime->wSecond;
    const std::uint64_t ticks =
        days * kTicksPerDay + (seconds * 1000 + systemTime->wMilliseconds) * kTicksPerMillisecond;
    fileTime->dwLowDateTime = static_cast<DWORD>(ticks);
    fileTime->dwHighDateTime = static_cast<DWORD>(ticks >> 32);
    return TRUE;
}
