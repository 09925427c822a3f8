// The disk in front of the C library's calls, for packages and hash files.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <string>

#include "tests/fault/disk_state.h"

namespace quorvane::test {
namespace {

// The path of an open file; "" when it can't be told.
std::string PathOf(int file)
{
    char path[PATH_MAX];
    const ssize_t length = readlink(("/proc/self/fd/" + std::to_string(file)).c_str(), path, sizeof path);
    return length > 0 ? std::string(path, static_cast<std::size_t>(length)) : std::string();
}

bool GrowsWith(int file, off_t end)
{
    struct stat status {};
    return fstat(file, &status) == 0 && end > status.st_size;
}

Verdict JudgeFile(int file, bool isWrite, bool grows)
{
    return InsideSqlite() ? Verdict() : DiskState::Get().Judge(PathOf(file).c_str(), isWrite, grows);
}

// -1 with the reason; 0 for what is done.
int AnswerOf(const Verdict& verdict)
{
    if (verdict.IsDone())
        return 0;
    errno = verdict.answer == Verdict::Answer::kFull ? ENOSPC : EIO;
    return -1;
}

// `write(count)` writes so many bytes.
template <class DoWrite>
ssize_t Write(int file, std::size_t count, off_t end, DoWrite write)
{
    const Verdict verdict = JudgeFile(file, true, GrowsWith(file, end));
    if (verdict.IsDone())
        return write(count);
    if (verdict.isHalfDone)
        write(count / 2);
    return AnswerOf(verdict);
}

bool IsRefused(const char* path)
{
    return !InsideSqlite() && AnswerOf(DiskState::Get().Judge(path, false, false)) != 0;
}

bool IsRefused(int file)
{
    return AnswerOf(JudgeFile(file, false, false)) != 0;
}

}  // namespace
}  // namespace quorvane::test

using quorvane::test::IsRefused;

extern "C" ssize_t write(int file, const void* bytes, size_t count)
{
    const off_t end = lseek(file, 0, SEEK_CUR) + static_cast<off_t>(count);
    return quorvane::test::Write(file, count, end,
                                 [=](size_t part) { return syscall(SYS_write, file, bytes, part); });
}

extern "C" ssize_t pwrite(int file, const void* bytes, size_t count, off_t offset)
{
    return quorvane::test::Write(file, count, offset + static_cast<off_t>(count), [=](size_t part) {
        return syscall(SYS_pwrite64, file, bytes, part, offset);
    });
}

extern "C" int ftruncate(int file, off_t size) noexcept
{
    return IsRefused(file) ? -1 : static_cast<int>(syscall(SYS_ftruncate, file, size));
}

// Nothing here has to outlast this machine: the disk below isn't waited for.
extern "C" int fsync(int file)
{
    return IsRefused(file) ? -1 : 0;
}

extern "C" int rename(const char* from, const char* to) noexcept
{
    return IsRefused(from) ? -1 : static_cast<int>(syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0));
}

extern "C" int unlink(const char* path) noexcept
{
    return IsRefused(path) ? -1 : static_cast<int>(syscall(SYS_unlinkat, AT_FDCWD, path, 0));
}

// A file that is written through memory changes without a call. One whose file system can't be told isn't.
extern "C" int fstatfs(int, struct statfs*) noexcept
{
    errno = ENOSYS;
    return -1;
}
