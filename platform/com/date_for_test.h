// What the tests of dates share.
#ifndef QUORVANE_PLATFORM_COM_DATE_FOR_TEST_H_
#define QUORVANE_PLATFORM_COM_DATE_FOR_TEST_H_

#include <cmath>

#include "platform/com/com.h"

namespace quorvane {

inline SYSTEMTIME Time(WORD year, WORD month, WORD day, WORD hour = 0, WORD minute = 0, WORD second = 0)
{
    SYSTEMTIME time{};
    time.wYear = year;
    time.wMonth = month;
    time.wDay = day;
    time.wHour = hour;
    time.wMinute = minute;
    time.wSecond = second;
    return time;
}

inline double VariantTime(SYSTEMTIME time)
{
    double result = NAN;
    return SystemTimeToVariantTime(&time, &result) ? result : NAN;
}

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_COM_DATE_FOR_TEST_H_
