// host/base/terminal.h: the terminal that standard error may be.
#ifndef QUORVANE_HOST_BASE_TERMINAL_H_
#define QUORVANE_HOST_BASE_TERMINAL_H_

namespace quorvane::host {

// Whether standard error is a terminal that understands ANSI's control sequences.
bool HasTerminal() noexcept;

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_BASE_TERMINAL_H_
