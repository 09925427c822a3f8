// msgstore/imsg/element_names.h: what the parts of a message on a storage are called (MS-OXMSG).
#ifndef QUORVANE_MSGSTORE_IMSG_ELEMENT_NAMES_H_
#define QUORVANE_MSGSTORE_IMSG_ELEMENT_NAMES_H_

#include "platform/mapi/mapi.h"

namespace quorvane {

inline constexpr OleStringView kPropertiesName = OLESTR("__properties_version1.0");
inline constexpr OleStringView kNamesName = OLESTR("__nameid_version1.0");
inline constexpr OleStringView kRecipientPrefix = OLESTR("__recip_version1.0_#");
inline constexpr OleStringView kAttachmentPrefix = OLESTR("__attach_version1.0_#");
inline constexpr OleStringView kValuePrefix = OLESTR("__substg1.0_");

// "__substg1.0_0037001F" for a tag.
OleString ValueName(ULONG tag);
// "__substg1.0_8000101F-00000002" for one of several values.
OleString ItemName(ULONG tag, ULONG index);
// A prefix and a number of eight digits: "__recip_version1.0_#0000000A".
OleString NumberedName(OleStringView prefix, ULONG number);
// The number after a prefix; false for any other name.
bool ParseNumber(OleStringView name, OleStringView prefix, ULONG& number) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_IMSG_ELEMENT_NAMES_H_
