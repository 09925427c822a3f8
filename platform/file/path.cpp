#include "platform/file/path.h"

#include <algorithm>

namespace quorvane {

namespace {

size_t LastSeparator(std::string_view path) noexcept
{
    for (size_t i = path.size(); i > 0; --i) {
        if (IsPathSeparator(path[i - 1]))
            return i - 1;
    }
    return std::string_view::npos;
}

}  // namespace

std::string JoinPath(std::string_view directory, std::string_view name)
{
    std::string path(directory);
    if (!path.empty() && !IsPathSeparator(path.back()))
        path += PathSeparator();
    path += name;
    return path;
}

std::string_view DirectoryOf(std::string_view path) noexcept
{
    const size_t separator = LastSeparator(path);
    if (separator == std::string_view::npos)
        return {};
    return path.substr(0, separator == 0 ? 1 : separator);
}

std::string_view FileNameOf(std::string_view path) noexcept
{
    const size_t separator = LastSeparator(path);
    return separator == std::string_view::npos ? path : path.substr(separator + 1);
}

std::string_view BaseNameOf(std::string_view path) noexcept
{
    const std::string_view name = FileNameOf(path);
    const size_t dot = name.rfind('.');
    return dot == std::string_view::npos || dot == 0 ? name : name.substr(0, dot);
}

bool IsPlainFileName(std::string_view name) noexcept
{
    constexpr size_t kMaxLength = 255;
    constexpr std::string_view kForbidden("/\\:\0", 4);
    return !name.empty() && name.size() <= kMaxLength && name != "." && name != ".." &&
           name.find_first_of(kForbidden) == std::string_view::npos;
}

}  // namespace quorvane
