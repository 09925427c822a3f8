// bench/package_workload.h: the shape of a package with many items, the same for every writer and reader.
#ifndef QUORVANE_BENCH_PACKAGE_WORKLOAD_H_
#define QUORVANE_BENCH_PACKAGE_WORKLOAD_H_

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
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

inline std::string ItemName(std::size_t item)
{
    char text[40];
    std::snprintf(text, sizeof text, "%08x%023x", static_cast<unsigned>(item * 2654435761u),
                  static_cast<unsigned>(item));
    return text;
}

inline std::string StreamName(std::size_t index)
{
    char text[24];
    std::snprintf(text, sizeof text, "__substg1.0_%04X001F", static_cast<unsigned>(0x1000 + index));
    return text;
}

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
