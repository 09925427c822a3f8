// msgstore/props/property_value.h: one property with its owned value.
#ifndef QUORVANE_MSGSTORE_PROPS_PROPERTY_VALUE_H_
#define QUORVANE_MSGSTORE_PROPS_PROPERTY_VALUE_H_

#include <memory>
#include <string_view>
#include <vector>

#include "msgstore/props/large_value.h"
#include "msgstore/util/memory.h"

namespace quorvane {

// A text or binary value above this size is held out of line and isn't handed out in a list of
// properties: GetProps answers it with MAPI_E_NOT_ENOUGH_MEMORY, and a stream carries it.
inline constexpr std::uint64_t kListedValueLimit = 64 * 1024;
// For values that have no stream, such as a recipient's: they are given out whole.
inline constexpr std::uint64_t kNoValueLimit = UINT64_MAX;
// Texts that are converted, compared or put together are taken whole up to this size, which no text of a
// message reaches.
inline constexpr std::uint64_t kWholeTextLimit = 256 * 1024 * 1024;

// A property's tag and its value, in one form for all types:
//   data   single value: the little-endian bytes of a number, 2 bytes of a boolean, 8 of a FILETIME, 16
//          of a GUID; the bytes of a PT_BINARY; the text of a string without terminator (PT_UNICODE:
//          UTF-16LE). Multiple values of a fixed-size type: those bytes, one value after the other.
//   items  multiple values of a string or binary type: one entry a value.
//   large  if not null, the single value out of line; `data` is empty then. A PT_OBJECT value is always
//          one: the image of a compound file.
// Value semantics; copies share the value out of line.
struct PropertyValue {
    ULONG tag = PR_NULL;
    Bytes data;
    std::vector<Bytes> items;
    std::shared_ptr<LargeValue> large;

    static PropertyValue Long(ULONG tag, LONG value);
    static PropertyValue Boolean(ULONG tag, bool value);
    static PropertyValue Int64(ULONG tag, LONGLONG value);
    static PropertyValue Time(ULONG tag, FILETIME value);
    static PropertyValue Binary(ULONG tag, const void* bytes, std::size_t size);
    static PropertyValue Unicode(ULONG tag, OleStringView text);
    static PropertyValue String8(ULONG tag, std::string_view text);

    ULONG id() const noexcept { return PROP_ID(tag); }
    ULONG type() const noexcept { return PROP_TYPE(tag); }
    // The bytes of a single value, in line or not; the sum of all values of several.
    std::uint64_t ByteSize() const noexcept;

    // The value of a number or boolean of any width; 0 for other types.
    LONGLONG AsInteger() const noexcept;
    FILETIME AsTime() const noexcept;
    // The text of a string, out of line as well (up to kWholeTextLimit); empty for other types.
    // 8-bit text is taken as UTF-8; where it isn't, in the code page given, 0 standing for Windows-1252.
    OleString AsText(ULONG codePage = 0) const;
};

// Takes over a caller's value.
//
// value  [in]  a string, binary or array pointer may be null only where its count is 0.
//
// S_OK; MAPI_E_INVALID_TYPE: the type has no value to keep (PT_UNSPECIFIED, PT_NULL, PT_ERROR,
// PT_OBJECT, unknown); MAPI_E_INVALID_PARAMETER: a null pointer with a count; E_OUTOFMEMORY.
// `result` is untouched on failure.
[[nodiscard]] HRESULT FromSPropValue(const SPropValue& value, PropertyValue& result) noexcept;

// Gives a value out, with whatever it points at on the chain of `root`.
//
// type    the value's own type, or the other of PT_STRING8/PT_UNICODE (also multi-valued); the result
//         carries it. 8-bit text is given as its bytes stand and made from PT_UNICODE as UTF-8.
// codePage  that of 8-bit text which isn't UTF-8, 0 for Windows-1252.
// result  [out]  on failure a PT_ERROR value with the failure's code.
// limit   the size of a single value above which it isn't given.
//
// S_OK; MAPI_E_UNEXPECTED_TYPE: `type` is neither; MAPI_E_NOT_ENOUGH_MEMORY: above the limit or no memory; a
// PT_OBJECT gives S_OK and a value of 0.
[[nodiscard]] HRESULT ToSPropValue(const PropertyValue& value, ULONG type, const MapiAllocator& allocator,
                                   void* root, SPropValue& result, ULONG codePage = 0,
                                   std::uint64_t limit = kListedValueLimit) noexcept;

// Bytes of one value of a fixed-size type (multi-valued types as their base); 0 for all others.
std::size_t FixedSize(ULONG type) noexcept;
// Whether `type` is a type of MAPI that a bag can hold, single or multi-valued.
bool IsStorableType(ULONG type) noexcept;
// PT_STRING8, PT_UNICODE or their multi-valued forms.
bool IsTextType(ULONG type) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_PROPS_PROPERTY_VALUE_H_
