// platform/com/calendar.h: days and dates of the proleptic Gregorian calendar. Off Windows.
#ifndef QUORVANE_PLATFORM_COM_CALENDAR_H_
#define QUORVANE_PLATFORM_COM_CALENDAR_H_

#include <cstdint>

namespace quorvane::calendar {

struct Date {
    int year;
    int month;  // 1 to 12
    int day;    // 1 to 31
};

// Days since 1 March of the year 0, of which every 400 years have the same number.
constexpr std::int64_t kDaysPer400Years = 146097;
// Of 1 January 1601 and of 30 December 1899, the beginnings of FILETIME and of automation dates.
constexpr std::int64_t kFileTimeDay = 584694;
constexpr std::int64_t kAutomationDay = 693899;

constexpr bool IsLeapYear(int year) noexcept
{
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

constexpr int DaysInMonth(int year, int month) noexcept
{
    constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && IsLeapYear(year) ? 29 : kDays[month - 1];
}

constexpr bool IsDate(const Date& date) noexcept
{
    return date.month >= 1 && date.month <= 12 && date.day >= 1 &&
           date.day <= DaysInMonth(date.year, date.month);
}

// The year begins in March here, so that the leap day is its last.
constexpr std::int64_t DayOfDate(const Date& date) noexcept
{
    const std::int64_t year = date.month > 2 ? date.year : date.year - 1;
    const std::int64_t monthFromMarch = (date.month + 9) % 12;
    const std::int64_t dayOfYear = (153 * monthFromMarch + 2) / 5 + date.day - 1;
    return year * 365 + year / 4 - year / 100 + year / 400 + dayOfYear;
}

// day: not before 1 March of the year 0.
constexpr Date DateOfDay(std::int64_t day) noexcept
{
    const std::int64_t era = day / kDaysPer400Years;
    const std::int64_t inEra = day % kDaysPer400Years;
    const std::int64_t yearInEra = (inEra - inEra / 1460 + inEra / 36524 - inEra / 146096) / 365;
    const std::int64_t dayOfYear = inEra - (365 * yearInEra + yearInEra / 4 - yearInEra / 100);
    const std::int64_t monthFromMarch = (5 * dayOfYear + 2) / 153;
    const int month = static_cast<int>(monthFromMarch < 10 ? monthFromMarch + 3 : monthFromMarch - 9);
    const std::int64_t year = era * 400 + yearInEra + (month <= 2 ? 1 : 0);
    return {static_cast<int>(year), month, static_cast<int>(dayOfYear - (153 * monthFromMarch + 2) / 5 + 1)};
}

// 0 is Sunday.
constexpr int WeekdayOfDay(std::int64_t day) noexcept
{
    return static_cast<int>((day + 3) % 7);
}

static_assert(DayOfDate({1601, 1, 1}) == kFileTimeDay && DayOfDate({1899, 12, 30}) == kAutomationDay);
static_assert(WeekdayOfDay(kFileTimeDay) == 1, "1 January 1601 was a Monday");

}  // namespace quorvane::calendar

#endif  // QUORVANE_PLATFORM_COM_CALENDAR_H_
