// Stands between the test program and the system's calls.
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

#include "engine/persist/testing/file_faults.h"

using namespace quorvane::testing;

namespace {

template <class Write>
ssize_t Change(size_t count, Write write) noexcept
{
    const WriteFate fate = FateOfWrite(count);
    if (!fate.kills && fate.arrives == count)
        return write(count);
    if (fate.arrives > 0)
        write(fate.arrives);
    if (fate.kills)
        Die();
    errno = ENOSPC;
    return -1;
}

bool ChangeSuffers() noexcept
{
    const bool fails = ChangeFails();
    if (fails)
        errno = ENOSPC;
    return fails;
}

}  // namespace

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
    if (!ReadFails())
        return syscall(SYS_pread64, file, bytes, count, offset);
    errno = EIO;
    return -1;
}

extern "C" int ftruncate(int file, off_t size) noexcept
{
    return ChangeSuffers() ? -1 : static_cast<int>(syscall(SYS_ftruncate, file, size));
}

extern "C" int rename(const char* from, const char* to) noexcept
{
    return ChangeSuffers() ? -1 : static_cast<int>(syscall(SYS_renameat2, -100, from, -100, to, 0));
}

extern "C" int unlink(const char* path) noexcept
{
    return ChangeSuffers() ? -1 : static_cast<int>(syscall(SYS_unlinkat, -100, path, 0));
}
