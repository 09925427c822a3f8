// host/mime/flowed_text.h: text in the format=flowed form (RFC 3676).
#ifndef QUORVANE_HOST_MIME_FLOWED_TEXT_H_
#define QUORVANE_HOST_MIME_FLOWED_TEXT_H_

#include <string>
#include <string_view>

namespace quorvane {

// Joins flowed lines to paragraphs and takes the stuffing away.
//
// text         the decoded text, LF or CRLF line ends (kept as they are).
// deleteSpace  the space that marks a flowed line isn't part of the text (delsp=yes).
//
// Quoted paragraphs keep one quote mark run and a space at their beginning. A signature mark ("-- ")
// never flows.
std::string JoinFlowedText(std::string_view text, bool deleteSpace);

// JoinFlowedText of a text that comes in pieces, cut anywhere. Appends to `result`.
class FlowedJoiner {
public:
    explicit FlowedJoiner(bool deleteSpace) noexcept : deleteSpace_(deleteSpace) {}
    void Put(std::string_view text, std::string& result);
    void End(std::string& result);

private:
    void Line(std::string_view line, std::string& result);

    bool deleteSpace_;
    std::string held_;       // a line whose end isn't there yet
    bool open_ = false;      // the last line flows into the next one of the same depth
    std::size_t depth_ = 0;  // how many quote marks the last line had
    std::string end_;        // its line end
};

}  // namespace quorvane

#endif  // QUORVANE_HOST_MIME_FLOWED_TEXT_H_
