// host/mime/mail_content.h: what a message says, as far as a mail can say it: for telling whether two say the
// same.
#ifndef QUORVANE_HOST_MIME_MAIL_CONTENT_H_
#define QUORVANE_HOST_MIME_MAIL_CONTENT_H_

#include <string>
#include <vector>

#include "host/mime/mail_envelope.h"
#include "quorvane3/mapi.h"

namespace quorvane {

struct AttachmentContent {
    ULONG number = 0;     // for IMessage::OpenAttach
    std::string digest;   // of all that it says, messages embedded in it included
    std::string essence;  // of what a part that was made of it says for certain: name, type, identifier, data
};

// Digests are SHA-256 over values of any size, read in pieces.
struct MailContent {
    MailEnvelope envelope;
    std::string headers;  // of the header block that came with it
    std::string text;     // of the bodies
    std::string html;
    std::vector<AttachmentContent> attachments;
};

// Reads all of it. What a reader makes of a mail (read, flagged, categories) and what its store decides isn't
// in it. S_OK, MAPI_E_TOO_COMPLEX where messages are nested deeper than 32 levels, or the message's own code;
// after a failure `content` is of no use. Any thread that may call the message.
[[nodiscard]] HRESULT ReadMailContent(IMessage& message, MailContent& content);

// Whether all fields are the same, to the letter.
[[nodiscard]] bool SameEnvelope(const MailEnvelope& a, const MailEnvelope& b);
[[nodiscard]] bool SameBodies(const MailContent& a, const MailContent& b);
// The same attachments in the same order.
[[nodiscard]] bool SameAttachments(const MailContent& a, const MailContent& b);

}  // namespace quorvane

#endif  // QUORVANE_HOST_MIME_MAIL_CONTENT_H_
