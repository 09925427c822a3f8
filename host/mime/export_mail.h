// host/mime/export_mail.h: a message becomes the mail that it was, as far as it still says the same.
#ifndef QUORVANE_HOST_MIME_EXPORT_MAIL_H_
#define QUORVANE_HOST_MIME_EXPORT_MAIL_H_

#include <functional>
#include <ostream>

#include "quorvane3/mapi.h"

namespace quorvane {

// Makes a new message that is never saved, to read the original into.
using MakeScratch = std::function<HRESULT(IMessage** message)>;

// Writes a message as an .eml file. Where the message holds the bytes that it was imported from, these are
// read once more and compared with what the message says:
//   - it says the same in everything: the very bytes are written;
//   - it differs in header fields, bodies or attachments: the bytes with these exchanged, added or taken away
//     (part_edits.h).
// What would be written so is read as well, and must say what the message says. Where it doesn't, and for a
// message without an original, or with one that can't be read, ExportMime makes the mail of the properties.
//
// The codes are ExportMime's; STG_E_* where the original can't be set aside.
//
// Any thread.
[[nodiscard]] HRESULT ExportMail(IMessage& message, const MakeScratch& scratch, std::ostream& out) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_HOST_MIME_EXPORT_MAIL_H_
