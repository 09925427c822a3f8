// platform/bytes/lock_bytes_store.h: somebody's ILockBytes as a byte store.
#ifndef QUORVANE_PLATFORM_BYTES_LOCK_BYTES_STORE_H_
#define QUORVANE_PLATFORM_BYTES_LOCK_BYTES_STORE_H_

#include "platform/bytes/byte_store.h"
#include "platform/com/com_ptr.h"

namespace quorvane {

// Holds a reference. Whether a write is seen whole after a kill is up to the bytes' owner.
class LockBytesStore final : public ByteStore {
public:
    explicit LockBytesStore(ILockBytes* bytes) noexcept : bytes_(bytes) {}

    HRESULT ReadAt(std::uint64_t offset, void* to, std::size_t count, std::size_t* read) noexcept override;
    HRESULT WriteAt(std::uint64_t offset, const void* from, std::size_t count) noexcept override;
    HRESULT SetSize(std::uint64_t size) noexcept override;
    HRESULT GetSize(std::uint64_t* size) noexcept override;

private:
    ComPtr<ILockBytes> bytes_;
};

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_BYTES_LOCK_BYTES_STORE_H_
