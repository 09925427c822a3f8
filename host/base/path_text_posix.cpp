#include "host/base/path_text.h"

namespace quorvane::host {

std::filesystem::path PathOf(std::string_view text)
{
    return std::filesystem::path(text);
}

OleString OleTextOf(const std::filesystem::path& path)
{
    return Widen(path.native());
}

std::string AnsiTextOf(const std::filesystem::path& path)
{
    return path.native();
}

}  // namespace quorvane::host
