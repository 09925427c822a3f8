// platform/file/console.h: the process's console and the debugger, as places to write text to.
#ifndef QUORVANE_PLATFORM_FILE_CONSOLE_H_
#define QUORVANE_PLATFORM_FILE_CONSOLE_H_

#include <string_view>

#include "platform/com/com.h"

namespace quorvane {

// On Windows a console window of the process; elsewhere its standard output. One thread opens and closes;
// any thread writes meanwhile.
class Console {
public:
    Console() noexcept = default;
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;
    ~Console() { Close(); }

    // Makes the console (80 columns, 300 lines on Windows). What the system says is not looked at, so that
    // a process that has a console already writes there.
    void Open() noexcept;
    bool IsOpen() const noexcept { return open_; }
    // Writes the bytes in one piece. Nothing happens while it is closed; failures are not told.
    void Write(std::string_view text) noexcept;
    void Close() noexcept;

private:
    bool open_ = false;
};

// Gives text to a debugger: OutputDebugString on Windows. Elsewhere it is appended to the file that
// $QUORVANE_DEBUG_OUTPUT names, if it is set. Failures are not told. Any thread.
void WriteToDebugger(std::string_view text) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_FILE_CONSOLE_H_
