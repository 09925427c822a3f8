// host/mime/export_attachments.h: the attachments of a message as parts of a mail.
#ifndef QUORVANE_HOST_MIME_EXPORT_ATTACHMENTS_H_
#define QUORVANE_HOST_MIME_EXPORT_ATTACHMENTS_H_

#include <functional>
#include <string>
#include <vector>

#include "host/mime/eml_writer.h"
#include "quorvane3/com.h"
#include "quorvane3/mapi.h"

namespace quorvane {

// Writes an embedded message as a mail of its own.
using WriteNested = std::function<HRESULT(IMessage&)>;

struct AttachmentEntry {
    ULONG number = 0;      // for IMessage::OpenAttach
    bool related = false;  // HTML shows it
};

// The attachments of a message in the order of their table.
[[nodiscard]] HRESULT ListAttachments(IMessage& message, std::vector<AttachmentEntry>& entries);

// Writes one attachment: header fields, a blank line, the content without a last line end.
[[nodiscard]] HRESULT WriteAttachment(IMessage& message, const AttachmentEntry& entry, ULONG codePage,
                                      const WriteNested& nested, EmlWriter& out);

// Writes the header fields and the blank line of a part that is no attachment of the message; what comes next
// is its content in base64.
void WriteAttachmentFields(const std::string& type, const std::string& name, EmlWriter& out);

}  // namespace quorvane

#endif  // QUORVANE_HOST_MIME_EXPORT_ATTACHMENTS_H_
