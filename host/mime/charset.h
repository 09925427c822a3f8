// host/mime/charset.h: charsets by the names that mail uses, and their code page numbers.
#ifndef QUORVANE_HOST_MIME_CHARSET_H_
#define QUORVANE_HOST_MIME_CHARSET_H_

#include <optional>
#include <string>
#include <string_view>

#include "quorvane3/mapi.h"

namespace quorvane {

inline constexpr ULONG kCodePageUtf8 = 65001;

// Decodes text to clean UTF-8 (see CleanUtf8): never fails, never loses a byte that means something.
//
// bytes    the text, its transfer encoding undone.
// charset  its name as the mail gives it. Where writers are known to say less than they mean, the wider
//          charset is used (windows-1252 for iso-8859-1, gb18030 for gb2312...). An unknown or empty name
//          is read as UTF-8 when the bytes are valid UTF-8, else as windows-1252.
//
// Bytes that mean nothing in the charset, and NULs, become U+FFFD. Any thread.
std::string DecodeText(std::string_view bytes, std::string_view charset);

// The number of the code page that stores keep beside HTML (PR_INTERNET_CPID); nothing when a charset has
// none.
std::optional<ULONG> CodePageOfCharset(std::string_view charset);

// The charset's name as MIME writes it; null for a code page that no mail uses.
const char* CharsetOfCodePage(ULONG codePage) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_HOST_MIME_CHARSET_H_
