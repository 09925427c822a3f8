#include <sys/ioctl.h>
#include <unistd.h>

#include "host/base/terminal.h"

namespace quorvane::host {

namespace {

std::size_t WidthOf(int file) noexcept
{
    constexpr std::size_t kUnknown = 80;  // what a terminal has that doesn't tell
    winsize size{};
    if (isatty(file) == 0)
        return 0;
    return ioctl(file, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : kUnknown;
}

}  // namespace

std::size_t ErrorWidth() noexcept
{
    return WidthOf(STDERR_FILENO);
}

std::size_t OutputWidth() noexcept
{
    return WidthOf(STDOUT_FILENO);
}

std::size_t OutputHeight() noexcept
{
    constexpr std::size_t kUnknown = 24;
    winsize size{};
    if (isatty(STDOUT_FILENO) == 0)
        return 0;
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 0 ? size.ws_row : kUnknown;
}

}  // namespace quorvane::host
