// msgstore/props/property_codec.h: a bag as one run of bytes, for places that keep it in one row.
#ifndef QUORVANE_MSGSTORE_PROPS_PROPERTY_CODEC_H_
#define QUORVANE_MSGSTORE_PROPS_PROPERTY_CODEC_H_

#include <span>
#include <vector>

#include "msgstore/props/property_bag.h"

namespace quorvane {

// How a run is written; all are read alike.
enum class RunForm {
    Plain,   // text in UTF-16
    Narrow,  // text in UTF-8 where that's shorter
    Packed,  // likewise, and what is long and can be packed in one packed record, with a value that is a zlib
             // stream as the dictionary; read by DecodePacked and DecodeBesidePacked alone
};

// Encodes a bag. Values of more than `inlineLimit` bytes, and all single values out of line, aren't
// encoded: they are listed in `outOfLine` for the caller to keep by themselves.
//
// outOfLine  [out]  pointers into `bag`, in ascending order; they hold until the bag changes. Only
//                   single values of string, binary and object types ever go there.
//
// May throw std::bad_alloc.
void EncodeProperties(const PropertyBag& bag, RunForm form, std::uint64_t inlineLimit, Bytes& bytes,
                      std::vector<const PropertyValue*>& outOfLine);

// Adds the values of an encoded run, which isn't packed, to a bag.
//
// S_OK; MAPI_E_CORRUPT_DATA: the run isn't well formed (what was read before stays in the bag);
// E_OUTOFMEMORY.
[[nodiscard]] HRESULT DecodeProperties(const void* bytes, std::size_t size, PropertyBag& bag) noexcept;
// The same of a run that may be packed.
[[nodiscard]] HRESULT DecodePacked(const void* bytes, std::size_t size, PropertyBag& bag) noexcept;
// The same of those values alone that aren't in a packed record, at a part of the cost.
//
// packed  [out]  the tags of the others are appended.
[[nodiscard]] HRESULT DecodeBesidePacked(const void* bytes, std::size_t size, PropertyBag& bag,
                                         std::vector<ULONG>& packed) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_PROPS_PROPERTY_CODEC_H_
