#include "platform/cfb/mapped_windows_posix.h"

#include <sys/mman.h>
#include <sys/vfs.h>

#include <algorithm>
#include <array>

#include "platform/cfb/byte_store.h"

namespace quorvane::cfb {
namespace {

#ifdef MADV_POPULATE_WRITE
constexpr int kPopulate = MADV_POPULATE_WRITE;
#else
constexpr int kPopulate = 23;  // of the kernel, whose headers may be older; one that lacks it refuses
#endif

// File systems that keep a block in its place when it is written again, as the kernel numbers them.
constexpr std::array<std::uint32_t, 4> kInPlace = {
    0x0000EF53,  // ext2, ext3, ext4
    0x58465342,  // XFS
    0x01021994,  // tmpfs
    0x794C7630,  // overlayfs
};

constexpr std::size_t kPage = ByteStore::kAtomicPage;

}  // namespace

MappedWindows::~MappedWindows()
{
    for (Window& window : windows_)
        Unmap(window);
}

bool MappedWindows::Fits() noexcept
{
    struct statfs status;
    if (::fstatfs(file_, &status) != 0)
        return false;
    const auto type = static_cast<std::uint32_t>(status.f_type);
    return std::find(kInPlace.begin(), kInPlace.end(), type) != kInPlace.end();
}

void MappedWindows::Unmap(Window& window) noexcept
{
    if (window.bytes)
        ::munmap(window.bytes, kWindow);
    window = Window{};
}

bool MappedWindows::Map(Window& window, std::uint64_t number) noexcept
{
    Unmap(window);
    void* const at = ::mmap(nullptr, kWindow, PROT_READ | PROT_WRITE, MAP_SHARED, file_,
                            static_cast<off_t>(number * kWindow));
    if (at == MAP_FAILED)
        return false;
    window.bytes = static_cast<BYTE*>(at);
    window.number = number;
    return true;
}

// A refusal by the system ends the use of windows for this file: the calls that write tell what is wrong.
bool MappedWindows::MakeReady(Window& window, std::uint64_t offset, std::size_t count,
                              std::uint64_t size) noexcept
{
    const std::uint64_t number = offset / kWindow;
    if (state_ == State::kUnknown)
        state_ = Fits() ? State::kOn : State::kOff;
    if (state_ == State::kOff || offset + count > size)
        return false;
    if (window.number != number) {
        if (std::count(last_.begin(), last_.end(), number) < kMany)
            return false;
        if (!Map(window, number)) {
            state_ = State::kOff;
            return false;
        }
    }
    const std::uint64_t end =
        (std::min(size - number * kWindow, std::uint64_t{kWindow}) + kPage - 1) / kPage * kPage;
    const std::size_t fresh = static_cast<std::size_t>(end) - window.ready;
    if (::madvise(window.bytes + window.ready, fresh, kPopulate) != 0) {
        Unmap(window);
        state_ = State::kOff;
        return false;
    }
    window.ready = static_cast<std::size_t>(end);
    return true;
}

void MappedWindows::ForgetFrom(std::uint64_t size) noexcept
{
    for (Window& window : windows_) {
        if (window.number != kNone && (window.number + 1) * kWindow > size)
            Unmap(window);
    }
}

}  // namespace quorvane::cfb
