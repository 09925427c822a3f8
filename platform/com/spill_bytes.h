// platform/com/spill_bytes.h: an array of bytes of any size that takes little memory.
#ifndef QUORVANE_PLATFORM_COM_SPILL_BYTES_H_
#define QUORVANE_PLATFORM_COM_SPILL_BYTES_H_

#include <vector>

#include "platform/com/nameless_file.h"

namespace quorvane {

// Bytes that grow and shrink: in memory up to kMemoryLimit, beyond that in a temporary file without a name.
// What was never written reads as zeros. A failed call leaves the size as it was.
//
// One call at a time. Codes as NamelessFile's; E_OUTOFMEMORY where memory is short.
class SpillBytes {
public:
    static constexpr std::uint64_t kMemoryLimit = std::uint64_t{1} << 20;

    SpillBytes() noexcept = default;
    explicit SpillBytes(std::vector<BYTE> bytes) noexcept : memory_(std::move(bytes)), size_(memory_.size())
    {}

    std::uint64_t Size() const noexcept { return size_; }

    // Reads up to `count` bytes from `offset` on; `read` gets how many there were, fewer only at the end, and
    // 0 after a failure.
    [[nodiscard]] HRESULT ReadAt(std::uint64_t offset, void* buffer, std::size_t count,
                                 std::size_t& read) noexcept;
    // Writes all of `count` bytes and grows as needed.
    [[nodiscard]] HRESULT WriteAt(std::uint64_t offset, const void* buffer, std::size_t count) noexcept;
    // Cuts, or grows with zeros.
    [[nodiscard]] HRESULT Resize(std::uint64_t size) noexcept;

private:
    [[nodiscard]] HRESULT ResizeMemory(std::uint64_t size) noexcept;
    [[nodiscard]] HRESULT ResizeFile(std::uint64_t size) noexcept;
    [[nodiscard]] HRESULT MoveToFile() noexcept;

    std::vector<BYTE> memory_;
    NamelessFile file_;
    std::uint64_t size_ = 0;
};

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_COM_SPILL_BYTES_H_
