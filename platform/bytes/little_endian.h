// platform/bytes/little_endian.h: numbers and text in bytes whose order is little-endian on every machine.
#ifndef QUORVANE_PLATFORM_BYTES_LITTLE_ENDIAN_H_
#define QUORVANE_PLATFORM_BYTES_LITTLE_ENDIAN_H_

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "platform/com/com.h"

namespace quorvane {

inline std::uint16_t LoadU16(const BYTE* from) noexcept
{
    return static_cast<std::uint16_t>(from[0] | from[1] << 8);
}

inline std::uint32_t LoadU32(const BYTE* from) noexcept
{
    return std::uint32_t{from[0]} | std::uint32_t{from[1]} << 8 | std::uint32_t{from[2]} << 16 |
           std::uint32_t{from[3]} << 24;
}

inline std::uint64_t LoadU64(const BYTE* from) noexcept
{
    return LoadU32(from) | std::uint64_t{LoadU32(from + 4)} << 32;
}

inline void StoreU16(BYTE* to, std::uint16_t value) noexcept
{
    to[0] = static_cast<BYTE>(value);
    to[1] = static_cast<BYTE>(value >> 8);
}

inline void StoreU32(BYTE* to, std::uint32_t value) noexcept
{
    StoreU16(to, static_cast<std::uint16_t>(value));
    StoreU16(to + 2, static_cast<std::uint16_t>(value >> 16));
}

inline void StoreU64(BYTE* to, std::uint64_t value) noexcept
{
    StoreU32(to, static_cast<std::uint32_t>(value));
    StoreU32(to + 4, static_cast<std::uint32_t>(value >> 32));
}

inline constexpr bool kLittleEndian = std::endian::native == std::endian::little;

// Text of `count` units.
inline void LoadUnits(OLECHAR* to, const BYTE* from, std::size_t count) noexcept
{
    if constexpr (kLittleEndian) {
        std::memcpy(to, from, 2 * count);
    } else {
        for (std::size_t i = 0; i < count; ++i)
            to[i] = static_cast<OLECHAR>(LoadU16(from + 2 * i));
    }
}

inline void StoreUnits(BYTE* to, const OLECHAR* from, std::size_t count) noexcept
{
    if constexpr (kLittleEndian) {
        std::memcpy(to, from, 2 * count);
    } else {
        for (std::size_t i = 0; i < count; ++i)
            StoreU16(to + 2 * i, static_cast<std::uint16_t>(from[i]));
    }
}

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_BYTES_LITTLE_ENDIAN_H_
