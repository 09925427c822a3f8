#include "host/mime/flowed_text.h"

#include <algorithm>

namespace quorvane {
namespace {

struct FlowedLine {
    std::size_t depth = 0;     // how many quote marks
    std::string_view content;  // without quote marks, stuffing and line end
    std::string_view end;      // the line end, empty for the last line of a text without one
    bool flows = false;
};

FlowedLine Dissect(std::string_view line)
{
    FlowedLine result;
    const std::size_t endAt = std::min(line.find_last_not_of("\r\n") + 1, line.size());
    result.end = line.substr(endAt);
    std::string_view rest = line.substr(0, endAt);
    result.depth = std::min(rest.find_first_not_of('>'), rest.size());
    rest.remove_prefix(result.depth);
    if (rest.starts_with(' '))
        rest.remove_prefix(1);
    result.content = rest;
    result.flows = rest.ends_with(' ') && rest != "-- " && !result.end.empty();
    return result;
}

}  // namespace

std::string JoinFlowedText(std::string_view text, bool deleteSpace)
{
    std::string result;
    result.reserve(text.size());
    bool open = false;  // the last line flows into the next one of the same depth
    FlowedLine last;
    while (!text.empty()) {
        const std::size_t newline = text.find('\n');
        const std::size_t length = newline == std::string_view::npos ? text.size() : newline + 1;
        const FlowedLine line = Dissect(text.substr(0, length));
        text.remove_prefix(length);

        const bool joins = open && line.depth == last.depth && line.content != "-- ";
        if (open && !joins)
            result.append(last.end);
        if (!joins && line.depth > 0)
            result.append(line.depth, '>').append(" ");
        result.append(line.flows && deleteSpace ? line.content.substr(0, line.content.size() - 1)
                                                : line.content);
        if (!line.flows)
            result.append(line.end);
        open = line.flows;
        last = line;
    }
    if (open)
        result.append(last.end);
    return result;
}

}  // namespace quorvane
