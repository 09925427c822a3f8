// platform/bytes/byte_store.h: bytes at random places, whatever they lie in.
#ifndef QUORVANE_PLATFORM_BYTES_BYTE_STORE_H_
#define QUORVANE_PLATFORM_BYTES_BYTE_STORE_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

#include "platform/com/com.h"

namespace quorvane {

// Random access to an array of bytes that grows and shrinks. A write that lies within one page of
// kAtomicPage bytes (counted from the start) is seen whole or not at all by whoever opens the bytes after
// this process was killed; a longer one may have been cut between two pages.
//
// One call at a time.
class ByteStore {
public:
    static constexpr std::size_t kAtomicPage = 4096;

    // Which bytes they are, and of when.
    struct Identity {
        std::uint64_t device;
        std::uint64_t file;
        std::uint64_t size;
        std::int64_t changed;  // in nanoseconds

        bool operator==(const Identity&) const = default;
    };

    virtual ~ByteStore() = default;

    // Reads up to `count` bytes at `offset`; `read` gets how many there were, fewer only at the end.
    // STG_E_READFAULT and what else the system says.
    [[nodiscard]] virtual HRESULT ReadAt(std::uint64_t offset, void* to, std::size_t count,
                                         std::size_t* read) noexcept = 0;
    // Writes all of `count` bytes; grows the array as needed. STG_E_MEDIUMFULL, STG_E_WRITEFAULT,
    // STG_E_ACCESSDENIED; the bytes concerned are undefined after a failure.
    [[nodiscard]] virtual HRESULT WriteAt(std::uint64_t offset, const void* from,
                                          std::size_t count) noexcept = 0;
    // Cuts or grows with zeros. Codes as WriteAt.
    [[nodiscard]] virtual HRESULT SetSize(std::uint64_t size) noexcept = 0;
    [[nodiscard]] virtual HRESULT GetSize(std::uint64_t* size) noexcept = 0;

    // Sees to it that the array can grow to `size` bytes without being refused for want of room, where that
    // can be promised. Codes as WriteAt.
    [[nodiscard]] virtual HRESULT Reserve(std::uint64_t size) noexcept
    {
        static_cast<void>(size);
        return S_OK;
    }
    // Whether they still have the length that this store has left them. STG_E_WRITEFAULT: somebody else has
    // cut them, or made them longer.
    [[nodiscard]] virtual HRESULT Check() noexcept { return S_OK; }
    // The store's end is where it is to stay: what was reserved behind it for growth is given back.
    [[nodiscard]] virtual HRESULT Settle() noexcept { return S_OK; }

    // The bytes' identity; none where it can't be told.
    [[nodiscard]] virtual std::optional<Identity> Identify() noexcept { return std::nullopt; }
    // The same, and sees to it that any later write by anybody gives them another one.
    [[nodiscard]] virtual std::optional<Identity> Seal() noexcept { return std::nullopt; }
};

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_BYTES_BYTE_STORE_H_
