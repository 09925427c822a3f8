#include "platform/file/permissions.h"

namespace quorvane {

void CopyPermissions(const std::string&, const std::string&) noexcept {}

}  // namespace quorvane
