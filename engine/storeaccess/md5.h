// storeaccess/md5.h: MD5 (RFC 1321), as names and hashes of items are made with it. Not for secrets.
#ifndef QUORVANE_ENGINE_STOREACCESS_MD5_H_
#define QUORVANE_ENGINE_STOREACCESS_MD5_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace quorvane {

using Md5Digest = std::array<std::uint8_t, 16>;

// The digest of `size` bytes.
Md5Digest Md5(const void* bytes, size_t size) noexcept;

// A digest as 32 lowercase hexadecimal digits, as narrow or as OLECHAR text. Throws std::bad_alloc.
template <class Char = char>
std::basic_string<Char> Md5Text(const Md5Digest& digest)
{
    constexpr char kDigits[] = "0123456789abcdef";
    std::basic_string<Char> text;
    text.reserve(2 * digest.size());
    for (const std::uint8_t byte : digest) {
        text += static_cast<Char>(kDigits[byte >> 4]);
        text += static_cast<Char>(kDigits[byte & 15]);
    }
    return text;
}

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_STOREACCESS_MD5_H_
