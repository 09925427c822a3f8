// host/mime/part_edits.h: a mail of which some bodies and attachments say something else now.
#ifndef QUORVANE_HOST_MIME_PART_EDITS_H_
#define QUORVANE_HOST_MIME_PART_EDITS_H_

#include <optional>

#include "host/mail/mail_bytes.h"
#include "host/mime/mail_content.h"
#include "quorvane3/mapi.h"

namespace quorvane {

// Makes of a mail's bytes those of a mail with the bodies and attachments of `message`: the parts whose body
// differs are written anew, with the other fields of their headers; a body or an attachment that the message
// hasn't any more is taken out; all other parts stay to the byte, signed and encrypted ones included.
//
// said  what `bytes` say.
// now   what the message says.
// edited  nothing where that can't be done: the message has a body or an attachment that the mail hasn't,
// what
//         differs lies within a signed or encrypted part, the mail's lines need repair. What `edited` says
//         isn't compared with the message.
//
// S_OK; E_OUTOFMEMORY and STG_E_* of this machine; the message's codes.
[[nodiscard]] HRESULT EditParts(const MailBytes& bytes, IMessage& message, const MailContent& said,
                                const MailContent& now, std::optional<MailBytes>& edited);

}  // namespace quorvane

#endif  // QUORVANE_HOST_MIME_PART_EDITS_H_
