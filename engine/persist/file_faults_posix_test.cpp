// Stands between the test program and the system's calls.
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>

#include "engine/persist/testing/file_faults.h"

namespace quorvane::testing {
namespace {

std::atomic<Fault> armed{Fault::None};
std::atomic<unsigned> suffersAt{0};
std::atomic<unsigned> changes{0};

[[noreturn]] void Die() noexcept
{
    syscall(SYS_exit_group, 9);
    __builtin_unreachable();
}

// The fault that the present change suffers. Reads count for their own fault alone.
Fault NextChange(bool isRead) noexcept
{
    const Fault fault = armed;
    if (isRead != (fault == Fault::NoRead) || fault == Fault::KillAtByte)
        return Fault::None;
    return ++changes == suffersAt ? fault : Fault::None;
}

// How many bytes of a change may still arrive before the process ends. A change that isn't a write counts as
// one.
size_t BytesLeft(size_t count) noexcept
{
    if (armed != Fault::KillAtByte)
        return count;
    const size_t done = changes;
    changes = static_cast<unsigned>(done + count);
    return done + count <= suffersAt ? count : suffersAt - std::min<size_t>(done, suffersAt);
}

template <class Write>
ssize_t Change(size_t count, Write write) noexcept
{
    if (const size_t left = BytesLeft(count); left < count) {
        if (left > 0)
            write(left);
        Die();
    }
    const Fault fault = NextChange(false);
    if (fault == Fault::None)
        return write(count);
    if (fault == Fault::Kill)
        Die();
    write(count / 2);
    errno = ENOSPC;
    return -1;
}

// For changes that either happen or don't. True if this one is to fail.
bool Suffers() noexcept
{
    if (BytesLeft(1) < 1)
        Die();
    const Fault fault = NextChange(false);
    if (fault == Fault::Kill)
        Die();
    errno = ENOSPC;
    return fault == Fault::DiskFull;
}

}  // namespace

void ArmFault(Fault fault, unsigned at) noexcept
{
    armed = fault;
    suffersAt = at;
    changes = 0;
}

unsigned DisarmFault() noexcept
{
    armed = Fault::None;
    suffersAt = 0;
    return changes;
}

}  // namespace quorvane::testing

using quorvane::testing::Change;
using quorvane::testing::Fault;
using quorvane::testing::NextChange;
using quorvane::testing::Suffers;

extern "C" ssize_t write(int file, const void* bytes, size_t count)
{
    return Change(count, [=](size_t part) { return syscall(SYS_write, file, bytes, part); });
}

extern "C" ssize_t pwrite(int file, const void* bytes, size_t count, off_t offset)
{
    return Change(count, [=](size_t part) { return syscall(SYS_pwrite64, file, bytes, part, offset); });
}

extern "C" ssize_t pread(int file, void* bytes, size_t count, off_t offset)
{
    if (NextChange(true) == Fault::None)
        return syscall(SYS_pread64, file, bytes, count, offset);
    errno = EIO;
    return -1;
}

extern "C" int ftruncate(int file, off_t size) noexcept
{
    return Suffers() ? -1 : static_cast<int>(syscall(SYS_ftruncate, file, size));
}

extern "C" int rename(const char* from, const char* to) noexcept
{
    return Suffers() ? -1 : static_cast<int>(syscall(SYS_renameat2, -100, from, -100, to, 0));
}

extern "C" int unlink(const char* path) noexcept
{
    return Suffers() ? -1 : static_cast<int>(syscall(SYS_unlinkat, -100, path, 0));
}
