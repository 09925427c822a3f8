#include "platform/file/file_stamp.h"

#include <sys/stat.h>

#include "platform/file/file.h"
#include "platform/file/file_share_posix.h"
#include "platform/file/posix_file.h"
#include "platform/file/system_error.h"

namespace quorvane {

namespace {

FileStamp StampOf(const struct stat& status) noexcept
{
    constexpr std::uint64_t kNanoseconds = 1'000'000'000;
    return {static_cast<std::uint64_t>(status.st_dev), static_cast<std::uint64_t>(status.st_ino),
            static_cast<std::uint64_t>(status.st_size),
            static_cast<std::uint64_t>(status.st_mtim.tv_sec) * kNanoseconds +
                static_cast<std::uint64_t>(status.st_mtim.tv_nsec)};
}

}  // namespace

HRESULT GetPathStamp(const std::string& path, FileStamp& stamp) noexcept
{
    struct stat status {};
    if (posix::HasZero(path) || stat(path.c_str(), &status) != 0)
        return posix::PathError(path);
    stamp = StampOf(status);
    return S_OK;
}

HRESULT File::GetStamp(FileStamp& stamp) const noexcept
{
    struct stat status {};
    if (fstat(static_cast<int>(handle_), &status) != 0)
        return LastSystemError();
    stamp = StampOf(status);
    return S_OK;
}

bool File::IsWrittenByOthers() const noexcept
{
    return posix::IsWrittenByOthers(static_cast<int>(handle_));
}

}  // namespace quorvane
