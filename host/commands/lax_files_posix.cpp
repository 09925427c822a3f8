#include <system_error>

#include "host/commands/lax_files.h"

namespace quorvane::host {

namespace {

namespace fs = std::filesystem;

bool IsLax(const fs::path& path)
{
    std::error_code error;
    const fs::file_status status = fs::symlink_status(path, error);
    return !error && !fs::is_symlink(status) &&
           (status.permissions() & (fs::perms::group_all | fs::perms::others_all)) != fs::perms::none;
}

}  // namespace

std::vector<fs::path> LaxFiles(const fs::path& mailbox)
{
    std::vector<fs::path> lax;
    if (IsLax(mailbox))
        lax.push_back(mailbox);
    std::error_code error;
    for (fs::directory_iterator entry(mailbox, error), end; !error && entry != end; entry.increment(error))
        if (IsLax(entry->path()))
            lax.push_back(entry->path());
    return lax;
}

}  // namespace quorvane::host
