// host/mime/mail_structure.h: which part of a MIME tree is what: the bodies, and everything else.
#ifndef QUORVANE_HOST_MIME_MAIL_STRUCTURE_H_
#define QUORVANE_HOST_MIME_MAIL_STRUCTURE_H_

#include <optional>
#include <string>
#include <vector>

#include "host/mime/gmime_ptr.h"
#include "quorvane3/mapi.h"

namespace quorvane {

struct MailPart {
    GMimeObject* object = nullptr;  // a GMimePart or a GMimeMessagePart, never null
    bool related = false;           // stands beside HTML in a multipart/related
};

// Points into the message that it was made of, which must outlive it.
struct MailStructure {
    GMimePart* text = nullptr;  // null: no plain text body
    GMimePart* html = nullptr;  // null: no HTML body
    std::string looseText;      // what a multipart without parts holds, undecoded; usually empty
    std::vector<MailPart> attachments;
};

// Assigns each leaf of the tree once.
//
// The bodies are the first text/plain and text/html that aren't marked as attachments, both only where
// they are alternatives of each other; a text of an unknown kind is the body when there is no other. All
// else is an attachment, in the order of the tree.
MailStructure SplitMail(GMimeMessage* message);

}  // namespace quorvane

#endif  // QUORVANE_HOST_MIME_MAIL_STRUCTURE_H_
