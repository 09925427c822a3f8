// host/mime/filetime.h: MAPI's times and the seconds since 1970 that mail counts in.
#ifndef QUORVANE_HOST_MIME_FILETIME_H_
#define QUORVANE_HOST_MIME_FILETIME_H_

#include <cstdint>
#include <optional>

#include "quorvane3/mapi.h"

namespace quorvane {

// Nothing for a time that a FILETIME can't hold (before 1601) or no calendar needs (from the year 10000 on).
inline std::optional<FILETIME> FileTimeFromUnix(std::int64_t seconds) noexcept
{
    constexpr std::int64_t kFrom1601To1970 = 11644473600;
    constexpr std::int64_t kYear10000 = 253402300800;
    constexpr std::int64_t kTicksASecond = 10000000;
    if (seconds < -kFrom1601To1970 || seconds >= kYear10000)
        return std::nullopt;
    const auto ticks = static_cast<std::uint64_t>((seconds + kFrom1601To1970) * kTicksASecond);
    FILETIME time;
    time.dwLowDateTime = static_cast<DWORD>(ticks & 0xFFFFFFFFu);
    time.dwHighDateTime = static_cast<DWORD>(ticks >> 32);
    return time;
}

inline std::int64_t UnixFromFileTime(const FILETIME& time) noexcept
{
    constexpr std::int64_t kFrom1601To1970 = 11644473600;
    constexpr std::uint64_t kTicksASecond = 10000000;
    const std::uint64_t ticks = (std::uint64_t{time.dwHighDateTime} << 32) | time.dwLowDateTime;
    return static_cast<std::int64_t>(ticks / kTicksASecond) - kFrom1601To1970;
}

inline bool SameTime(const FILETIME& a, const FILETIME& b) noexcept
{
    return a.dwLowDateTime == b.dwLowDateTime && a.dwHighDateTime == b.dwHighDateTime;
}

}  // namespace quorvane

#endif  // QUORVANE_HOST_MIME_FILETIME_H_
