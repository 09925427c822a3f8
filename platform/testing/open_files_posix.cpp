#include "platform/testing/open_files.h"

#include <system_error>

namespace quorvane::test {

bool IsOpen(const std::filesystem::path& file)
{
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        if (std::filesystem::read_symlink(entry.path(), gone) == file)
            return true;
    }
    return false;
}

}  // namespace quorvane::test
