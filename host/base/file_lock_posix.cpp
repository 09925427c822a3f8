#include "host/base/file_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

#include "host/base/errors.h"

namespace quorvane::host {

FileLock::FileLock(const std::filesystem::path& path, std::string_view what, std::string_view object)
    : handle_(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600))
{
    if (handle_ < 0)
        Fail(what, object, DescribeErrno(errno));
    if (flock(static_cast<int>(handle_), LOCK_EX | LOCK_NB) == 0)
        return;
    const int error = errno;
    close(static_cast<int>(handle_));
    Fail(what, object,
         error == EWOULDBLOCK ? "another run of this mailbox is under way" : DescribeErrno(error));
}

FileLock::~FileLock()
{
    close(static_cast<int>(handle_));
}

}  // namespace quorvane::host
