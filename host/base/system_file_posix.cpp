#include "host/base/system_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "host/base/errors.h"
#include "host/base/files.h"

namespace quorvane::host {

namespace {

int FlagsOf(SystemFile::Use use) noexcept
{
    return O_CLOEXEC | (use == SystemFile::Use::kWrite ? O_WRONLY | O_CREAT | O_TRUNC : O_RDONLY);
}

int Open(const std::filesystem::path& path, int flags, const char* what)
{
    const int descriptor = open(path.c_str(), flags, S_IRUSR | S_IWUSR);
    if (descriptor < 0)
        Fail(what, path.string(), DescribeErrno(errno));
    return descriptor;
}

void Flush(int descriptor, const std::string& path)
{
    if (fsync(descriptor) != 0)
        Fail("flush", path, DescribeErrno(errno));
}

}  // namespace

SystemFile::SystemFile(const std::filesystem::path& path, Use use)
    : path_(path.string()), handle_(Open(path, FlagsOf(use), use == Use::kWrite ? "write" : "read"))
{}

SystemFile::~SystemFile()
{
    close(static_cast<int>(handle_));
}

std::size_t SystemFile::Read(char* buffer, std::size_t size) const
{
    const ssize_t count = read(static_cast<int>(handle_), buffer, size);
    if (count < 0)
        Fail("read", path_, DescribeErrno(errno));
    return static_cast<std::size_t>(count);
}

void SystemFile::Seek(std::uint64_t position) const
{
    if (lseek(static_cast<int>(handle_), static_cast<off_t>(position), SEEK_SET) < 0)
        Fail("read", path_, DescribeErrno(errno));
}

void SystemFile::Write(const char* data, std::size_t size) const
{
    while (size > 0) {
        const ssize_t count = write(static_cast<int>(handle_), data, size);
        if (count < 0)
            Fail("write", path_, DescribeErrno(errno));
        data += count;
        size -= static_cast<std::size_t>(count);
    }
}

void SystemFile::Sync() const
{
    Flush(static_cast<int>(handle_), path_);
}

void RenameOver(const std::filesystem::path& from, const std::filesystem::path& to)
{
    if (rename(from.c_str(), to.c_str()) != 0)
        Fail("write", to.string(), DescribeErrno(errno));
}

bool RenameToNew(const std::filesystem::path& from, const std::filesystem::path& to)
{
    if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0)
        return true;
    int failure = errno;
    if (failure == EINVAL || failure == ENOSYS) {  // a file system without that
        if (link(from.c_str(), to.c_str()) == 0)
            return unlink(from.c_str()) == 0;
        failure = errno;
    }
    if (failure != EEXIST)
        Fail("write", to.string(), DescribeErrno(failure));
    return false;
}

void SyncDirectory(const std::filesystem::path& directory)
{
    class Closer {
    public:
        explicit Closer(int descriptor) noexcept : descriptor_(descriptor) {}
        Closer(const Closer&) = delete;
        Closer& operator=(const Closer&) = delete;
        ~Closer() { close(descriptor_); }

    private:
        int descriptor_;
    };
    const int descriptor = Open(directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC, "open the directory");
    const Closer closer(descriptor);
    Flush(descriptor, directory.string());
}

}  // namespace quorvane::host
