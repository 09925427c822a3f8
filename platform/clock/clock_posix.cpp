#include "platform/clock/clock.h"

#include <locale.h>
#include <sched.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace quorvane {

namespace {

constexpr std::uint64_t kTicksPerSecond = 10'000'000;
constexpr std::uint64_t kSecondsFrom1601To1970 = 11'644'473'600;

// The locale that the user's environment names; the plain one if there is no such.
locale_t UserLocale() noexcept
{
    static const locale_t locale = newlocale(LC_ALL_MASK, "", nullptr);
    return locale;
}

}  // namespace

FILETIME FileTimeNow() noexcept
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const std::uint64_t seconds = static_cast<std::uint64_t>(now.tv_sec) + kSecondsFrom1601To1970;
    return FromTicks(seconds * kTicksPerSecond + static_cast<std::uint64_t>(now.tv_nsec) / 100);
}

SYSTEMTIME UtcNow() noexcept
{
    const FILETIME now = FileTimeNow();
    SYSTEMTIME parts{};
    FileTimeToSystemTime(&now, &parts);
    return parts;
}

std::uint64_t TickCount() noexcept
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1000 +
           static_cast<std::uint64_t>(now.tv_nsec) / 1'000'000;
}

void SleepFor(std::chrono::milliseconds time) noexcept
{
    if (time.count() <= 0) {
        sched_yield();
        return;
    }
    timespec left{static_cast<time_t>(time.count() / 1000),
                  static_cast<long>(time.count() % 1000 * 1'000'000)};
    while (clock_nanosleep(CLOCK_MONOTONIC, 0, &left, &left) == EINTR) {
    }
}

std::string ShortDate(const SYSTEMTIME& time)
{
    tm parts{};
    parts.tm_year = time.wYear - 1900;
    parts.tm_mon = time.wMonth - 1;
    parts.tm_mday = time.wDay;
    parts.tm_wday = time.wDayOfWeek;
    char text[128];
    const locale_t locale = UserLocale();
    const size_t length = locale ? strftime_l(text, sizeof(text), "%x", &parts, locale)
                                 : strftime(text, sizeof(text), "%m/%d/%y", &parts);
    return std::string(text, length);
}

std::string TimeOfDay(const SYSTEMTIME& time)
{
    char text[32];
    const int length =
        std::snprintf(text, sizeof(text), "%02u:%02u:%02u", time.wHour, time.wMinute, time.wSecond);
    return std::string(text, static_cast<size_t>(length));
}

DWORD ThreadNumber() noexcept
{
    return static_cast<DWORD>(syscall(SYS_gettid));
}

}  // namespace quorvane
