// host/mime/part_edits.h: a mail of which some bodies and attachments say something else now.
#ifndef QUORVANE_HOST_MIME_PART_EDITS_H_
#define QUORVANE_HOST_MIME_PART_EDITS_H_

#include <functional>
#include <optional>

#include "host/mail/mail_bytes.h"
#include "host/mime/mail_content.h"
#include "quorvane3/mapi.h"

namespace quorvane {

// Makes of a mail that is an attachment what an embedded message says now; as EditParts.
using EditNested =
    std::function<HRESULT(const MailBytes& bytes, IMessage& message, std::optional<MailBytes>& edited)>;

// Makes of a mail's bytes those of a mail with the bodies and attachments of `message`. A body that differs
// gets another content under the other fields of its header; a body or an attachment that the message hasn't
// any more is taken out; an attachment that differs is written anew in its place, a mail with its own parts
// kept; what is new comes into the multipart that is there for it, or into a new one around what was there.
// All other parts stay to the byte, signed and encrypted ones included, but for one within which something
// differs: that becomes a multipart/mixed. Where the lines of headers need repair (header_repair.h), they get
// it.
//
// message     opened for reading at least; unchanged.
// said        what `bytes` say.
// now         what the message says.
// editNested  is called for each attachment that was a mail and is another one now.
// edited      nothing where that can't be done: there is no part that holds what differs, or the lines and
//             the tree of the mail don't agree. What `edited` says isn't compared with the message.
//
// S_OK; E_OUTOFMEMORY and STG_E_* of this machine; MAPI_E_CORRUPT_DATA where changes meet in the same bytes;
// the message's codes. Any thread that may call the message.
[[nodiscard]] HRESULT EditParts(const MailBytes& bytes, IMessage& message, const MailContent& said,
                                const MailContent& now, const EditNested& editNested,
                                std::optional<MailBytes>& edited);

}  // namespace quorvane

#endif  // QUORVANE_HOST_MIME_PART_EDITS_H_
