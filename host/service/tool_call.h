// host/service/tool_call.h: other programs that are asked for something, and may not keep us waiting.
#ifndef QUORVANE_HOST_SERVICE_TOOL_CALL_H_
#define QUORVANE_HOST_SERVICE_TOOL_CALL_H_

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace quorvane::host {

struct ToolAnswer {
    int exitCode = 0;
    std::string output;  // what it printed, also to standard error; the first 64 KB of it
};

// Runs a program, found as a shell finds it, with an empty standard input and the user's own settings in its
// environment, whatever mailbox this process works on. Its end is waited for; it is killed when `limit` is
// over.
//
// words: its name and arguments; not empty.
//
// Nothing where there is no such program, it was killed, or took longer. On Windows, always.
std::optional<ToolAnswer> CallTool(const std::vector<std::string>& words, std::chrono::milliseconds limit);

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_SERVICE_TOOL_CALL_H_
