// msgstore/props/spool_value.h: a value that is being written, before its message is saved.
#ifndef QUORVANE_MSGSTORE_PROPS_SPOOL_VALUE_H_
#define QUORVANE_MSGSTORE_PROPS_SPOOL_VALUE_H_

#include <mutex>

#include "msgstore/props/large_value.h"
#include "platform/com/spill_bytes.h"

namespace quorvane {

// Bytes that grow and shrink: in memory up to a megabyte, beyond that in a temporary file that ends with
// the object. Locks itself. A failed write leaves the size as it was.
class SpoolValue final : public LargeValue {
public:
    SpoolValue() = default;
    explicit SpoolValue(Bytes bytes) noexcept : bytes_(std::move(bytes)) {}

    std::uint64_t Size() const noexcept override;
    [[nodiscard]] HRESULT ReadAt(std::uint64_t offset, void* buffer, ULONG count,
                                 ULONG& read) noexcept override;

    // Writes all of `count` bytes at `offset`; a gap before it reads as zeros.
    // MAPI_E_NOT_ENOUGH_DISK, E_OUTOFMEMORY, STG_E_MEDIUMFULL (an end beyond 4 GB).
    [[nodiscard]] HRESULT WriteAt(std::uint64_t offset, const void* buffer, ULONG count) noexcept;
    // Cuts, or grows with zeros.
    [[nodiscard]] HRESULT Resize(std::uint64_t size) noexcept;
    // Replaces everything by the bytes of another value.
    [[nodiscard]] HRESULT Assign(LargeValue& other) noexcept;

private:
    mutable std::mutex mutex_;
    SpillBytes bytes_;
};

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_PROPS_SPOOL_VALUE_H_
