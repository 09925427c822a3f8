// msgstore/imsg/property_stream_format.h: the stream that lists an object's properties (MS-OXMSG).
#ifndef QUORVANE_MSGSTORE_IMSG_PROPERTY_STREAM_FORMAT_H_
#define QUORVANE_MSGSTORE_IMSG_PROPERTY_STREAM_FORMAT_H_

#include <cstddef>

namespace quorvane {

// The stream begins with a header, which differs by the kind of object, and goes on with one entry of 16
// bytes for each property:
//
//   offset 0   tag: type in the lower, identifier in the upper 16 bits
//          4   flags
//          8   a number, boolean, time...: its bytes; all other types: the value's size in bytes, with the
//              terminator of a text that its stream hasn't, and at 12 a hint of what an object is
inline constexpr std::size_t kOutermostHeader = 32;
inline constexpr std::size_t kEmbeddedHeader = 24;
inline constexpr std::size_t kPartHeader = 8;  // of recipients and attachments

// In a message's header.
inline constexpr std::size_t kNextRecipientAt = 8;
inline constexpr std::size_t kNextAttachmentAt = 12;
inline constexpr std::size_t kRecipientCountAt = 16;
inline constexpr std::size_t kAttachmentCountAt = 20;

inline constexpr std::size_t kEntrySize = 16;
inline constexpr std::size_t kEntryFlagsAt = 4;
inline constexpr std::size_t kEntryValueAt = 8;
inline constexpr std::size_t kEntryHintAt = 12;

inline constexpr unsigned kReadableWritable = 6;
inline constexpr unsigned kObjectSize = 0xFFFFFFFF;
inline constexpr unsigned kHintMessage = 1;
inline constexpr unsigned kHintStorage = 4;

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_IMSG_PROPERTY_STREAM_FORMAT_H_
