// host/mime/message_envelope.h: a MAPI message's properties and recipients as a mail's envelope.
#ifndef QUORVANE_HOST_MIME_MESSAGE_ENVELOPE_H_
#define QUORVANE_HOST_MIME_MESSAGE_ENVELOPE_H_

#include "host/mime/mail_envelope.h"

namespace quorvane {

// Reads what goes into header fields. People without an SMTP address keep their name and get the empty
// address; `sender` is empty when it is the one in `from`. The result of the recipient table otherwise.
[[nodiscard]] HRESULT ReadMessageEnvelope(IMessage& message, ULONG codePage, MailEnvelope& envelope);

}  // namespace quorvane

#endif  // QUORVANE_HOST_MIME_MESSAGE_ENVELOPE_H_
