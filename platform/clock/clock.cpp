#include "platform/clock/clock.h"

namespace quorvane {

HRESULT DateFromFileTime(const FILETIME& time, DATE& date) noexcept
{
    SYSTEMTIME parts;
    double result = 0;
    if (!FileTimeToSystemTime(&time, &parts) || !SystemTimeToVariantTime(&parts, &result))
        return E_INVALIDARG;
    date = result;
    return S_OK;
}

HRESULT FileTimeFromDate(DATE date, FILETIME& time) noexcept
{
    SYSTEMTIME parts;
    FILETIME result;
    if (!VariantTimeToSystemTime(date, &parts) || !SystemTimeToFileTime(&parts, &result))
        return E_INVALIDARG;
    time = result;
    return S_OK;
}

}  // namespace quorvane
