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

void FlowedJoiner::Put(std::string_view text, std::string& result)
{
    std::size_t searched = held_.size();
    held_.append(text);
    std::size_t at = 0;
    for (std::size_t newline; (newline = held_.find('\n', searched)) != std::string::npos;
         at = searched = newline + 1)
        Line(std::string_view(held_).substr(at, newline + 1 - at), result);
    held_.erase(0, at);
}

void FlowedJoiner::Line(std::string_view text, std::string& result)
{
    const FlowedLine line = Dissect(text);
    const bool joins = open_ && line.depth == depth_ && line.content != "-- ";
    if (open_ && !joins)
        result.append(end_);
    if (!joins && line.depth > 0)
        result.append(line.depth, '>').append(" ");
    result.append(line.flows && deleteSpace_ ? line.content.substr(0, line.content.size() - 1)
                                             : line.content);
    if (!line.flows)
        result.append(line.end);
    open_ = line.flows;
    depth_ = line.depth;
    end_ = line.end;
}

void FlowedJoiner::End(std::string& result)
{
    if (!held_.empty())
        Line(held_, result);
    held_.clear();
    if (open_)
        result.append(end_);
    open_ = false;
}

std::string JoinFlowedText(std::string_view text, bool deleteSpace)
{
    std::string result;
    result.reserve(text.size());
    FlowedJoiner joiner(deleteSpace);
    joiner.Put(text, result);
    joiner.End(result);
    return result;
}

}  // namespace quorvane
