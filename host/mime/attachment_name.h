// host/mime/attachment_name.h: the names under which stores keep an attachment.
#ifndef QUORVANE_HOST_MIME_ATTACHMENT_NAME_H_
#define QUORVANE_HOST_MIME_ATTACHMENT_NAME_H_

#include <string>

#include "host/mime/gmime_ptr.h"

namespace quorvane {

// The name that a part gives its content, decoded, as it stands: it may hold slashes, dots and anything
// else, and must never become a path unchecked. Empty when the part has no name.
std::string PartName(GMimeObject* part);

// The last dot of a name and what follows it; empty when there is none or the name ends with it.
std::string NameExtension(const std::string& name);

// A name of the 8.3 kind for a name of any kind: ASCII letters, digits, "-" and "_" of it alone. Empty for
// an empty name.
std::string ShortName(const std::string& name);

}  // namespace quorvane

#endif  // QUORVANE_HOST_MIME_ATTACHMENT_NAME_H_
