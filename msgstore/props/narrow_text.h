// msgstore/props/narrow_text.h: a text's UTF-16 in UTF-8 and back, without any loss.
#ifndef QUORVANE_MSGSTORE_PROPS_NARROW_TEXT_H_
#define QUORVANE_MSGSTORE_PROPS_NARROW_TEXT_H_

#include <span>

#include "msgstore/props/large_value.h"

namespace quorvane {

// Appends text in UTF-8.
//
// text  UTF-16, little-endian; NULs are characters as others.
//
// False: it has a lone surrogate or half a unit, so that it can't be given back, or it takes no fewer bytes;
// nothing was appended. Throws std::bad_alloc.
bool AppendNarrow(std::span<const BYTE> text, Bytes& to);

// Puts UTF-8 back into UTF-16, little-endian. False: it isn't UTF-8. Throws std::bad_alloc.
bool Widen(std::span<const BYTE> narrow, Bytes& text);

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_PROPS_NARROW_TEXT_H_
