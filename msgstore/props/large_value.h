// msgstore/props/large_value.h: a property's bytes that stay out of line and are read piece by piece.
#ifndef QUORVANE_MSGSTORE_PROPS_LARGE_VALUE_H_
#define QUORVANE_MSGSTORE_PROPS_LARGE_VALUE_H_

#include <cstdint>
#include <memory>
#include <vector>

#include "platform/mapi/mapi.h"

namespace quorvane {

using Bytes = std::vector<BYTE>;

// The bytes of one string, binary or object value: of text without its terminator, UTF-16 units in
// little-endian order. Whoever keeps messages derives from it, so that a value comes from its rows or
// its stream only when it's read. Any thread may call; the bytes don't change while a holder exists,
// or reading fails.
class LargeValue {
public:
    virtual ~LargeValue() = default;

    virtual std::uint64_t Size() const noexcept = 0;

    // Reads up to `count` bytes from `offset` on.
    //
    // read  [out]  what was read: less than `count` only at the end; 0 beyond it and on failure.
    //
    // Failures are those of the place: MAPI_E_OBJECT_CHANGED, MAPI_E_DISK_ERROR, STG_E_*...
    [[nodiscard]] virtual HRESULT ReadAt(std::uint64_t offset, void* buffer, ULONG count,
                                         ULONG& read) noexcept = 0;
};

// Reads the whole value. MAPI_E_NOT_ENOUGH_MEMORY: it exceeds `limit` bytes; MAPI_E_CORRUPT_DATA: it
// ended before its size, for which no memory was taken then. `bytes` is empty after a failure.
[[nodiscard]] HRESULT ReadWhole(LargeValue& value, std::uint64_t limit, Bytes& bytes) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_PROPS_LARGE_VALUE_H_
