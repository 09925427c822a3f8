// host/mime/flowed_text.h: text in the format=flowed form (RFC 3676).
#ifndef QUORVANE_HOST_MIME_FLOWED_TEXT_H_
#define QUORVANE_HOST_MIME_FLOWED_TEXT_H_

#include <string>
#include <string_view>

namespace quorvane {

// Joins flowed lines to paragraphs and takes the stuffing away.
//
// text         the decoded text, LF or CRLF line ends (kept as they are).
// deleteSpace  the space that marks a flowed line isn't part of the text (delsp=yes).
//
// Quoted paragraphs keep one quote mark run and a space at their beginning. A signature mark ("-- ")
// never flows.
std::string JoinFlowedText(std::string_view text, bool deleteSpace);

}  // namespace quorvane

#endif  // QUORVANE_HOST_MIME_FLOWED_TEXT_H_
