// host/mail/mail_check.h: what tells a mail from other bytes.
#ifndef QUORVANE_HOST_MAIL_MAIL_CHECK_H_
#define QUORVANE_HOST_MAIL_MAIL_CHECK_H_

#include <optional>
#include <string>
#include <string_view>

namespace quorvane {

// How sure the surroundings are that bytes are a mail.
enum class MailHint {
    Named,    // a file called .eml, a Maildir's file: one header field of any name will do.
    Unnamed,  // any other file: one of mail's own header fields is needed.
};

// Why `bytes` (the beginning of a file will do) isn't a mail, in plain words; nothing when it is one.
// A mail has a header field in its first block of lines.
std::optional<std::string> WhyNotMail(std::string_view bytes, MailHint hint);

// Whether a line looks like a header field anywhere: a name of letters, digits and "-_.", perhaps blanks, a
// colon that begins no web address.
[[nodiscard]] bool IsHeaderField(std::string_view line) noexcept;

// Whether a line is one of mail's own header fields: From, To, Received and their like.
[[nodiscard]] bool IsMailField(std::string_view line) noexcept;

// Whether a line counts as a field where fields are expected: any printable name but the empty one.
[[nodiscard]] bool IsFieldOfBlock(std::string_view line) noexcept;

// The mail within `bytes`: without a byte order mark, lines of blanks and mbox separators before its first
// header field.
std::string_view TrimToMail(std::string_view bytes) noexcept;

// The length of the first line of `bytes`, its line end included.
[[nodiscard]] std::size_t LineLength(std::string_view bytes) noexcept;

// Whether a line holds nothing but its line end.
[[nodiscard]] bool IsBlankLine(std::string_view line) noexcept;

// The value of a header field in the block at the beginning of `mail`; nothing when there is none.
std::optional<std::string> RawHeaderValue(std::string_view mail, std::string_view name);

// What an mbox's status fields say of the mail: read or not; nothing when it has none.
std::optional<bool> ReadStateOfHeader(std::string_view mail);

}  // namespace quorvane

#endif  // QUORVANE_HOST_MAIL_MAIL_CHECK_H_
