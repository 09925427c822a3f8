// host/mime/mail_envelope.h: what a mail's header fields say, decoded.
#ifndef QUORVANE_HOST_MIME_MAIL_ENVELOPE_H_
#define QUORVANE_HOST_MIME_MAIL_ENVELOPE_H_

#include <optional>
#include <string>
#include <vector>

#include "host/mime/address_list.h"
#include "host/mime/gmime_ptr.h"
#include "quorvane3/mapi.h"

namespace quorvane {

struct MailRecipient {
    LONG type = MAPI_TO;
    MailAddress who;

    friend bool operator==(const MailRecipient&, const MailRecipient&) = default;
};

// An empty optional: the mail has no such field, or none that means anything.
struct MailEnvelope {
    std::optional<std::string> subject;
    std::vector<MailAddress> from;
    std::vector<MailAddress> sender;
    std::vector<MailAddress> replyTo;
    std::vector<MailRecipient> recipients;  // To, then Cc, then Bcc; groups as their members
    std::optional<FILETIME> sent;
    std::optional<FILETIME> received;  // as the last relay says
    std::optional<std::string> messageId;
    std::optional<std::string> inReplyTo;
    std::optional<std::string> references;
    std::optional<LONG> importance;   // IMPORTANCE_*
    std::optional<LONG> priority;     // PRIO_*
    std::optional<LONG> sensitivity;  // SENSITIVITY_*
    bool readReceipt = false;
    bool deliveryReceipt = false;
    std::optional<std::string> threadTopic;
    std::string threadIndex;  // bytes
};

MailEnvelope ReadEnvelope(GMimeMessage* message);

// The header fields of a message or part, one a line or several, as they stand, CRLF between them; bytes
// without a charset are read as UTF-8 or else as windows-1252. Clean UTF-8.
std::string HeaderBlock(GMimeObject* object);
// A header block as it stands in a mail, in the same form, lines that are no fields included.
std::string HeaderText(const std::string& block);

// Splits "Re: something" as stores do: one to three characters, no digit or space among
// them, a colon and a space are the prefix.
struct SplitSubject {
    std::string prefix;  // "Re: ", or empty
    std::string normal;
};
SplitSubject SplitSubjectPrefix(const std::string& subject);

}  // namespace quorvane

#endif  // QUORVANE_HOST_MIME_MAIL_ENVELOPE_H_
