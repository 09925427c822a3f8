#include "platform/file/permissions.h"

#include <sys/stat.h>

namespace quorvane {

void CopyPermissions(const std::string& from, const std::string& to) noexcept
{
    struct stat status {};
    if (stat(from.c_str(), &status) != 0)
        return;
    // A file that can't be given them is still the user's own.
    static_cast<void>(chmod(to.c_str(), status.st_mode & 07777));
}

}  // namespace quorvane
