// host/mime/import_properties.h: what a mail's envelope is as MAPI properties and recipients.
#ifndef QUORVANE_HOST_MIME_IMPORT_PROPERTIES_H_
#define QUORVANE_HOST_MIME_IMPORT_PROPERTIES_H_

#include <vector>

#include "host/mime/mail_envelope.h"
#include "host/mime/property_list.h"

namespace quorvane {

void AddEnvelopeProperties(const MailEnvelope& envelope, PropertyList& properties);

// Adds all recipients to the message's table. S_OK also when there are none; else the message's own code.
[[nodiscard]] HRESULT AddRecipients(const std::vector<MailRecipient>& recipients, IMessage& message);

}  // namespace quorvane

#endif  // QUORVANE_HOST_MIME_IMPORT_PROPERTIES_H_
