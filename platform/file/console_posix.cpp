#include "platform/file/console.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

namespace quorvane {

namespace {

void WriteAll(int file, std::string_view text) noexcept
{
    while (!text.empty()) {
        const ssize_t written = write(file, text.data(), text.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return;
        text.remove_prefix(static_cast<size_t>(written));
    }
}

}  // namespace

void Console::Open() noexcept
{
    open_ = true;
}

void Console::Write(std::string_view text) noexcept
{
    if (open_)
        WriteAll(STDOUT_FILENO, text);
}

void Console::Close() noexcept
{
    open_ = false;
}

void WriteToDebugger(std::string_view text) noexcept
{
    const char* const path = std::getenv("QUORVANE_DEBUG_OUTPUT");
    if (!path || !*path)
        return;
    const int file = open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOCTTY, 0600);
    if (file < 0)
        return;
    WriteAll(file, text);
    close(file);
}

}  // namespace quorvane
