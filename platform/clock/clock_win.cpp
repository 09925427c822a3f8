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

// GetTickCount64 goes forward in steps of several milliseconds.
std::uint64_t TickCount() noexcept
{
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

void SleepFor(std::chrono::milliseconds time) noexcept
{
    using std::chrono::milliseconds;
    constexpr milliseconds::rep kMost = 24 * 60 * 60 * 1000;
    if (time.count() <= 0) {
        Sleep(0);
        return;
    }
    // The system's sleep may end a little early.
    const auto start = std::chrono::steady_clock::now();
    for (milliseconds left = time; left.count() > 0;) {
        Sleep(static_cast<DWORD>(std::min(left.count(), kMost)));
        left = std::chrono::ceil<milliseconds>(time - (std::chrono::steady_clock::now() - start));
    }
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
