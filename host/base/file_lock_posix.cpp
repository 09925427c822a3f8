#include "host/base/file_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

#include "host/base/errors.h"

namespace quorvane::host {

std::unique_ptr<FileLock> FileLock::Take(const std::filesystem::path& path, std::string_view what,
                                         std::string_view object)
{
    const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (file < 0)
        Fail(what, object, DescribeErrno(errno));
    std::unique_ptr<FileLock> lock(new FileLock(file));
    if (flock(file, LOCK_EX | LOCK_NB) == 0)
        return lock;
    if (errno != EWOULDBLOCK)
        Fail(what, object, DescribeErrno(errno));
    return nullptr;
}

FileLock::~FileLock()
{
    close(static_cast<int>(handle_));
}

}  // namespace quorvane::host
