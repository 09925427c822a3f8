#include "host/base/screen.h"

#include <cstdio>
#include <vector>

#include "host/base/output.h"
#include "host/base/terminal.h"

namespace quorvane::host {

namespace {

std::vector<std::string> LinesIn(const std::string& text)
{
    std::vector<std::string> lines;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        lines.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return lines;
}

}  // namespace

// Each line is written over what stood there, so that nothing flickers.
std::string Drawn(const std::string& text, std::size_t width, std::size_t height)
{
    std::vector<std::string> lines = LinesIn(text);
    if (lines.size() > height && height > 0) {
        const std::size_t hidden = lines.size() - height + 1;
        lines.resize(height - 1);
        lines.push_back("and " + std::to_string(hidden) + " lines more");
    }
    std::string drawn = "\033[H";
    for (const std::string& line : lines) {
        drawn += Shortened(line, width) + "\033[K";
        drawn += &line == &lines.back() ? "" : "\r\n";
    }
    return drawn + "\033[J";
}

void Screen::Draw(const std::string& text) const
{
    std::fputs(Drawn(text, OutputWidth(), OutputHeight()).c_str(), stdout);
    std::fflush(stdout);
}

}  // namespace quorvane::host
