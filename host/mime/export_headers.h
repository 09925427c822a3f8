// host/mime/export_headers.h: the header fields of an exported message.
#ifndef QUORVANE_HOST_MIME_EXPORT_HEADERS_H_
#define QUORVANE_HOST_MIME_EXPORT_HEADERS_H_

#include <string>
#include <vector>

#include "host/mime/header_fields.h"
#include "host/mime/mail_envelope.h"

namespace quorvane {

// The fields of a mail, those of MIME's own structure left out.
//
// block     the header block that the message came with; may be empty.
// envelope  what its properties say now. A field of the block stays as it is while it says the same; else
//           it is replaced, or dropped where the properties have nothing.
std::vector<HeaderField> ExportedFields(const std::string& block, MailEnvelope envelope);

// A header block as it stands in a mail, of whatever bytes, with the fields replaced or taken away of which
// the two envelopes tell different things; all other lines stay as they are. The names of people count as
// well.
//
// said  what the block says.
// now   what it is to say.
std::string EditedHeader(const std::string& block, const MailEnvelope& said, const MailEnvelope& now);

// A header block as it stands in a mail, of whatever bytes, with other values of Content-Type and
// Content-Transfer-Encoding, and without the fields that tell of the content that was there before.
std::string HeaderOfContent(const std::string& block, const std::string& type, const std::string& encoding);

// The same with another value of Content-Type alone.
std::string HeaderOfType(const std::string& block, const std::string& type);

// The lines of a mail's header block as they stand.
struct SplitHeader {
    std::string all;          // but for fields that tell how large the whole was
    std::string mail;         // of these those that tell nothing of the content
    std::string content;      // the fields that tell of the content, how large it is too
    bool hasVersion = false;  // MIME-Version is among those of the mail
};
SplitHeader SplitContentFields(const std::string& block);

}  // namespace quorvane

#endif  // QUORVANE_HOST_MIME_EXPORT_HEADERS_H_
