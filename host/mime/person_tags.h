// host/mime/person_tags.h: the properties that tell of a person.
#ifndef QUORVANE_HOST_MIME_PERSON_TAGS_H_
#define QUORVANE_HOST_MIME_PERSON_TAGS_H_

#include "quorvane3/mapi.h"

namespace quorvane {

struct PersonTags {
    ULONG name, type, address, smtp, searchKey, entryId;
};

inline constexpr PersonTags kSender = {PR_SENDER_NAME_W,      PR_SENDER_ADDRTYPE_W, PR_SENDER_EMAIL_ADDRESS_W,
                                       kPrSenderSmtpAddressW, PR_SENDER_SEARCH_KEY, PR_SENDER_ENTRYID};
inline constexpr PersonTags kSentRepresenting = {
    PR_SENT_REPRESENTING_NAME_W,     PR_SENT_REPRESENTING_ADDRTYPE_W, PR_SENT_REPRESENTING_EMAIL_ADDRESS_W,
    kPrSentRepresentingSmtpAddressW, PR_SENT_REPRESENTING_SEARCH_KEY, PR_SENT_REPRESENTING_ENTRYID};
// In a message's table of recipients.
inline constexpr PersonTags kRecipient = {PR_DISPLAY_NAME_W, PR_ADDRTYPE_W, PR_EMAIL_ADDRESS_W,
                                          kPrSmtpAddressW,   PR_SEARCH_KEY, PR_ENTRYID};

}  // namespace quorvane

#endif  // QUORVANE_HOST_MIME_PERSON_TAGS_H_
