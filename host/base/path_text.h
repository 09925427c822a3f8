// host/base/path_text.h: paths between the program's texts, which are UTF-8, and what the system takes.
//
// The way back from a path to a text is path.string(), which is UTF-8 on every system.
#ifndef QUORVANE_HOST_BASE_PATH_TEXT_H_
#define QUORVANE_HOST_BASE_PATH_TEXT_H_

#include <filesystem>
#include <string_view>

#include "quorvane3/com.h"

namespace quorvane::host {

// The path that a text names. Off Windows its bytes are kept as they are, whatever they mean.
std::filesystem::path PathOf(std::string_view text);

// The path as the engine, MAPI and structured storage take it.
OleString OleTextOf(const std::filesystem::path& path);

// The path as MAPI's narrow texts hold it: in the ANSI code page.
std::string AnsiTextOf(const std::filesystem::path& path);

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_BASE_PATH_TEXT_H_
