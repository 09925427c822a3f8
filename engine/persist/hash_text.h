// persist/hash_text.h: the texts of a hash store, packed for memory, and their form in the file.
//
// A packed text is equal to another exactly when the texts are. Null and empty are two different texts.
#ifndef QUORVANE_ENGINE_PERSIST_HASH_TEXT_H_
#define QUORVANE_ENGINE_PERSIST_HASH_TEXT_H_

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/com/com.h"

namespace quorvane {

// The largest size of a string in the file that a reader takes, with its terminator.
inline constexpr std::uint32_t kMaxHashString = 0x100000;
// A string's size field, and its terminator.
inline constexpr std::uint32_t kHashLengthSize = 4;
inline constexpr std::uint32_t kHashTerminatorSize = 2;

// Throw std::bad_alloc.
std::string PackHashText(OleStringView text);
OleString UnpackHashText(std::string_view packed);

// Packs a text as the file has it, UTF-16 little-endian, without its terminator. Throws std::bad_alloc.
void PackHashBytes(const char* bytes, size_t characters, std::string& packed);

// The packed form of null; PackHashText gives every other text another one.
inline const std::string kNullHashText;

// The value of a string's size field: the bytes of the text with its terminator, 0 for null.
std::uint64_t HashStringBytes(std::string_view packed) noexcept;

// Append the characters of a text as the file has them, and the whole string with its size and terminator.
// Throw std::bad_alloc.
void AppendHashCharacters(std::string& bytes, std::string_view packed);
void AppendHashString(std::string& bytes, std::string_view packed);

void AppendLittleEndian32(std::string& bytes, std::uint32_t value);
std::uint32_t ReadLittleEndian32(const char* bytes) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_PERSIST_HASH_TEXT_H_
