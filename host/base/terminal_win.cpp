#include <windows.h>

#include "host/base/terminal.h"

namespace quorvane::host {

namespace {

// The console understands them when it is told to.
bool IsTerminal(HANDLE console) noexcept
{
    DWORD mode = 0;
    return GetConsoleMode(console, &mode) &&
           SetConsoleMode(console, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING);
}

std::size_t WidthOf(DWORD which) noexcept
{
    HANDLE const console = GetStdHandle(which);
    CONSOLE_SCREEN_BUFFER_INFO info{};
    if (!IsTerminal(console) || !GetConsoleScreenBufferInfo(console, &info))
        return 0;
    return static_cast<std::size_t>(info.srWindow.Right - info.srWindow.Left) + 1;
}

}  // namespace

std::size_t ErrorWidth() noexcept
{
    return WidthOf(STD_ERROR_HANDLE);
}

std::size_t OutputWidth() noexcept
{
    return WidthOf(STD_OUTPUT_HANDLE);
}

std::size_t OutputHeight() noexcept
{
    HANDLE const console = GetStdHandle(STD_OUTPUT_HANDLE);
    CONSOLE_SCREEN_BUFFER_INFO info{};
    if (!IsTerminal(console) || !GetConsoleScreenBufferInfo(console, &info))
        return 0;
    return static_cast<std::size_t>(info.srWindow.Bottom - info.srWindow.Top) + 1;
}

}  // namespace quorvane::host
