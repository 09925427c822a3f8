// host/mime/charset.h: charsets by the names that mail uses, and their code page numbers.
#ifndef QUORVANE_HOST_MIME_CHARSET_H_
#define QUORVANE_HOST_MIME_CHARSET_H_

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "quorvane3/com.h"
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

class CharsetConverter;

// DecodeText of a text that comes in pieces, cut anywhere. Appends to `text`, whole characters alone. One
// thread at a time.
class TextDecoder {
public:
    // isUtf8  asked at most once, and at once: whether all bytes together are valid UTF-8.
    TextDecoder(std::string_view charset, const std::function<bool()>& isUtf8);
    TextDecoder(TextDecoder&&) noexcept;
    ~TextDecoder();

    void Put(std::string_view bytes, std::string& text);
    void End(std::string& text);

private:
    enum class Mark { kNone, kUtf8, kUtf16 };

    void TakeMark();
    void Decode(std::string_view bytes, std::string& text);

    Mark mark_ = Mark::kNone;                      // which one may stand at the beginning
    std::string beginning_;                        // while that isn't known
    std::unique_ptr<CharsetConverter> converter_;  // none: the bytes are UTF-8
    Utf8Cleaner cleaner_;
};

// The number of the code page that stores keep beside HTML (PR_INTERNET_CPID); nothing when a charset has
// none.
std::optional<ULONG> CodePageOfCharset(std::string_view charset);

// The charset's name as MIME writes it; null for a code page that no mail uses.
const char* CharsetOfCodePage(ULONG codePage) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_HOST_MIME_CHARSET_H_
