// host/mime/header_repair.h: mails with broken header blocks, made fit for a strict parser.
#ifndef QUORVANE_HOST_MIME_HEADER_REPAIR_H_
#define QUORVANE_HOST_MIME_HEADER_REPAIR_H_

#include "host/mail/mail_bytes.h"

namespace quorvane {

// A copy of a mail in which each header block, of the mail itself, of its parts and of the mails nested in
// it, is one that no parser loses text over:
//   - where text follows the last field without a blank line, the blank line is put in;
//   - blanks between a field's name and its colon go;
//   - NULs become spaces;
//   - a line that is no field, but is followed by one, becomes the field X-Unparsed-Line; so does one at the
//     end of the mail's own block.
// What needs no repair isn't changed. Lines of more than a megabyte are body, or parts of a field, and never
// repaired. Failures are told by the Result of `mail` and of the copy.
MailBytes RepairHeaders(const MailBytes& mail);

}  // namespace quorvane

#endif  // QUORVANE_HOST_MIME_HEADER_REPAIR_H_
