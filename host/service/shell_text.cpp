#include "host/service/shell_text.h"

#include <algorithm>

namespace quorvane::host {

namespace {

// Beyond ASCII a shell takes every byte for a letter.
bool IsPlain(char c)
{
    constexpr std::string_view kSigns = "_-+=:,./@%";
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
           static_cast<unsigned char>(c) >= 0x80 || kSigns.find(c) != std::string_view::npos;
}

}  // namespace

std::string ShellWord(std::string_view word)
{
    if (!word.empty() && std::all_of(word.begin(), word.end(), IsPlain))
        return std::string(word);
    std::string quoted = "'";
    for (const char c : word)
        quoted += c == '\'' ? "'\\''" : std::string(1, c);
    return quoted + "'";
}

}  // namespace quorvane::host
