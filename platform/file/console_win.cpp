#include <new>
#include <string>

#include "platform/file/console.h"

namespace quorvane {

void Console::Open() noexcept
{
    constexpr COORD kBuffer = {80, 300};
    AllocConsole();
    SetConsoleScreenBufferSize(GetStdHandle(STD_OUTPUT_HANDLE), kBuffer);
    open_ = true;
}

void Console::Write(std::string_view text) noexcept
{
    if (!open_)
        return;
    DWORD written = 0;
    WriteFile(GetStdHandle(STD_OUTPUT_HANDLE), text.data(), static_cast<DWORD>(text.size()), &written,
              nullptr);
}

void Console::Close() noexcept
{
    if (open_)
        FreeConsole();
    open_ = false;
}

void WriteToDebugger(std::string_view text) noexcept
{
    try {
        OutputDebugStringA(std::string(text).c_str());
    } catch (const std::bad_alloc&) {
        // The text is lost, as when no debugger listens.
    }
}

}  // namespace quorvane
