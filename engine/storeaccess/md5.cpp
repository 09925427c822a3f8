#include "engine/storeaccess/md5.h"

#include <bit>
#include <cstring>

namespace quorvane {
namespace {

constexpr size_t kBlock = 64;
constexpr size_t kLengthAt = 56;

// RFC 1321, 3.4: floor(2^32 * abs(sin(i + 1))).
constexpr std::uint32_t kSines[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391};

constexpr int kShifts[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};

using State = std::array<std::uint32_t, 4>;

std::uint32_t LoadLittleEndian(const std::uint8_t* bytes) noexcept
{
    return bytes[0] | (bytes[1] << 8) | (bytes[2] << 16) | (static_cast<std::uint32_t>(bytes[3]) << 24);
}

// The round's function of three words, and the place of the word that the step takes.
std::uint32_t Mix(unsigned step, std::uint32_t b, std::uint32_t c, std::uint32_t d, unsigned& word) noexcept
{
    switch (step / 16) {
        case 0:
            word = step;
            return (b & c) | (~b & d);
        case 1:
            word = (5 * step + 1) % 16;
            return (d & b) | (~d & c);
        case 2:
            word = (3 * step + 5) % 16;
            return b ^ c ^ d;
        default:
            word = (7 * step) % 16;
            return c ^ (b | ~d);
    }
}

void AddBlock(State& state, const std::uint8_t* block) noexcept
{
    auto [a, b, c, d] = state;
    for (unsigned step = 0; step < 64; ++step) {
        unsigned word = 0;
        const std::uint32_t mixed = Mix(step, b, c, d, word);
        const std::uint32_t sum = a + mixed + kSines[step] + LoadLittleEndian(block + 4 * word);
        a = d;
        d = c;
        c = b;
        b += std::rotl(sum, kShifts[step / 16][step % 4]);
    }
    state[0] += a;
    state[1] += b;
    state[2] += c;
    state[3] += d;
}

// The last block or two: the rest of the message, a one bit, zeros, the length in bits.
void AddTail(State& state, const std::uint8_t* rest, size_t restSize, std::uint64_t totalBytes) noexcept
{
    std::array<std::uint8_t, 2 * kBlock> tail{};
    if (restSize)
        std::memcpy(tail.data(), rest, restSize);
    tail[restSize] = 0x80;
    const size_t size = restSize < kLengthAt ? kBlock : 2 * kBlock;
    for (unsigned i = 0; i < 8; ++i)
        tail[size - 8 + i] = static_cast<std::uint8_t>((totalBytes * 8) >> (8 * i));
    for (size_t at = 0; at < size; at += kBlock)
        AddBlock(state, tail.data() + at);
}

}  // namespace

Md5Digest Md5(const void* bytes, size_t size) noexcept
{
    State state = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
    const auto* const data = static_cast<const std::uint8_t*>(bytes);
    const size_t whole = size / kBlock * kBlock;
    for (size_t at = 0; at < whole; at += kBlock)
        AddBlock(state, data + at);
    AddTail(state, data + whole, size - whole, size);

    Md5Digest digest;
    for (size_t i = 0; i < digest.size(); ++i)
        digest[i] = static_cast<std::uint8_t>(state[i / 4] >> (8 * (i % 4)));
    return digest;
}

}  // namespace quorvane
