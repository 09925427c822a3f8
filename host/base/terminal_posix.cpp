#include <sys/ioctl.h>
#include <unistd.h>

#include "host/base/terminal.h"

namespace quorvane::host {

bool HasTerminal() noexcept
{
    return isatty(STDERR_FILENO) != 0;
}

std::size_t OutputWidth() noexcept
{
    constexpr std::size_t kUnknown = 80;  // what a terminal has that doesn't tell
    winsize size{};
    if (isatty(STDOUT_FILENO) == 0)
        return 0;
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : kUnknown;
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
