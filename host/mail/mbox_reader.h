// host/mail/mbox_reader.h: the mails of one mbox file, one at a time.
#ifndef QUORVANE_HOST_MAIL_MBOX_READER_H_
#define QUORVANE_HOST_MAIL_MBOX_READER_H_

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "host/mail/line_reader.h"
#include "host/mail/mail_bytes.h"
#include "host/mail/mbox_variant.h"

namespace quorvane {

// What a separator line says of itself: "From ", somebody, a time of day and a year.
[[nodiscard]] bool IsDatedSeparator(std::string_view line) noexcept;

class MboxReader {
public:
    enum class Step { Mail, Empty, TooLarge, Unreadable, End };

    MboxReader(const std::filesystem::path& path, MboxVariant variant);

    // Goes on to the next mail.
    //
    // bytes  [out]  the mail without its separator, its quoting undone; empty unless Mail is returned.
    //
    // Mail        `bytes` is set.
    // Empty       a separator was followed by nothing but blank lines.
    // TooLarge    the mail has more than kLargestMail bytes and was passed over.
    // Unreadable  the file can't be opened, or a read failed; End follows.
    // End         no mail is left.
    //
    // A line is a separator when it begins the file; when it begins with "From " behind a blank line and
    // carries a date or stands before a header field; blank line or not, when it carries a date and stands
    // before a header field, or has a single word and stands before one of mail's own fields. Text before the
    // first separator belongs to the first mail; a byte order mark at the beginning to none.
    [[nodiscard]] Step Next(MailBytes& bytes);

    // Why the mail that Next gave last may be more than one, in plain words; empty when it isn't in doubt.
    [[nodiscard]] const std::string& Doubt() const noexcept { return doubt_; }

    // The number of the mail that Next gave last, from 1; and how far the file is read.
    [[nodiscard]] std::uint64_t Number() const noexcept { return number_; }
    [[nodiscard]] std::uint64_t Offset() const noexcept { return lines_.Offset(); }

private:
    bool IsSeparator(std::string_view line, bool afterBlank);
    bool ReadHeader(MailBytes& bytes);
    bool ReadCountedBody(MailBytes& bytes);
    void ReadBody(MailBytes& bytes);
    bool EndsLine(std::uint64_t offset);
    bool EndsWithSeparator(std::uint64_t offset);
    void Keep(MailBytes& bytes, std::string_view piece);

    LineReader lines_;
    MboxVariant variant_;
    std::uint64_t number_ = 0;
    bool begun_ = false;
    bool ended_ = false;
    bool tooLarge_ = false;
    std::string doubt_;
    bool empty_ = true;  // nothing but line ends so far
};

}  // namespace quorvane

#endif  // QUORVANE_HOST_MAIL_MBOX_READER_H_
