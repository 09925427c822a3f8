// host/commands/lax_files.h: what of a mailbox others than its user could read or write.
#ifndef QUORVANE_HOST_COMMANDS_LAX_FILES_H_
#define QUORVANE_HOST_COMMANDS_LAX_FILES_H_

#include <filesystem>
#include <vector>

namespace quorvane::host {

// The mailbox's directory, and what lies right in it, where group or others have any right to it; none on
// Windows, where a directory hands its rights down.
std::vector<std::filesystem::path> LaxFiles(const std::filesystem::path& mailbox);

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_COMMANDS_LAX_FILES_H_
