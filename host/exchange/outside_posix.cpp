#include "host/exchange/outside.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "host/exchange/error.h"

namespace quorvane::host::exchange {

namespace {

constexpr int kLook = O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
constexpr mode_t kPrivateMode = 0600;
constexpr std::size_t kBlock = std::size_t{256} << 10;
constexpr mode_t kAccess = 0777;  // the part of a mode that tells who may do what

mode_t FileModeFor(Readers readers) noexcept
{
    return readers == Readers::kNobody ? 0600 : readers == Readers::kGroup ? 0640 : 0644;
}

mode_t DirectoryModeFor(Readers readers) noexcept
{
    return readers == Readers::kNobody ? 0700 : readers == Readers::kGroup ? 0750 : 0755;
}

int DescriptorOf(const OwnedHandle& handle) noexcept
{
    return static_cast<int>(handle.Get());
}

[[noreturn]] void FailNow(const char* what, const std::string& shown)
{
    FailForNow(std::string("cannot ") + what + " '" + shown + "': " + std::strerror(errno));
}

void WriteAll(int descriptor, const char* data, std::size_t size, const std::string& shown)
{
    while (size > 0) {
        const ssize_t count = write(descriptor, data, size);
        if (count < 0 && errno != EINTR)
            FailNow("write", shown);
        data += std::max<ssize_t>(count, 0);
        size -= static_cast<std::size_t>(std::max<ssize_t>(count, 0));
    }
}

void CopyAll(const ByteSource& source, int descriptor, const std::string& shown)
{
    std::string block(static_cast<std::size_t>(std::min<std::uint64_t>(kBlock, source.Size())), '\0');
    for (std::uint64_t at = 0; at < source.Size();) {
        const auto count =
            static_cast<std::size_t>(std::min<std::uint64_t>(block.size(), source.Size() - at));
        source.ReadAt(at, block.data(), count);
        WriteAll(descriptor, block.data(), count, shown);
        at += count;
    }
}

// A file that wasn't there before: nothing that lies at its name is written to.
OwnedHandle MakeNew(int directory, const char* name, mode_t mode, const std::string& shown)
{
    if (unlinkat(directory, name, 0) != 0 && errno != ENOENT)
        FailNow("replace", shown);
    OwnedHandle file(openat(directory, name, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
    if (file.Get() < 0 || fchmod(DescriptorOf(file), mode) != 0)
        FailNow("write", shown);
    return file;
}

// Writes a new file and gives it its name in one step; of one that fails nothing is left.
void WriteWhole(int directory, const std::string& name, const ByteSource& content, mode_t mode, bool flushes,
                const std::string& shown)
{
    const std::string aside = name + ".part";
    try {
        const OwnedHandle file = MakeNew(directory, aside.c_str(), mode, shown);
        CopyAll(content, DescriptorOf(file), shown);
        if (flushes && fsync(DescriptorOf(file)) != 0)
            FailNow("write", shown);
        if (renameat(directory, aside.c_str(), directory, name.c_str()) != 0)
            FailNow("write", shown);
    } catch (...) {
        unlinkat(directory, aside.c_str(), 0);
        throw;
    }
}

// Of a file or directory that is open; false with errno when it can't be. Bits that aren't about access, such
// as that which hands a directory's group down, stay.
bool SetAccess(int descriptor, mode_t access) noexcept
{
    struct stat status {};
    return fstat(descriptor, &status) == 0 &&
           ((status.st_mode & kAccess) == access ||
            fchmod(descriptor, (status.st_mode & 07777 & ~kAccess) | access) == 0);
}

std::unique_ptr<OutsideDirectory> OpenDirectory(int parent, const char* name, int flags,
                                                const std::filesystem::path& path)
{
    const int descriptor = openat(parent, name, flags | O_DIRECTORY);
    if (descriptor >= 0)
        return std::make_unique<OutsideDirectory>(OwnedHandle(descriptor), path);
    if (errno == ENOENT)
        return nullptr;
    if (errno == ENOTDIR || errno == ELOOP)
        Refuse("'" + path.string() + "' is no directory");
    FailNow("open the directory", path.string());
}

}  // namespace

OwnedHandle::~OwnedHandle()
{
    if (handle_ != kNone)
        close(static_cast<int>(handle_));
}

void OutsideFile::ReadAt(std::uint64_t at, char* buffer, std::size_t size) const
{
    while (size > 0) {
        const ssize_t count = pread(DescriptorOf(handle_), buffer, size, static_cast<off_t>(at));
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            FailNow("read", shown_);
        if (count == 0)
            FailForNow("cannot read '" + shown_ + "': it has become shorter");
        buffer += count;
        at += static_cast<std::uint64_t>(count);
        size -= static_cast<std::size_t>(count);
    }
}

std::unique_ptr<OutsideDirectory> OutsideDirectory::Open(const std::filesystem::path& directory)
{
    return OpenDirectory(AT_FDCWD, directory.c_str(), O_RDONLY | O_CLOEXEC, directory);
}

std::unique_ptr<OutsideDirectory> OutsideDirectory::Sub(const std::string& name) const
{
    return OpenDirectory(DescriptorOf(handle_), name.c_str(), kLook, path_ / name);
}

std::unique_ptr<OutsideDirectory> OutsideDirectory::MakeSub(const std::string& name, Readers readers) const
{
    const mode_t mode = DirectoryModeFor(readers);
    const bool isNew = mkdirat(DescriptorOf(handle_), name.c_str(), mode) == 0;
    if (!isNew && errno != EEXIST)
        FailNow("make the directory", (path_ / name).string());
    auto made = Sub(name);
    if (!made)
        FailForNow("cannot open the directory '" + (path_ / name).string() + "': it has gone again");
    if (!SetAccess(DescriptorOf(made->handle_), mode) && isNew)
        FailNow("make the directory", (path_ / name).string());
    return made;
}

void OutsideDirectory::ForEachName(const std::function<bool(const std::string&)>& visit) const
{
    // Opened once more, so that each walk begins at the front.
    const int copy = openat(DescriptorOf(handle_), ".", kLook | O_DIRECTORY);
    DIR* const directory = copy < 0 ? nullptr : fdopendir(copy);
    if (!directory)
        FailNow("read the directory", path_.string());
    const std::unique_ptr<DIR, int (*)(DIR*)> closer(directory, closedir);
    errno = 0;
    while (const dirent* const entry = readdir(directory)) {
        const std::string name = entry->d_name;
        if (name != "." && name != ".." && !visit(name))
            return;
        errno = 0;
    }
    if (errno != 0)
        FailNow("read the directory", path_.string());
}

std::unique_ptr<OutsideFile> OutsideDirectory::OpenFile(const std::string& name) const
{
    const std::string shown = (path_ / name).string();
    OwnedHandle handle(openat(DescriptorOf(handle_), name.c_str(), kLook));
    if (handle.Get() < 0) {
        if (errno == ENOENT)
            return nullptr;
        if (errno == ELOOP || errno == ENXIO)
            Refuse("'" + shown + "' is no plain file");
        FailNow("read", shown);
    }
    struct stat status {};
    if (fstat(DescriptorOf(handle), &status) != 0)
        FailNow("read", shown);
    if (!S_ISREG(status.st_mode))
        Refuse("'" + shown + "' is no plain file");
    return std::make_unique<OutsideFile>(std::move(handle), static_cast<std::uint64_t>(status.st_size),
                                         shown);
}

void OutsideDirectory::Replace(const std::string& name, const ByteSource& content, Readers readers) const
{
    const std::string shown = (path_ / name).string();
    WriteWhole(DescriptorOf(handle_), name, content, FileModeFor(readers), true, shown);
    if (fsync(DescriptorOf(handle_)) != 0)
        FailNow("write", shown);
}

void OutsideDirectory::LetRead(Readers readers) const
{
    ForEachName([&](const std::string& name) {
        const OwnedHandle file(openat(DescriptorOf(handle_), name.c_str(), kLook));
        struct stat status {};
        if (file.Get() >= 0 && fstat(DescriptorOf(file), &status) == 0 && S_ISREG(status.st_mode) &&
            !SetAccess(DescriptorOf(file), FileModeFor(readers)))
            FailNow("change who may read", (path_ / name).string());
        return true;
    });
}

void OutsideDirectory::Remove(const std::string& name) const
{
    if (unlinkat(DescriptorOf(handle_), name.c_str(), 0) != 0 && errno != ENOENT)
        FailNow("remove", (path_ / name).string());
}

void CopyIn(const ByteSource& source, const std::filesystem::path& target, std::uint64_t limit,
            std::uint64_t spare)
{
    CheckRoom(source.Size(), target, limit, spare);
    WriteWhole(AT_FDCWD, target.string(), source, kPrivateMode, false, target.string());
}

}  // namespace quorvane::host::exchange
