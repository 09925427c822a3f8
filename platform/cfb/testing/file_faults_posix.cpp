// The functions of the C library that compound files use, in front of its own.
#include "platform/cfb/testing/file_faults.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <optional>

namespace quorvane::cfb::test {
namespace {

constexpr std::size_t kPage = 4096;

struct FaultState {
    std::optional<std::size_t> left;  // accesses that still come through
    bool reads = false;
    bool on = false;
    bool dies = false;
    bool refused = false;
    std::uint64_t calls = 0;
    std::uint64_t moved = 0;
    struct stat file = {};

    void Begin(const std::string& path, std::size_t access, bool ofReads, bool goesOn, bool kills) noexcept
    {
        static_cast<void>(::stat(path.c_str(), &file));
        left = access;
        reads = ofReads;
        on = goesOn;
        dies = kills;
        refused = false;
    }
    bool Concerns(int open) const noexcept
    {
        struct stat status;
        return dies ||
               (::fstat(open, &status) == 0 && status.st_dev == file.st_dev && status.st_ino == file.st_ino);
    }
    bool Refuses(int open, bool read) noexcept
    {
        if (!left || read != reads || !Concerns(open))
            return false;
        if (*left > 0) {
            --*left;
            return false;
        }
        if (dies)
            ::_exit(9);
        refused = true;
        if (!on)
            left.reset();
        return true;
    }
};

FaultState faults;

template <class Function>
Function* Own(const char* name) noexcept
{
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

}  // namespace

bool FileFaults::Exist() noexcept
{
    return true;
}

void FileFaults::RefuseWrite(const std::string& file, std::size_t write, bool on) noexcept
{
    faults.Begin(file, write, false, on, false);
}

void FileFaults::RefuseRead(const std::string& file, std::size_t read) noexcept
{
    faults.Begin(file, read, true, false, false);
}

void FileFaults::DieAtWrite(std::size_t write) noexcept
{
    faults.Begin({}, write, false, false, true);
}

bool FileFaults::HasRefused() noexcept
{
    return faults.refused;
}

void FileFaults::Stop() noexcept
{
    faults.left.reset();
    faults.refused = false;
}

std::uint64_t FileFaults::Calls() noexcept
{
    return faults.calls;
}

std::uint64_t FileFaults::Moved() noexcept
{
    return faults.moved;
}

}  // namespace quorvane::cfb::test

#define QV_IN_FRONT extern "C" __attribute__((visibility("default")))

QV_IN_FRONT ssize_t pread(int file, void* to, size_t count, off_t at)
{
    using namespace quorvane::cfb::test;
    static auto* const own = Own<ssize_t(int, void*, size_t, off_t)>("pread");
    if (faults.Refuses(file, true)) {
        errno = EIO;
        return -1;
    }
    const ssize_t read = own(file, to, count, at);
    ++faults.calls;
    faults.moved += read > 0 ? static_cast<std::uint64_t>(read) : 0;
    return read;
}

QV_IN_FRONT ssize_t pwrite(int file, const void* from, size_t count, off_t at)
{
    using namespace quorvane::cfb::test;
    static auto* const own = Own<ssize_t(int, const void*, size_t, off_t)>("pwrite");
    const bool first = !faults.refused;
    if (faults.Refuses(file, false)) {
        const std::size_t end = static_cast<std::size_t>(at) + count;
        const std::size_t lastPage = (end - 1) / kPage * kPage;
        if (first && lastPage > static_cast<std::size_t>(at))
            static_cast<void>(own(file, from, lastPage - static_cast<std::size_t>(at), at));
        errno = ENOSPC;
        return -1;
    }
    ++faults.calls;
    faults.moved += count;
    return own(file, from, count, at);
}

QV_IN_FRONT int ftruncate(int file, off_t size) noexcept
{
    using namespace quorvane::cfb::test;
    static auto* const own = Own<int(int, off_t)>("ftruncate");
    if (faults.Refuses(file, false)) {
        errno = ENOSPC;
        return -1;
    }
    return own(file, size);
}

QV_IN_FRONT int fallocate(int file, int mode, off_t at, off_t count)
{
    using namespace quorvane::cfb::test;
    static auto* const own = Own<int(int, int, off_t, off_t)>("fallocate");
    if (faults.Refuses(file, false)) {
        errno = ENOSPC;
        return -1;
    }
    return own(file, mode, at, count);
}
