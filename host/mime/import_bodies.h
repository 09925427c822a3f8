// host/mime/import_bodies.h: the bodies of a mail, of any size, become those of a message.
#ifndef QUORVANE_HOST_MIME_IMPORT_BODIES_H_
#define QUORVANE_HOST_MIME_IMPORT_BODIES_H_

#include "host/mime/mail_structure.h"

namespace quorvane {

// Sets PR_BODY and PR_HTML, the code page and the kind of body. Text becomes clean Unicode with CRLF line
// ends, its format=flowed joined to paragraphs; HTML stays as its bytes stand, with their code page, and is
// converted to UTF-8 where the charset has no code page that leaves ASCII alone. A mail without bodies has an
// empty text. S_OK, or the message's own code.
[[nodiscard]] HRESULT SetBodies(const MailStructure& structure, IMessage& message);

// Text with lone LFs turned into CRLF.
std::string WithCrlf(const std::string& text);

}  // namespace quorvane

#endif  // QUORVANE_HOST_MIME_IMPORT_BODIES_H_
