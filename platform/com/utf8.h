// platform/com/utf8.h: Unicode in UTF-8 and in UTF-16. Any thread; what makes text may throw std::bad_alloc.
#ifndef QUORVANE_PLATFORM_COM_UTF8_H_
#define QUORVANE_PLATFORM_COM_UTF8_H_

#include <cstddef>
#include <string>
#include <string_view>

#include "platform/com/com.h"

namespace quorvane {

// What stands for bytes or units that mean nothing.
inline constexpr char32_t kReplacement = 0xFFFD;
// What stands where there is no character.
inline constexpr char32_t kInvalidCharacter = 0xFFFFFFFF;

// Reads the character at `at`, which is less than the text's size, and moves behind it. Where none begins
// (overlong forms, surrogates and what lies beyond U+10FFFF begin none) moves one byte and gives
// kInvalidCharacter.
char32_t NextUtf8(std::string_view text, std::size_t& at) noexcept;
// The same of UTF-16: behind one unit and kInvalidCharacter at a lone surrogate.
char32_t NextUtf16(OleStringView text, std::size_t& at) noexcept;

// Appends one character; what is none becomes kReplacement.
void AppendUtf8(std::string& text, char32_t character);
void AppendUtf16(OleString& text, char32_t character);

// UTF-16 to UTF-8 and back, whatever the code page; a lone surrogate, and each byte that belongs to no
// character, becomes kReplacement.
std::string ToUtf8(OleStringView text);
OleString FromUtf8(std::string_view text);

[[nodiscard]] bool IsUtf8(std::string_view text) noexcept;

// Makes valid UTF-8 without NULs of anything: each byte that belongs to no character, and each NUL, becomes
// kReplacement.
std::string CleanUtf8(std::string_view text);

// CleanUtf8 of a text that comes in pieces, cut anywhere. Appends to `clean`.
class Utf8Cleaner {
public:
    void Put(std::string_view piece, std::string& clean);
    void End(std::string& clean);

private:
    std::string held_;  // what may go on in the next piece
};

// IsUtf8 of a text that comes in pieces.
class Utf8Check {
public:
    void Put(std::string_view piece);
    // To be asked once, at the end.
    [[nodiscard]] bool End() noexcept { return valid_ && IsUtf8(held_); }

private:
    std::string held_;
    bool valid_ = true;
};

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_COM_UTF8_H_
