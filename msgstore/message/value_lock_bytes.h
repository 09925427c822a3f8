// msgstore/message/value_lock_bytes.h: a property's value as an array of bytes for a compound file.
#ifndef QUORVANE_MSGSTORE_MESSAGE_VALUE_LOCK_BYTES_H_
#define QUORVANE_MSGSTORE_MESSAGE_VALUE_LOCK_BYTES_H_

#include <memory>

#include "msgstore/props/spool_value.h"
#include "platform/com/com_ptr.h"

namespace quorvane {

// An array that reads `value`; writing gives STG_E_ACCESSDENIED. Empty when memory is short.
ComPtr<ILockBytes> MakeReadBytes(std::shared_ptr<LargeValue> value) noexcept;
// An array that reads and writes `value`. Empty when memory is short.
ComPtr<ILockBytes> MakeWriteBytes(std::shared_ptr<SpoolValue> value) noexcept;

// Makes the compound-file image of a storage: a copy of all its elements.
[[nodiscard]] HRESULT ImageOfStorage(IStorage& storage, std::shared_ptr<SpoolValue>& image) noexcept;
// Copies all elements of a compound-file image into a storage.
[[nodiscard]] HRESULT CopyImage(std::shared_ptr<LargeValue> image, IStorage& storage) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_MESSAGE_VALUE_LOCK_BYTES_H_
