// host/service/shell_text.h: words of command lines that people are told to give.
#ifndef QUORVANE_HOST_SERVICE_SHELL_TEXT_H_
#define QUORVANE_HOST_SERVICE_SHELL_TEXT_H_

#include <string>
#include <string_view>

namespace quorvane::host {

// A word as a POSIX shell reads it: as it is where the shell leaves it alone, else quoted. What the shell
// expands in an unquoted word, as "~", is text here.
std::string ShellWord(std::string_view word);

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_SERVICE_SHELL_TEXT_H_
