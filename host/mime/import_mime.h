// host/mime/import_mime.h: a mail in MIME becomes a MAPI message.
#ifndef QUORVANE_HOST_MIME_IMPORT_MIME_H_
#define QUORVANE_HOST_MIME_IMPORT_MIME_H_

#include <optional>

#include "host/mail/mail_bytes.h"
#include "quorvane3/mapi.h"

namespace quorvane {

struct ImportOptions {
    // Whether the message counts as read. Nothing: it does, as mail that was kept.
    std::optional<bool> read;
    // What is kept beside it as the bytes that it came from (original_mail.h); null: nothing is.
    const MailBytes* original = nullptr;
};

// Writes the content of a mail into a message.
//
// bytes    [in]      the mail, from its first header field on. Anything is accepted: what MIME can't
//                    make sense of becomes body text.
// options  [in]      what the mail itself doesn't say, and what is kept of it.
// message  [in,out]  new and empty, open for writing. The caller saves it (IMAPIProp::SaveChanges) or drops
// it.
//
// Kept: the header block as a whole (PR_TRANSPORT_MESSAGE_HEADERS) and the fields with properties of
// their own; the first text and the first HTML as bodies, in any charset; every other part as an
// attachment with its header fields; nested mails as embedded messages, down to a depth of 16 and as
// files from there on. Kept with the original alone: the boundaries, encodings and order of the MIME tree,
// and what stands between the boundaries' lines (preamble and epilogue).
//
// S_OK           everything was written; `message` is unsaved.
// E_OUTOFMEMORY  memory ran out.
// STG_E_*        of a mail that is large the bytes couldn't be read, or copied to a temporary file.
// Others come unchanged from `message`; it holds a part of the mail then.
//
// Any thread.
[[nodiscard]] HRESULT ImportMime(const MailBytes& bytes, const ImportOptions& options,
                                 IMessage& message) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_HOST_MIME_IMPORT_MIME_H_
