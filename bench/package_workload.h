// bench/package_workload.h: the shape of a package with many items, the same for every writer and reader.
#ifndef QUORVANE_BENCH_PACKAGE_WORKLOAD_H_
#define QUORVANE_BENCH_PACKAGE_WORKLOAD_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace quorvane::bench {

// One item: a storage with a stream of 160 bytes, and a sub-storage that holds 32 streams of 16 to 6,000
// bytes and two sub-storages of 7 small streams; 12.5 KB in all.
inline constexpr std::size_t kContentsSize = 160;
inline constexpr std::size_t kMessageStreams = 32;
inline constexpr std::size_t kPartStorages = 2;
inline constexpr std::size_t kPartStreams = 7;
inline constexpr std::size_t kPartStreamSize = 40;

// Most streams of a message are short; one is a body.
inline std::size_t MessageStreamSize(std::size_t index)
{
    constexpr std::size_t kSizes[] = {16, 32, 48, 64, 96, 128, 200, 320};
    if (index == kMessageStreams - 1)
        return 6000;
    return index == kMessageStreams - 2 ? 2000 : kSizes[index % 8];
}

// Names as they are passed to a writer, made without the cost of formatted output: what is measured is the
// making of packages. Char: OLECHAR, or char for the peer.
template <class Char>
using Name = std::array<Char, 32>;

template <class Char>
constexpr void AppendHex(Name<Char>& name, std::size_t at, std::size_t digits, std::uint64_t value)
{
    for (std::size_t i = digits; i-- > 0; value >>= 4)
        name[at + i] = static_cast<Char>("0123456789abcdef"[value & 15]);
}

template <class Char>
constexpr Name<Char> Prefixed(const char* prefix)
{
    Name<Char> name{};
    for (std::size_t i = 0; prefix[i] != 0; ++i)
        name[i] = static_cast<Char>(prefix[i]);
    return name;
}

template <class Char>
constexpr Name<Char> ItemName(std::size_t item)
{
    Name<Char> name{};
    AppendHex(name, 0, 8, static_cast<std::uint32_t>(item * 2654435761u));
    AppendHex(name, 8, 23, item);
    return name;
}

// Of the parts of an item.
template <class Char>
struct PartNames {
    constexpr PartNames()
    {
        for (std::size_t i = 0; i < streams.size(); ++i) {
            streams[i] = Prefixed<Char>("__substg1.0_1000001F");
            AppendHex(streams[i], 14, 2, i);
        }
        for (std::size_t i = 0; i < parts.size(); ++i)
            AppendHex(parts[i], 20, 8, i);
    }

    Name<Char> contents = Prefixed<Char>("Contents");
    Name<Char> message = Prefixed<Char>("MAPI_DATA");
    std::array<Name<Char>, kMessageStreams> streams{};
    std::array<Name<Char>, kPartStorages> parts{Prefixed<Char>("__recip_version1.0_#"),
                                                Prefixed<Char>("__recip_version1.0_#")};
};

template <class Char>
inline constexpr PartNames<Char> kNames;

// The first `size` bytes there, up to 6,000, are the content of a stream. They are made once: what is
// measured is the making of packages.
inline const std::uint8_t* StreamBytes(std::size_t seed)
{
    static const std::vector<std::uint8_t> bytes = [] {
        std::vector<std::uint8_t> made(8192);
        for (std::size_t i = 0; i < made.size(); ++i)
            made[i] = static_cast<std::uint8_t>(i * 131);
        return made;
    }();
    return &bytes[seed % 256];
}

}  // namespace quorvane::bench

#endif  // QUORVANE_BENCH_PACKAGE_WORKLOAD_H_
