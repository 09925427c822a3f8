// host/mail/mail_form.h: the mail within a file that isn't lines of 8-bit text from a header field on.
#ifndef QUORVANE_HOST_MAIL_MAIL_FORM_H_
#define QUORVANE_HOST_MAIL_MAIL_FORM_H_

#include <optional>

#include "host/mail/mail_bytes.h"

namespace quorvane {

// A copy of a file's bytes in which UTF-16 is UTF-8, line ends that are CR alone are LF, and nothing stands
// before the first header field (TrimToMail); nothing when the bytes are all that already. What can't be read
// or set aside is told by the Result of `file` and of the copy.
std::optional<MailBytes> MailWithin(const MailBytes& file);

}  // namespace quorvane

#endif  // QUORVANE_HOST_MAIL_MAIL_FORM_H_
