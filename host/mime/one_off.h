// host/mime/one_off.h: entry identifiers for people whom no address book knows (MS-OXCDATA, one-off form).
#ifndef QUORVANE_HOST_MIME_ONE_OFF_H_
#define QUORVANE_HOST_MIME_ONE_OFF_H_

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/mime/mail_envelope.h"

namespace quorvane {

// The bytes of an entry identifier for an SMTP address.
std::string OneOffEntryId(const MailAddress& who);

// What a one-off entry identifier says, in the 16-bit or the 8-bit form; nothing when it is none. Bytes
// may come from anywhere.
std::optional<MailAddress> ReadOneOffEntryId(std::string_view id);

// The bytes that identify an address for a search: "SMTP:NAME@EXAMPLE.ORG" and a NUL.
std::string AddressSearchKey(const MailAddress& who);

// Several identifiers in one value (a FLATENTRYLIST), and back; what isn't one-off is passed over.
std::string FlatEntryList(const std::vector<MailAddress>& people);
std::vector<MailAddress> ReadFlatEntryList(std::string_view list);

}  // namespace quorvane

#endif  // QUORVANE_HOST_MIME_ONE_OFF_H_
