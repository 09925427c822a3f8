// Stands between the test program and the system's calls.
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

#include "engine/persist/testing/file_faults.h"

namespace quorvane::testing {
namespace {

std::atomic<Fault> armed{Fault::None};
std::atomic<unsigned> suffersAt{0};
std::atomic<unsigned> changes{0};

// The fault that the present change suffers.
Fault NextChange() noexcept
{
    const unsigned count = ++changes;
    return count == suffersAt ? armed.load() : Fault::None;
}

[[noreturn]] void Die() noexcept
{
    syscall(SYS_exit_group, 9);
    __builtin_unreachable();
}

// For changes that either happen or don't. True if this one is to fail.
bool Suffer(Fault fault) noexcept
{
    if (fault == Fault::Kill || fault == Fault::KillTorn)
        Die();
    if (fault == Fault::DiskFull)
        errno = ENOSPC;
    return fault == Fault::DiskFull;
}

template <class Write>
ssize_t Change(size_t count, Write write) noexcept
{
    const Fault fault = NextChange();
    if (fault == Fault::None)
        return write(count);
    if (fault != Fault::Kill)
        write(count / 2);
    Suffer(fault);
    return -1;
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
    suffersAt = 0;
    return changes;
}

}  // namespace quorvane::testing

using quorvane::testing::Change;
using quorvane::testing::NextChange;
using quorvane::testing::Suffer;

extern "C" ssize_t write(int file, const void* bytes, size_t count)
{
    return Change(count, [=](size_t part) { return syscall(SYS_write, file, bytes, part); });
}

extern "C" ssize_t pwrite(int file, const void* bytes, size_t count, off_t offset)
{
    return Change(count, [=](size_t part) { return syscall(SYS_pwrite64, file, bytes, part, offset); });
}

extern "C" int ftruncate(int file, off_t size) noexcept
{
    return Suffer(NextChange()) ? -1 : static_cast<int>(syscall(SYS_ftruncate, file, size));
}

extern "C" int rename(const char* from, const char* to) noexcept
{
    return Suffer(NextChange()) ? -1 : static_cast<int>(syscall(SYS_renameat2, -100, from, -100, to, 0));
}

extern "C" int unlink(const char* path) noexcept
{
    return Suffer(NextChange()) ? -1 : static_cast<int>(syscall(SYS_unlinkat, -100, path, 0));
}
