// host/base/terminal.h: the terminal that standard error, or standard output, may be.
#ifndef QUORVANE_HOST_BASE_TERMINAL_H_
#define QUORVANE_HOST_BASE_TERMINAL_H_

#include <cstddef>

namespace quorvane::host {

// The columns of a terminal that understands ANSI's control sequences, where standard error is one; else 0.
std::size_t ErrorWidth() noexcept;

// The columns of such a terminal that standard output is; 0 where it is none.
std::size_t OutputWidth() noexcept;
// Its lines; 0 where it is none.
std::size_t OutputHeight() noexcept;

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_BASE_TERMINAL_H_
