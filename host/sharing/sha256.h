// host/sharing/sha256.h: the digest SHA-256 (FIPS 180-4).
#ifndef QUORVANE_HOST_SHARING_SHA256_H_
#define QUORVANE_HOST_SHARING_SHA256_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace quorvane::host {

// Takes a message in pieces of any size.
class Sha256 {
public:
    void Add(const void* data, std::size_t size) noexcept;
    // The digest of all that was added, 64 lowercase hexadecimal digits. The last call.
    std::string Finish();

private:
    void Mix() noexcept;

    static constexpr std::size_t kBlock = 64;
    // The fractional parts of the square roots of the first eight primes.
    std::array<std::uint32_t, 8> state_{0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                                        0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
    std::array<unsigned char, kBlock> block_{};
    std::uint64_t size_ = 0;
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_SHARING_SHA256_H_
