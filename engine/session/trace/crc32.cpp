#include "engine/session/trace/crc32.h"

#include <array>

namespace quorvane {
namespace {

constexpr std::uint32_t kPolynomial = 0x04C11DB7;
constexpr std::uint32_t kTopBit = 0x80000000;

constexpr std::uint32_t Reflect(std::uint32_t value, unsigned bits)
{
    std::uint32_t result = 0;
    for (unsigned i = 0; i < bits; ++i) {
        if (value & (1u << i))
            result |= 1u << (bits - 1 - i);
    }
    return result;
}

constexpr std::array<std::uint32_t, 256> MakeTable()
{
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t byte = 0; byte < table.size(); ++byte) {
        std::uint32_t value = Reflect(byte, 8) << 24;
        for (int round = 0; round < 8; ++round)
            value = (value << 1) ^ (value & kTopBit ? kPolynomial : 0);
        table[byte] = Reflect(value, 32);
    }
    return table;
}

constexpr std::array<std::uint32_t, 256> kTable = MakeTable();

}  // namespace

std::uint32_t Crc32(const void* bytes, size_t size) noexcept
{
    const auto* const data = static_cast<const std::uint8_t*>(bytes);
    std::uint32_t crc = 0xFFFFFFFF;
    for (size_t i = 0; i < size; ++i)
        crc = (crc >> 8) ^ kTable[(crc & 0xFF) ^ data[i]];
    return ~crc;
}

std::uint32_t CrcOfText(BSTR text) noexcept
{
    return Crc32(text, SysStringByteLen(text));
}

}  // namespace quorvane
