// platform/file/permissions.h: who may use a file.
#ifndef QUORVANE_PLATFORM_FILE_PERMISSIONS_H_
#define QUORVANE_PLATFORM_FILE_PERMISSIONS_H_

#include <string>

namespace quorvane {

// Gives `to` the permission bits of `from`, where there is such a file. Failures leave `to` as it is. Does
// nothing on Windows, where the directory decides.
void CopyPermissions(const std::string& from, const std::string& to) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_FILE_PERMISSIONS_H_
