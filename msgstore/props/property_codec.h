// msgstore/props/property_codec.h: a bag as one run of bytes, for places that keep it in one row.
#ifndef QUORVANE_MSGSTORE_PROPS_PROPERTY_CODEC_H_
#define QUORVANE_MSGSTORE_PROPS_PROPERTY_CODEC_H_

#include <vector>

#include "msgstore/props/property_bag.h"

namespace quorvane {

// Encodes a bag. Values of more than `inlineLimit` bytes, and all single values out of line, aren't
// encoded: they are listed in `outOfLine` for the caller to keep by themselves.
//
// outOfLine  [out]  pointers into `bag`, in ascending order; they hold until the bag changes. Only
//                   single values of string, binary and object types ever go there.
//
// May throw std::bad_alloc.
void EncodeProperties(const PropertyBag& bag, std::uint64_t inlineLimit, Bytes& bytes,
                      std::vector<const PropertyValue*>& outOfLine);

// Adds the values of an encoded run to a bag.
//
// S_OK; MAPI_E_CORRUPT_DATA: the run isn't well formed (what was read before stays in the bag);
// E_OUTOFMEMORY.
[[nodiscard]] HRESULT DecodeProperties(const void* bytes, std::size_t size, PropertyBag& bag) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_PROPS_PROPERTY_CODEC_H_
