// msgstore/props/property_stream.h: IStream over one property of an object.
#ifndef QUORVANE_MSGSTORE_PROPS_PROPERTY_STREAM_H_
#define QUORVANE_MSGSTORE_PROPS_PROPERTY_STREAM_H_

#include <memory>

#include "msgstore/props/large_value.h"
#include "msgstore/props/spool_value.h"

namespace quorvane {

class PropertyObject;

// A stream that reads a value; every write gives STG_E_ACCESSDENIED. The value as it was when the stream
// was opened, whatever becomes of the object. S_OK, E_OUTOFMEMORY.
[[nodiscard]] HRESULT MakeReadStream(std::shared_ptr<LargeValue> value, LPUNKNOWN* stream) noexcept;

// A stream that reads and writes a property of `owner`, which it keeps alive. Every write is at once part
// of the opened object; it becomes permanent when the object is saved. After the object has become
// read-only a write gives E_ACCESSDENIED. S_OK, E_OUTOFMEMORY.
//
// tag    the property with the type to be kept.
// value  what the stream works on.
// start  where its cursor stands first.
[[nodiscard]] HRESULT MakeWriteStream(PropertyObject& owner, ULONG tag, std::shared_ptr<SpoolValue> value,
                                      std::uint64_t start, LPUNKNOWN* stream) noexcept;

// Text of one kind as the other. May throw std::bad_alloc.
Bytes ConvertText(const Bytes& text, ULONG from, ULONG to, ULONG codePage);

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_PROPS_PROPERTY_STREAM_H_
