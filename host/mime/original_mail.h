// host/mime/original_mail.h: the bytes that a message was imported from, kept beside what was read in them.
#ifndef QUORVANE_HOST_MIME_ORIGINAL_MAIL_H_
#define QUORVANE_HOST_MIME_ORIGINAL_MAIL_H_

#include "host/mail/mail_bytes.h"
#include "quorvane3/mapi.h"

namespace quorvane {

// Keeps `bytes` in the named property of a message, which the caller saves: kOriginalMailName of the property
// set kOriginalMailSet (quorvane3/message_store.h), binary, one zlib stream (RFC 1950). Nothing vouches for
// its content: who reads it compares what it says with the message.
//
// S_OK, E_OUTOFMEMORY; the codes of `bytes` and of `message`.
[[nodiscard]] HRESULT KeepOriginal(const MailBytes& bytes, IMessage& message);

// Reads them back.
//
// S_OK                 `bytes` holds them all.
// MAPI_E_NOT_FOUND     the message has none.
// MAPI_E_CORRUPT_DATA  they aren't a zlib stream, or one of more than kLargestMail bytes, or of more than
//                      64 MB and four times PR_MESSAGE_SIZE: no mail that says what the message says. No
//                      more than that is unpacked.
// STG_E_*              they couldn't be set aside.
// Others come unchanged from `message`.
[[nodiscard]] HRESULT ReadOriginal(IMessage& message, MailBytes& bytes);

}  // namespace quorvane

#endif  // QUORVANE_HOST_MIME_ORIGINAL_MAIL_H_
