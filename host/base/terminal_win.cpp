#include <windows.h>

#include "host/base/terminal.h"

namespace quorvane::host {

// The console understands them when it is told to.
bool HasTerminal() noexcept
{
    HANDLE const console = GetStdHandle(STD_ERROR_HANDLE);
    DWORD mode = 0;
    return GetConsoleMode(console, &mode) &&
           SetConsoleMode(console, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING);
}

}  // namespace quorvane::host
