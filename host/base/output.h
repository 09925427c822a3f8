// host/base/output.h: what a command prints: text for people, or one JSON value for programs.
#ifndef QUORVANE_HOST_BASE_OUTPUT_H_
#define QUORVANE_HOST_BASE_OUTPUT_H_

#include <chrono>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace quorvane::host {

using Json = nlohmann::ordered_json;

// Valid UTF-8 without control characters, fit for one line of a terminal.
std::string Printable(std::string_view text);

// Columns that a text takes on a terminal: two for a wide character, none for one that joins the one before
// it.
std::size_t DisplayWidth(std::string_view text);

// What of a line without control characters fits into so many columns, with a sign where something was cut.
std::string Shortened(const std::string& text, std::size_t width);

// The same, none left out: in so many lines that each fits, all but the first behind `indent` blanks. It is
// parted at blanks; a longer word stays whole, as one that is copied. 0 for the width: as it is.
std::string Folded(const std::string& line, std::size_t width, std::size_t indent = 0);
// Each line of a text so, behind two blanks more than it has itself; coloured ones stay as they are.
std::string FoldedLines(const std::string& text, std::size_t width);

// A number of things: "1 item", "2 items".
std::string Counted(std::uint64_t number, const std::string& thing);

// What a text for people is made for.
struct Look {
    std::size_t width = 0;  // of a terminal, in columns; 0: of any
    bool hasColours = false;
};

// What `--color` asks for.
enum class Colours { kAuto, kAlways, kNever };
void ChooseColours(Colours colours) noexcept;

// What standard output is. Without a choice there are colours on a terminal that isn't dumb, unless NO_COLOR
// is set to something.
Look OutputLook();

// How a column gives way where a table is wider than the terminal.
enum class Fit {
    kWhole,      // not at all
    kShortened,  // its longest texts are cut, down to 20 columns
    kFolded,     // its longest texts go on in further lines, down to 20 columns
    kDropped,    // it isn't shown, where cutting others doesn't do
};

struct Column {
    Column(const char* name, Fit how = Fit::kWhole) : head(name), fit(how) {}
    std::string head;
    Fit fit;
};

// A table with aligned columns, those of numbers at their right, printed at once.
class Table {
public:
    enum class Row { kPlain, kStrong, kAlarm };

    explicit Table(std::vector<Column> columns) : columns_(std::move(columns)) {}
    // cells: one for each column.
    void Add(std::vector<std::string> cells, Row row = Row::kPlain)
    {
        rows_.push_back({std::move(cells), row});
    }
    // Nothing but the head when there are no rows.
    std::string Text(const Look& look = OutputLook()) const;

private:
    struct Line {
        std::vector<std::string> cells;
        Row row = Row::kPlain;
    };

    std::vector<Column> columns_;
    std::vector<Line> rows_;
};

// Prints to standard output: `json` as one line when `asJson`, otherwise `text`.
void Print(bool asJson, const Json& json, const std::string& text);
// The same of sentences, which are folded on a terminal.
void PrintSentences(bool asJson, const Json& json, const std::string& text);

// The time of a FILETIME as "2026-11-21T06:16:47Z"; empty for zero.
std::string TimeText(std::uint64_t fileTime);
// A time as a FILETIME, in the precision in which it is told.
template <class Duration>
std::uint64_t FileTimeOf(std::chrono::sys_time<Duration> time)
{
    constexpr std::uint64_t kUnixEpochInFileTime = 116'444'736'000'000'000;
    using FileTimeUnits = std::chrono::duration<std::uint64_t, std::ratio<1, 10'000'000>>;
    return kUnixEpochInFileTime + std::chrono::duration_cast<FileTimeUnits>(time.time_since_epoch()).count();
}
// The present time as a FILETIME.
std::uint64_t FileTimeNow();

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_BASE_OUTPUT_H_
