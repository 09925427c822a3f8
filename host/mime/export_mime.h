// host/mime/export_mime.h: a MAPI message becomes a mail in MIME.
#ifndef QUORVANE_HOST_MIME_EXPORT_MIME_H_
#define QUORVANE_HOST_MIME_EXPORT_MIME_H_

#include <ostream>

#include "quorvane3/mapi.h"

namespace quorvane {

// Writes a message of any origin as an .eml file, with CRLF line ends and no byte above 127 outside of
// header fields that the message brought along.
//
// message  [in]  open for reading.
// out      [in]  opened in binary mode. What was written stays after a failure.
//
// Header fields come from PR_TRANSPORT_MESSAGE_HEADERS where they still say what the properties say, and
// from the properties where they don't. Bodies: PR_BODY and PR_HTML; the decompressed RTF as an
// attachment when there is neither. Attachments by value are streamed; embedded messages become
// message/rfc822; OLE objects become the bytes of their data; what is only referred to becomes
// message/external-body with the path.
//
// S_OK                 the whole mail is in `out`.
// STG_E_MEDIUMFULL     `out` refused bytes.
// MAPI_E_TOO_COMPLEX   messages are nested deeper than 32 levels.
// E_OUTOFMEMORY        memory ran out.
// Others come unchanged from `message`.
//
// Any thread.
[[nodiscard]] HRESULT ExportMime(IMessage& message, std::ostream& out) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_HOST_MIME_EXPORT_MIME_H_
