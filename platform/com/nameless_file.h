// platform/com/nameless_file.h: a temporary file that nobody else can open and that ends with its owner.
#ifndef QUORVANE_PLATFORM_COM_NAMELESS_FILE_H_
#define QUORVANE_PLATFORM_COM_NAMELESS_FILE_H_

#include <cstddef>
#include <cstdint>

#include "platform/com/com.h"

namespace quorvane {

// Lies in the directory that TMPDIR names, else in /var/tmp or /tmp, which more often is memory; on Windows
// in the user's temporary directory. Off Windows it has no name there from the beginning, so that not even a
// kill leaves it behind.
//
// One call at a time. Codes: STG_E_MEDIUMFULL where the disk is full, STG_E_ACCESSDENIED, STG_E_PATHNOTFOUND,
// STG_E_TOOMANYOPENFILES, E_OUTOFMEMORY, STG_E_READFAULT and STG_E_WRITEFAULT for all else.
class NamelessFile {
public:
    NamelessFile() noexcept = default;
    NamelessFile(const NamelessFile&) = delete;
    NamelessFile& operator=(const NamelessFile&) = delete;
    ~NamelessFile() { Close(); }

    // Makes the file, empty, in place of an earlier one.
    [[nodiscard]] HRESULT Create() noexcept;
    void Close() noexcept;
    bool IsOpen() const noexcept { return handle_ != kNone; }

    // Reads all of `count` bytes. STG_E_READFAULT: there are fewer.
    [[nodiscard]] HRESULT ReadAt(std::uint64_t offset, void* buffer, std::size_t count) noexcept;
    // Writes all of `count` bytes; what lies there is undefined after a failure.
    [[nodiscard]] HRESULT WriteAt(std::uint64_t offset, const void* buffer, std::size_t count) noexcept;
    // Cuts, or grows with zeros.
    [[nodiscard]] HRESULT Resize(std::uint64_t size) noexcept;

private:
    static constexpr std::intptr_t kNone = -1;

    std::intptr_t handle_ = kNone;
};

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_COM_NAMELESS_FILE_H_
