#include "platform/clock/clock.h"

#include <atomic>

namespace quorvane {

namespace {

std::atomic<PauseFunction> pauseClock{nullptr};

}  // namespace

void Pause(std::chrono::microseconds time, PauseFunction wait) noexcept
{
    const PauseFunction clock = pauseClock.load();
    (clock ? clock : wait)(time);
}

PauseFunction ReplacePauses(PauseFunction clock) noexcept
{
    return pauseClock.exchange(clock);
}

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
