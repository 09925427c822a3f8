// platform/cfb/mapped_windows_posix.h: the parts of a file that are written most, in memory.
#ifndef QUORVANE_PLATFORM_CFB_MAPPED_WINDOWS_POSIX_H_
#define QUORVANE_PLATFORM_CFB_MAPPED_WINDOWS_POSIX_H_

#include <array>
#include <cstddef>
#include <cstdint>

#include "platform/com/com.h"

namespace quorvane::cfb {

// A few windows of a file that is open for writing, mapped so that what is stored there is in the file at
// once and stays when the process is killed. A window comes into being where many of the last writes went,
// and goes when another one needs its place.
//
// Pages are made present and writable before anything is stored, so that a full disk shows there, as a call
// that fails, and never as a signal. That holds on file systems that write a block again where it is; on
// others nothing is mapped. A program that cuts the file while it is open here ends this process: the lock on
// the file is there to keep it from that.
//
// One call at a time.
class MappedWindows {
public:
    explicit MappedWindows(int file) noexcept : file_(file) {}
    MappedWindows(const MappedWindows&) = delete;
    MappedWindows& operator=(const MappedWindows&) = delete;
    ~MappedWindows();

    // Where the bytes [offset, offset + count) of a file of `size` bytes are stored to; null when they aren't
    // in a window. They lie within one page, and within the file.
    BYTE* At(std::uint64_t offset, std::size_t count, std::uint64_t size) noexcept
    {
        Window& window = windows_[offset / kWindow % kWindows];
        const std::size_t within = offset % kWindow;
        const bool ready = window.number == offset / kWindow && within + count <= window.ready;
        return ready || MakeReady(window, offset, count, size) ? window.bytes + within : nullptr;
    }
    // A call of the system wrote there.
    void NoteWrite(std::uint64_t offset) noexcept { last_[next_++ % last_.size()] = offset / kWindow; }
    // To be called before the file is cut to `size` bytes.
    void ForgetFrom(std::uint64_t size) noexcept;

private:
    static constexpr std::size_t kWindow = 65536;
    static constexpr std::size_t kWindows = 32;
    static constexpr std::size_t kLastWrites = 16;
    static constexpr std::ptrdiff_t kMany = 8;  // of them
    static constexpr std::uint64_t kNone = ~std::uint64_t{0};

    struct Window {
        std::uint64_t number = kNone;
        BYTE* bytes = nullptr;
        std::size_t ready = 0;  // bytes from its beginning that may be stored to
    };

    bool MakeReady(Window& window, std::uint64_t offset, std::size_t count, std::uint64_t size) noexcept;
    bool Map(Window& window, std::uint64_t number) noexcept;
    static void Unmap(Window& window) noexcept;
    bool Fits() noexcept;

    const int file_;
    enum class State { kUnknown, kOn, kOff } state_ = State::kUnknown;
    std::array<Window, kWindows> windows_;
    std::array<std::uint64_t, kLastWrites> last_{};  // the windows of the last writes
    std::size_t next_ = 0;
};

}  // namespace quorvane::cfb

#endif  // QUORVANE_PLATFORM_CFB_MAPPED_WINDOWS_POSIX_H_
