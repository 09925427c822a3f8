// platform/mapi/more_tags.h: published property tags and flags that the SDK's classic headers lack.
#ifndef QUORVANE_PLATFORM_MAPI_MORE_TAGS_H_
#define QUORVANE_PLATFORM_MAPI_MORE_TAGS_H_

#include "platform/com/com.h"

namespace quorvane {

// MS-OXPROPS names the properties; the numbers are theirs.
inline constexpr ULONG kPrHtml = 0x10130102;                    // PidTagHtml, binary
inline constexpr ULONG kPrBodyHtmlW = 0x1013001F;               // PidTagBodyHtml
inline constexpr ULONG kPrNativeBody = 0x10160003;              // PidTagNativeBody
inline constexpr ULONG kPrInternetMessageIdW = 0x1035001F;      // PidTagInternetMessageId
inline constexpr ULONG kPrInternetReferencesW = 0x1039001F;     // PidTagInternetReferences
inline constexpr ULONG kPrInReplyToIdW = 0x1042001F;            // PidTagInReplyToId
inline constexpr ULONG kPrInternetCpid = 0x3FDE0003;            // PidTagInternetCodepage
inline constexpr ULONG kPrMessageCodepage = 0x3FFD0003;         // PidTagMessageCodepage
inline constexpr ULONG kPrMessageEditorFormat = 0x59090003;     // PidTagMessageEditorFormat
inline constexpr ULONG kPrSmtpAddressW = 0x39FE001F;            // PidTagSmtpAddress
inline constexpr ULONG kPrAttachContentIdW = 0x3712001F;        // PidTagAttachContentId
inline constexpr ULONG kPrAttachContentLocationW = 0x3713001F;  // PidTagAttachContentLocation
inline constexpr ULONG kPrAttachFlags = 0x37140003;             // PidTagAttachFlags
inline constexpr ULONG kPrAttachmentHidden = 0x7FFE000B;        // PidTagAttachmentHidden
inline constexpr ULONG kPrAttachmentFlags = 0x7FFD0003;         // PidTagAttachmentFlags
inline constexpr ULONG kPrMessageStatus = 0x0E170003;           // PidTagMessageStatus
inline constexpr ULONG kPrChangeKey = 0x65E20102;               // PidTagChangeKey
inline constexpr ULONG kPrSentRepresentingSmtpAddressW = 0x5D02001F;
inline constexpr ULONG kPrSenderSmtpAddressW = 0x5D01001F;
inline constexpr ULONG kStoreUnicodeOk = 0x00040000;      // STORE_UNICODE_OK
inline constexpr ULONG kAttachFlagMhtmlRef = 0x00000004;  // the body refers to the attachment

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_MAPI_MORE_TAGS_H_
