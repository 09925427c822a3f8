// msgstore/props/text_encoding.h: 8-bit text of messages in whatever code page it was written.
#ifndef QUORVANE_MSGSTORE_PROPS_TEXT_ENCODING_H_
#define QUORVANE_MSGSTORE_PROPS_TEXT_ENCODING_H_

#include <string>
#include <string_view>

#include "msgstore/props/property_bag.h"

namespace quorvane {

// Reads 8-bit text. Well-formed UTF-8 is taken as such; else the code page decides; where that's 0,
// unknown or doesn't fit the bytes, Windows-1252 does, which fits all.
//
// codePage  a Windows code page number, or 0.
//
// May throw std::bad_alloc.
OleString Decode8Bit(std::string_view text, ULONG codePage);

// UTF-16 as 8-bit text in UTF-8. May throw std::bad_alloc.
std::string Encode8Bit(OleStringView text);

// The code page that a message states for its 8-bit text: that of PR_MESSAGE_CODEPAGE, else that of
// PR_INTERNET_CPID, else 0.
ULONG StatedCodePage(const PropertyBag& properties) noexcept;

bool IsWellFormedUtf8(std::string_view text) noexcept;

// Reads text of one code page by the system's tables. False if the system doesn't know the page or the
// bytes don't fit it.
bool DecodeCodePage(std::string_view text, ULONG codePage, OleString& result);

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_PROPS_TEXT_ENCODING_H_
