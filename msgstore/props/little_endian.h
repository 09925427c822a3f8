// msgstore/props/little_endian.h: numbers and UTF-16 text in the byte order of the persisted forms.
#ifndef QUORVANE_MSGSTORE_PROPS_LITTLE_ENDIAN_H_
#define QUORVANE_MSGSTORE_PROPS_LITTLE_ENDIAN_H_

#include <bit>
#include <cstring>
#include <type_traits>

#include "msgstore/props/large_value.h"
#include "platform/com/com.h"

namespace quorvane {

template <class Unsigned>
constexpr Unsigned LoadLittle(const BYTE* bytes) noexcept
{
    static_assert(std::is_unsigned_v<Unsigned>);
    Unsigned value = 0;
    if (std::endian::native == std::endian::little && !std::is_constant_evaluated()) {
        std::memcpy(&value, bytes, sizeof value);
        return value;
    }
    for (std::size_t i = 0; i < sizeof(Unsigned); ++i)
        value = static_cast<Unsigned>(value | (static_cast<Unsigned>(bytes[i]) << (8 * i)));
    return value;
}

template <class Unsigned>
constexpr void StoreLittle(BYTE* bytes, Unsigned value) noexcept
{
    static_assert(std::is_unsigned_v<Unsigned>);
    if (std::endian::native == std::endian::little && !std::is_constant_evaluated()) {
        std::memcpy(bytes, &value, sizeof value);
        return;
    }
    for (std::size_t i = 0; i < sizeof(Unsigned); ++i)
        bytes[i] = static_cast<BYTE>(value >> (8 * i));
}

template <class Unsigned>
void AppendLittle(Bytes& bytes, Unsigned value)
{
    const std::size_t at = bytes.size();
    bytes.resize(at + sizeof(Unsigned));
    StoreLittle(bytes.data() + at, value);
}

// Copies `count` elements of `width` bytes between the host's order and the persisted one.
inline void CopyLittle(void* to, const void* from, std::size_t count, std::size_t width) noexcept
{
    if (count == 0)
        return;
    if constexpr (std::endian::native == std::endian::little) {
        std::memcpy(to, from, count * width);
    } else {
        const BYTE* source = static_cast<const BYTE*>(from);
        BYTE* target = static_cast<BYTE*>(to);
        for (std::size_t i = 0; i < count * width; ++i)
            target[i] = source[i / width * width + (width - 1 - i % width)];
    }
}

inline Bytes TextBytes(OleStringView text)
{
    Bytes bytes(text.size() * sizeof(OLECHAR));
    CopyLittle(bytes.data(), text.data(), text.size(), sizeof(OLECHAR));
    return bytes;
}

// An odd last byte is left out.
inline OleString BytesText(const Bytes& bytes)
{
    OleString text(bytes.size() / sizeof(OLECHAR), OLECHAR{});
    CopyLittle(text.data(), bytes.data(), text.size(), sizeof(OLECHAR));
    return text;
}

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_PROPS_LITTLE_ENDIAN_H_
