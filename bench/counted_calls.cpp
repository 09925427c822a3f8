// The functions of the C library that are counted, in front of its own.
#include "bench/counted_calls.h"

#include <dlfcn.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <atomic>

namespace {

std::atomic<std::uint64_t> calls{0};

// The C library's function of that name, with one more call noted.
template <class Function>
Function* Next(const char* name) noexcept
{
    calls.fetch_add(1, std::memory_order_relaxed);
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

}  // namespace

std::uint64_t quorvane::bench::CountedCalls() noexcept
{
    return calls.load(std::memory_order_relaxed);
}

#define COUNTED(result, name, parameters, arguments)                         \
    extern "C" __attribute__((visibility("default"))) result name parameters \
    {                                                                        \
        static auto* const next = Next<result parameters>(#name);            \
        calls.fetch_add(1, std::memory_order_relaxed);                       \
        return next arguments;                                               \
    }

COUNTED(int, open, (const char* path, int flags, mode_t mode), (path, flags, mode))
COUNTED(int, close, (int file), (file))
COUNTED(ssize_t, pread, (int file, void* to, size_t count, off_t at), (file, to, count, at))
COUNTED(ssize_t, pwrite, (int file, const void* from, size_t count, off_t at), (file, from, count, at))
COUNTED(int, ftruncate, (int file, off_t size) noexcept, (file, size))
COUNTED(int, fallocate, (int file, int mode, off_t at, off_t count), (file, mode, at, count))
COUNTED(int, fstat, (int file, struct stat* status) noexcept, (file, status))
COUNTED(int, futimens, (int file, const struct timespec times[2]) noexcept, (file, times))
COUNTED(int, flock, (int file, int operation) noexcept, (file, operation))
COUNTED(void*, mmap, (void* at, size_t count, int access, int flags, int file, off_t offset) noexcept,
        (at, count, access, flags, file, offset))
COUNTED(int, madvise, (void* at, size_t count, int advice) noexcept, (at, count, advice))
COUNTED(int, munmap, (void* at, size_t count) noexcept, (at, count))
