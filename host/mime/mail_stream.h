// host/mime/mail_stream.h: the bytes of a mail as GMime reads them.
#ifndef QUORVANE_HOST_MIME_MAIL_STREAM_H_
#define QUORVANE_HOST_MIME_MAIL_STREAM_H_

#include "host/mail/mail_bytes.h"
#include "host/mime/gmime_ptr.h"

namespace quorvane {

// A stream that reads `bytes`, as any stream made from it does; they must outlive all of these. What can't be
// read ends it: the bytes' Result tells.
GObjectPtr<GMimeStream> StreamOf(const MailBytes& bytes);

}  // namespace quorvane

#endif  // QUORVANE_HOST_MIME_MAIL_STREAM_H_
