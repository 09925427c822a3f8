#include "platform/file/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <new>

#include "platform/file/file_share_posix.h"
#include "platform/file/path.h"
#include "platform/file/posix_file.h"
#include "platform/file/system_error.h"

namespace quorvane {

namespace {

constexpr std::uint64_t kMaxOffset = std::numeric_limits<off_t>::max();
// The system takes no more at once.
constexpr size_t kMaxTransfer = 0x7FFFF000;

int Descriptor(std::intptr_t handle) noexcept
{
    return static_cast<int>(handle);
}

int AccessFlags(FileAccess access) noexcept
{
    switch (access) {
        case FileAccess::Read:
            return O_RDONLY;
        case FileAccess::Append:
            return O_RDWR | O_APPEND;
        default:
            return O_RDWR;
    }
}

int ModeFlags(FileMode mode) noexcept
{
    switch (mode) {
        case FileMode::CreateNew:
            return O_CREAT | O_EXCL;
        case FileMode::OpenAlways:
        case FileMode::CreateAlways:
            return O_CREAT;
        default:
            return 0;
    }
}

// What the engine keeps of a user's mail is nobody else's to read, whatever the umask.
constexpr mode_t kNewFileMode = 0600;

// A write-only file is opened for reading too, as only a file that can be read takes part in the record of
// share modes; where it may not be read it goes without.
int OpenDescriptor(const std::string& path, FileAccess access, FileMode mode) noexcept
{
    const int flags = AccessFlags(access) | ModeFlags(mode) | O_CLOEXEC | O_NOCTTY;
    int file = -1;
    do
        file = open(path.c_str(), flags, kNewFileMode);
    while (file < 0 && errno == EINTR);
    if (file < 0 && errno == EACCES && access == FileAccess::Write)
        file = open(path.c_str(), (flags & ~O_ACCMODE) | O_WRONLY, kNewFileMode);
    return file;
}

// Sharing and emptying, which need the open file.
HRESULT PrepareFile(int file, FileAccess access, FileMode mode, FileShare share) noexcept
{
    struct stat status {};
    if (fstat(file, &status) != 0)
        return LastSystemError();
    if (S_ISDIR(status.st_mode))
        return HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED);
    if (!S_ISREG(status.st_mode))
        return S_OK;
    const bool reads = access == FileAccess::Read || access == FileAccess::ReadWrite;
    const HRESULT hr = posix::ClaimShare(file, reads, access != FileAccess::Read, share);
    if (FAILED(hr))
        return hr;
    const bool empties = mode == FileMode::CreateAlways || mode == FileMode::TruncateExisting;
    return empties && ftruncate(file, 0) != 0 ? LastSystemError() : S_OK;
}

// Repeats a transfer until all is done, the end is reached or it fails. `transfer(done, count)` gives the
// number of bytes, or -1.
template <class Transfer>
HRESULT TransferAll(size_t count, size_t& done, Transfer&& transfer) noexcept
{
    done = 0;
    while (done < count) {
        const ssize_t part = transfer(done, std::min(count - done, kMaxTransfer));
        if (part < 0 && errno == EINTR)
            continue;
        if (part < 0)
            return LastSystemError();
        if (part == 0)
            break;
        done += static_cast<size_t>(part);
    }
    return S_OK;
}

// Writing nothing where something was asked is a full disk.
HRESULT WholeWrite(HRESULT hr, size_t done, size_t count) noexcept
{
    return SUCCEEDED(hr) && done < count ? HRESULT_FROM_WIN32(ERROR_DISK_FULL) : hr;
}

bool IsRange(std::uint64_t offset, size_t count) noexcept
{
    return offset <= kMaxOffset && count <= kMaxOffset - offset;
}

}  // namespace

HRESULT File::Open(const std::string& path, FileAccess access, FileMode mode, FileShare share) noexcept
{
    Close();
    if (path.empty() || posix::HasZero(path))
        return HRESULT_FROM_WIN32(path.empty() ? ERROR_PATH_NOT_FOUND : ERROR_INVALID_NAME);
    const int file = OpenDescriptor(path, access, mode);
    if (file < 0)
        return posix::PathError(path);
    const HRESULT hr = PrepareFile(file, access, mode, share);
    if (FAILED(hr)) {
        close(file);
        return hr;
    }
    handle_ = file;
    return S_OK;
}

void File::Close() noexcept
{
    const std::intptr_t handle = std::exchange(handle_, kNoHandle);
    if (handle != kNoHandle)
        close(Descriptor(handle));
}

HRESULT File::Read(void* buffer, size_t count, size_t& read) noexcept
{
    return TransferAll(count, read, [&](size_t done, size_t part) {
        return ::read(Descriptor(handle_), static_cast<char*>(buffer) + done, part);
    });
}

HRESULT File::Write(const void* buffer, size_t count) noexcept
{
    size_t written = 0;
    const HRESULT hr = TransferAll(count, written, [&](size_t done, size_t part) {
        return ::write(Descriptor(handle_), static_cast<const char*>(buffer) + done, part);
    });
    return WholeWrite(hr, written, count);
}

HRESULT File::ReadAt(std::uint64_t offset, void* buffer, size_t count, size_t& read) noexcept
{
    read = 0;
    if (!IsRange(offset, count))
        return HRESULT_FROM_WIN32(ERROR_INVALID_PARAMETER);
    return TransferAll(count, read, [&](size_t done, size_t part) {
        return pread(Descriptor(handle_), static_cast<char*>(buffer) + done, part,
                     static_cast<off_t>(offset + done));
    });
}

HRESULT File::WriteAt(std::uint64_t offset, const void* buffer, size_t count) noexcept
{
    if (!IsRange(offset, count))
        return HRESULT_FROM_WIN32(ERROR_INVALID_PARAMETER);
    size_t written = 0;
    const HRESULT hr = TransferAll(count, written, [&](size_t done, size_t part) {
        return pwrite(Descriptor(handle_), static_cast<const char*>(buffer) + done, part,
                      static_cast<off_t>(offset + done));
    });
    return WholeWrite(hr, written, count);
}

HRESULT File::Seek(std::int64_t offset, SeekFrom from, std::uint64_t* position) noexcept
{
    constexpr int kOrigins[] = {SEEK_SET, SEEK_CUR, SEEK_END};
    const off_t result = lseek(Descriptor(handle_), offset, kOrigins[static_cast<int>(from)]);
    if (result < 0)
        return errno == EINVAL ? HRESULT_FROM_WIN32(ERROR_NEGATIVE_SEEK) : LastSystemError();
    if (position)
        *position = static_cast<std::uint64_t>(result);
    return S_OK;
}

HRESULT File::GetSize(std::uint64_t& size) const noexcept
{
    struct stat status {};
    if (fstat(Descriptor(handle_), &status) != 0)
        return LastSystemError();
    size = static_cast<std::uint64_t>(status.st_size);
    return S_OK;
}

HRESULT File::SetSize(std::uint64_t size) noexcept
{
    if (size > kMaxOffset)
        return HRESULT_FROM_WIN32(ERROR_INVALID_PARAMETER);
    int result = 0;
    do
        result = ftruncate(Descriptor(handle_), static_cast<off_t>(size));
    while (result != 0 && errno == EINTR);
    return result == 0 ? S_OK : LastSystemError();
}

HRESULT File::Sync() noexcept
{
    int result = 0;
    do
        result = fsync(Descriptor(handle_));
    while (result != 0 && errno == EINTR);
    return result == 0 ? S_OK : LastSystemError();
}

}  // namespace quorvane
