// host/report/html.h: pieces of a page. All of them are well-formed XML as well, so that any parser tells
// when one isn't.
#ifndef QUORVANE_HOST_REPORT_HTML_H_
#define QUORVANE_HOST_REPORT_HTML_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace quorvane::host {

// Any bytes as the text of an element or of an attribute's value: valid UTF-8 in one line, without markup.
std::string Escaped(std::string_view text);

// The same of a text from outside, as an element that lets no direction of writing out.
std::string Foreign(std::string_view text);

// "12,345".
std::string Counted(std::int64_t number);
// "1.2 MB".
std::string Sized(std::int64_t bytes);
// "5 s", "10 min", "6 h", "1 day".
std::string Lasted(std::int64_t seconds);

// A time as TimeText gives it, as an element: "2026-11-21 06:16 UTC". An empty one is "never".
std::string Time(const std::string& text);
// The same and how long before `now` it was: "2026-11-21 06:16 UTC, 3 min ago".
std::string TimeBefore(const std::string& text, const std::string& now);

// A table; on a narrow screen a row becomes a block with its columns' heads before its cells.
class HtmlTable {
public:
    // What stands above it, and the columns' heads: text.
    HtmlTable(std::string caption, std::vector<std::string> heads)
        : caption_(std::move(caption)), heads_(std::move(heads))
    {}

    // cells: markup, one for each column; the first one names the row.
    void Add(const std::vector<std::string>& cells);
    // `none`, text, where it has no rows.
    std::string Html(const std::string& none) const;

private:
    std::string caption_;
    std::vector<std::string> heads_;
    std::string rows_;
};

// A section of the page: its heading is text, its content markup.
std::string Section(std::string_view id, std::string_view heading, std::string_view content);
// What stands folded together until it is asked for.
std::string Folded(std::string_view summary, std::string_view content);

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_REPORT_HTML_H_
