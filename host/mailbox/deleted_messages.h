// host/mailbox/deleted_messages.h: which messages were deleted here, as far as the message store remembers.
#ifndef QUORVANE_HOST_MAILBOX_DELETED_MESSAGES_H_
#define QUORVANE_HOST_MAILBOX_DELETED_MESSAGES_H_

#include <string>
#include <unordered_set>

#include "host/mailbox/mailbox.h"

namespace quorvane::host {

// The GUID in the text of a message's entry identifier, as hexadecimal text; empty when it is none.
std::string GuidIn(const std::string& entryId);

// As it stood when this was made. Throws a HostError.
class DeletedMessages {
public:
    explicit DeletedMessages(const Mailbox& mailbox);

    // Whether the message of an entry identifier, in hexadecimal text, is known to have been deleted.
    bool Has(const std::string& entryId) const;
    // Of one that went so long ago that it isn't remembered, it may be.
    bool MayHave(const std::string& entryId) const { return !remembersAll_ || Has(entryId); }

private:
    bool remembersAll_ = false;
    std::unordered_set<std::string> guids_;
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_MAILBOX_DELETED_MESSAGES_H_
