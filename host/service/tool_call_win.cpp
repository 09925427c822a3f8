#include "host/service/tool_call.h"

namespace quorvane::host {

std::optional<ToolAnswer> CallTool(const std::vector<std::string>&, std::chrono::milliseconds)
{
    return std::nullopt;  // nothing is asked there
}

}  // namespace quorvane::host
