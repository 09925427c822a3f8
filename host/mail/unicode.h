// host/mail/unicode.h: text between UTF-8, in which the program thinks, and the UTF-16 of MAPI.
#ifndef QUORVANE_HOST_MAIL_UNICODE_H_
#define QUORVANE_HOST_MAIL_UNICODE_H_

#include <string>
#include <string_view>

#include "quorvane3/mapi.h"

namespace quorvane {

// What stands for bytes that mean nothing in their charset.
inline constexpr char32_t kReplacement = 0xFFFD;

// Appends one character in UTF-8; an invalid one becomes kReplacement.
void AppendUtf8(std::string& text, char32_t character);

[[nodiscard]] bool IsUtf8(std::string_view bytes) noexcept;

// Makes valid UTF-8 without NULs of anything: each byte that isn't part of a character, and each NUL,
// becomes kReplacement.
std::string CleanUtf8(std::string_view bytes);

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

// UTF-8 to UTF-16, ready to be a MAPI string: cleaned as by CleanUtf8.
OleString WideFromUtf8(std::string_view text);

// UTF-16 to UTF-8; a lone surrogate becomes kReplacement.
std::string Utf8FromWide(OleStringView text);

// ASCII letters alone.
std::string LowerAscii(std::string_view text);
std::string UpperAscii(std::string_view text);
[[nodiscard]] bool EqualNoCase(std::string_view a, std::string_view b) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_HOST_MAIL_UNICODE_H_
