#include "host/files.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/file.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <fstream>
#include <system_error>
#include <vector>

#include "host/errors.h"

namespace quorvane::host {

namespace {

constexpr std::size_t kCopyBlock = 1 << 20;

// An open file descriptor; every failure throws a HostError that names the path.
class Descriptor {
public:
    Descriptor(const std::filesystem::path& path, int flags, const char* what)
        : path_(path.string()), descriptor_(open(path.c_str(), flags | O_CLOEXEC, 0666))
    {
        if (descriptor_ < 0)
            Fail(what, path_, DescribeErrno(errno));
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() { close(descriptor_); }

    std::size_t Read(char* buffer, std::size_t size) const
    {
        const ssize_t count = read(descriptor_, buffer, size);
        if (count < 0)
            Fail("read", path_, DescribeErrno(errno));
        return static_cast<std::size_t>(count);
    }

    void Write(const char* data, std::size_t size) const
    {
        while (size > 0) {
            const ssize_t count = write(descriptor_, data, size);
            if (count < 0)
                Fail("write", path_, DescribeErrno(errno));
            data += count;
            size -= static_cast<std::size_t>(count);
        }
    }

    void Sync() const
    {
        if (fsync(descriptor_) != 0)
            Fail("flush", path_, DescribeErrno(errno));
    }

private:
    std::string path_;
    int descriptor_;
};

// Renames unless the target exists: false then. Falls back to a link where the file system lacks the
// rename, as some network shares do.
bool RenameWithoutReplacing(const std::filesystem::path& from, const std::filesystem::path& to)
{
    if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0)
        return true;
    if (errno == EINVAL || errno == ENOSYS) {
        const bool linked = link(from.c_str(), to.c_str()) == 0;
        const int error = errno;
        unlink(from.c_str());
        if (linked)
            return true;
        errno = error;
    }
    if (errno != EEXIST)
        Fail("write", to.string(), DescribeErrno(errno));
    unlink(from.c_str());
    return false;
}

}  // namespace

void MakeDirectory(const std::filesystem::path& directory)
{
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    if (error)
        Fail("make the directory", directory.string(), error.message());
}

void SyncDirectory(const std::filesystem::path& directory)
{
    Descriptor(directory, O_RDONLY | O_DIRECTORY, "open the directory").Sync();
}

bool CopyDurably(const std::filesystem::path& source, const std::filesystem::path& aside,
                 const std::filesystem::path& target)
{
    {
        const Descriptor from(source, O_RDONLY, "read");
        const Descriptor to(aside, O_WRONLY | O_CREAT | O_TRUNC, "write");
        std::vector<char> block(kCopyBlock);
        while (const std::size_t count = from.Read(block.data(), block.size()))
            to.Write(block.data(), count);
        to.Sync();
    }
    const bool made = RenameWithoutReplacing(aside, target);
    SyncDirectory(target.parent_path());
    return made;
}

void WriteDurably(const std::filesystem::path& target, std::string_view content)
{
    const std::filesystem::path aside = target.string() + ".new";
    {
        const Descriptor file(aside, O_WRONLY | O_CREAT | O_TRUNC, "write");
        file.Write(content.data(), content.size());
        file.Sync();
    }
    std::error_code error;
    std::filesystem::rename(aside, target, error);
    if (error)
        Fail("write", target.string(), error.message());
    SyncDirectory(target.parent_path());
}

std::string ReadWhole(const std::filesystem::path& path, std::uintmax_t limit)
{
    const Descriptor file(path, O_RDONLY, "read");
    std::string content;
    std::vector<char> block(kCopyBlock);
    while (const std::size_t count = file.Read(block.data(), block.size())) {
        content.append(block.data(), count);
        if (content.size() > limit)
            Fail("read", path.string(), "the file is larger than " + std::to_string(limit) + " bytes");
    }
    return content;
}

FileLock::FileLock(const std::filesystem::path& path, std::string_view what, std::string_view object)
    : descriptor_(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666))
{
    if (descriptor_ < 0)
        Fail(what, object, DescribeErrno(errno));
    if (flock(descriptor_, LOCK_EX | LOCK_NB) == 0)
        return;
    const int error = errno;
    close(descriptor_);
    Fail(what, object,
         error == EWOULDBLOCK ? "another run of this mailbox is under way" : DescribeErrno(error));
}

FileLock::~FileLock()
{
    close(descriptor_);
}

}  // namespace quorvane::host
