// host/commands/mail_format.h: mail in MIME (.eml, mbox, Maildir) to and from messages, in a build that has a
// library for MIME. Messages in .msg files (msg_file.h) are read and written by every build.
#ifndef QUORVANE_HOST_COMMANDS_MAIL_FORMAT_H_
#define QUORVANE_HOST_COMMANDS_MAIL_FORMAT_H_

#include <ostream>

#include "host/mail/mail_reader.h"
#include "quorvane3/mapi.h"

namespace quorvane::host {

// Whether this build has it. Where it doesn't, the two functions give MAPI_E_NO_SUPPORT.
bool KnowsMime() noexcept;

// Fills a new message, which the caller saves, with a mail of the kind Mime, and with its bytes where these
// are to be kept; as ImportMime.
[[nodiscard]] HRESULT ImportMail(const FoundMail& mail, bool keepOriginal, IMessage& message);

// Writes a message as .eml; as ExportMail of host/mime. Messages are made in `folder` that are never saved.
[[nodiscard]] HRESULT ExportMailOf(IMAPIFolder& folder, IMessage& message, std::ostream& out);

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_COMMANDS_MAIL_FORMAT_H_
