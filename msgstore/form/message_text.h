// msgstore/form/message_text.h: a message as text, made of its properties alone.
//
// This is for a person to read, not for mail: what the message was as it arrived isn't asked for.
#ifndef QUORVANE_MSGSTORE_FORM_MESSAGE_TEXT_H_
#define QUORVANE_MSGSTORE_FORM_MESSAGE_TEXT_H_

#include <string>

#include "platform/mapi/mapi.h"

namespace quorvane {

// A message in MIME (RFC 5322, 2045 to 2047, 2231), of 7-bit lines: the usual header fields, the body as
// plain text and as HTML, the attachments, embedded messages among them. An attachment of more than 64 MB,
// and a message embedded more than 16 deep, is named and has nothing in it.
//
// Failures are those of reading the message. Throws std::bad_alloc.
[[nodiscard]] HRESULT MakeMimeText(IMessage& message, std::string& text);

// Header fields, the plain body and the attachments' names, in UTF-8, with every character taken out that
// would steer a terminal. As above.
[[nodiscard]] HRESULT MakePlainText(IMessage& message, std::string& text);

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_FORM_MESSAGE_TEXT_H_
