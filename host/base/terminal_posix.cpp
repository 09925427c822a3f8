#include <unistd.h>

#include "host/base/terminal.h"

namespace quorvane::host {

bool HasTerminal() noexcept
{
    return isatty(STDERR_FILENO) != 0;
}

}  // namespace quorvane::host
