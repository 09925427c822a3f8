// platform/desktop/desktop.h: what the user has before him: the active window, a terminal, other programs.
#ifndef QUORVANE_PLATFORM_DESKTOP_DESKTOP_H_
#define QUORVANE_PLATFORM_DESKTOP_DESKTOP_H_

#include <string>
#include <string_view>

#include "platform/com/com.h"

namespace quorvane {

// The handle of the active window of the calling thread, 0 when it has none. Off Windows always 0.
ULONG_PTR ActiveWindow() noexcept;

// Whether a person reads the standard output.
bool OutputIsTerminal() noexcept;

enum class ProgramWait {
    None,  // the program goes on by itself
    End,   // until it has ended; the thread's queue is kept alive meanwhile
};

// Opens a file with a program of the user's.
//
// program  [in]  a path, or a name that is looked for where programs are (PATH); no arguments. Empty: the
//                program that the system has for files of this kind, which there is on Windows alone.
// file     [in]  the program's one argument. Text of the ANSI code page, as `program`.
//
// S_OK                       the program was started; what it made of the file isn't known.
// E_INVALIDARG               a quotation mark in either, on Windows.
// ERROR_FILE_NOT_FOUND       there is no such program. Others of the system's, as HRESULT_FROM_WIN32.
// E_OUTOFMEMORY
//
// The program gets this process's environment. Where that has a variable QUORVANE_USER_<NAME>, as a process
// leaves it that has put settings of its own in place of its user's, <NAME> has that value (none if it is
// empty): the program is the user's.
[[nodiscard]] HRESULT OpenFileWith(const std::string& program, const std::string& file,
                                   ProgramWait wait) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_DESKTOP_DESKTOP_H_
