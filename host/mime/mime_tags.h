// host/mime/mime_tags.h: property tags (MS-OXPROPS) and values that the conversion shares.
#ifndef QUORVANE_HOST_MIME_MIME_TAGS_H_
#define QUORVANE_HOST_MIME_MIME_TAGS_H_

#include "quorvane3/mapi.h"

namespace quorvane {

inline constexpr ULONG kPrTextAttachmentCharsetW = 0x371B001F;  // PidTagTextAttachmentCharset

// PidTagMessageEditorFormat's values.
inline constexpr LONG kEditorPlainText = 1;
inline constexpr LONG kEditorHtml = 2;

// PR_RENDERING_POSITION of an attachment that the body doesn't place.
inline constexpr LONG kNotRendered = -1;

// PR_ATTACH_METHOD of a link to the web, beyond the published constants of the classic headers.
inline constexpr ULONG kAttachByWebReference = 7;

// Attachments hold the header fields of their part in the property in which messages hold theirs.
inline constexpr ULONG kPrPartHeadersW = PR_TRANSPORT_MESSAGE_HEADERS_W;

}  // namespace quorvane

#endif  // QUORVANE_HOST_MIME_MIME_TAGS_H_
