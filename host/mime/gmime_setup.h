// host/mime/gmime_setup.h: GMime, started once for the process, and how this project parses with it.
#ifndef QUORVANE_HOST_MIME_GMIME_SETUP_H_
#define QUORVANE_HOST_MIME_GMIME_SETUP_H_

#include <gmime/gmime.h>

#include <string>
#include <string_view>

#include "host/mail/mail_bytes.h"
#include "host/mime/gmime_ptr.h"

namespace quorvane {

// The parser's options: loose in every respect, header bytes without a charset read as UTF-8 or else as
// windows-1252. Starts GMime at the first call. The pointer lives as long as the process. Any thread.
GMimeParserOptions* MimeOptions();

// Parses a mail; empty when GMime makes nothing of the bytes. The result refers to `bytes`, which must
// outlive it.
GObjectPtr<GMimeMessage> ParseMime(const MailBytes& bytes);

// Whether an object is of a type, as in IsType(object, "text", "*"). False of one without a type.
bool IsType(GMimeObject* object, const char* type, const char* subtype);
// "text/plain"; empty where it has none.
std::string TypeOf(GMimeObject* object);

// A header value with its encoded words (RFC 2047) decoded, as UTF-8.
std::string DecodedHeader(const char* value);

}  // namespace quorvane

#endif  // QUORVANE_HOST_MIME_GMIME_SETUP_H_
