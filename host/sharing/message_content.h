// host/sharing/message_content.h: everything that a message holds, in a form in which two messages can be
// compared.
#ifndef QUORVANE_HOST_SHARING_MESSAGE_CONTENT_H_
#define QUORVANE_HOST_SHARING_MESSAGE_CONTENT_H_

#include <map>
#include <string>
#include <vector>

#include "host/exchange/revision.h"
#include "quorvane3/mapi.h"

namespace quorvane::host {

// The name of each thing that a message holds, to its value: "0x0037001F", "recipient 2/0x3001001F",
// "attachment 1/message/{guid}/name:001F". A value of more than a few hundred bytes stands as its digest.
using MessageContent = std::map<std::string, std::string>;

// Reads all properties, recipients and attachments, embedded messages included. Left out is what the store
// decides by itself (see kStoreOwned in the source). Throws a HostError naming `shown`.
MessageContent ReadContent(IMessage& message, const std::string& shown);

// The names under which two messages differ.
std::vector<std::string> Differences(const MessageContent& a, const MessageContent& b);

// The digest of a message's content: of all that ReadContent gives, but of what a reader makes of a mail
// without changing it: whether it was read, answered or flagged.
exchange::ContentDigest DigestOf(MessageContent content);

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_SHARING_MESSAGE_CONTENT_H_
