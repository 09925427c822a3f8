#include "platform/clock/clock.h"

#include <algorithm>

namespace quorvane {

SYSTEMTIME UtcNow() noexcept
{
    SYSTEMTIME now;
    GetSystemTime(&now);
    return now;
}

FILETIME FileTimeNow() noexcept
{
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    return now;
}

std::uint64_t TickCount() noexcept
{
    return GetTickCount64();
}

void SleepFor(std::chrono::milliseconds time) noexcept
{
    constexpr std::chrono::milliseconds::rep kMost = INFINITE - 1;
    Sleep(static_cast<DWORD>(std::clamp<std::chrono::milliseconds::rep>(time.count(), 0, kMost)));
}

std::string ShortDate(const SYSTEMTIME& time)
{
    char format[80];
    char text[128];
    GetLocaleInfoA(LOCALE_USER_DEFAULT, LOCALE_SSHORTDATE, format, sizeof(format));
    const int length = GetDateFormatA(LOCALE_USER_DEFAULT, 0, &time, format, text, sizeof(text));
    return length > 0 ? std::string(text) : std::string();
}

std::string TimeOfDay(const SYSTEMTIME& time)
{
    char format[80];
    char text[128];
    GetLocaleInfoA(LOCALE_USER_DEFAULT, LOCALE_STIMEFORMAT, format, sizeof(format));
    const int length =
        GetTimeFormatA(LOCALE_USER_DEFAULT, TIME_NOTIMEMARKER, &time, format, text, sizeof(text));
    return length > 0 ? std::string(text) : std::string();
}

DWORD ThreadNumber() noexcept
{
    return GetCurrentThreadId();
}

}  // namespace quorvane
