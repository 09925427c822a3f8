// host/mime/import_attachments.h: a part of a mail becomes an attachment of a message.
#ifndef QUORVANE_HOST_MIME_IMPORT_ATTACHMENTS_H_
#define QUORVANE_HOST_MIME_IMPORT_ATTACHMENTS_H_

#include <functional>

#include "host/mime/mail_structure.h"

namespace quorvane {

// Writes a nested mail into the message of an embedded attachment.
using FillEmbedded = std::function<HRESULT(GMimeMessage*, IMessage&)>;

// Adds one part to a message and saves the attachment. Nested mails go through `fill`; without one they
// are kept as the bytes of a file. S_OK, E_OUTOFMEMORY, or the message's own code.
[[nodiscard]] HRESULT AddAttachment(const MailPart& part, const FillEmbedded& fill, IMessage& message);

}  // namespace quorvane

#endif  // QUORVANE_HOST_MIME_IMPORT_ATTACHMENTS_H_
