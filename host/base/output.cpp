#include "host/base/output.h"

#include <utf8proc.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "host/base/progress.h"
#include "host/base/terminal.h"
#include "quorvane3/com.h"

namespace quorvane::host {

namespace {

constexpr std::size_t kGap = 2;     // between columns
constexpr std::size_t kLeast = 20;  // columns of a text that was cut
constexpr char kCut[] = "\xE2\x80\xA6";
constexpr char kSequence[] = "\033[";
constexpr char kPlainAgain[] = "\033[0m";

std::atomic<Colours> chosenColours{Colours::kAuto};

// The character at the beginning of valid UTF-8, or what changes the colour there: its bytes and its width.
struct Character {
    std::size_t size = 1;
    std::size_t width = 1;
};

Character FirstOf(std::string_view text)
{
    if (text.starts_with(kSequence))
        if (const std::size_t end = text.find('m'); end != std::string_view::npos)
            return {end + 1, 0};
    utf8proc_int32_t point = 0;
    const auto size = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                                       static_cast<utf8proc_ssize_t>(text.size()), &point);
    if (size <= 0)
        return {};
    return {static_cast<std::size_t>(size), static_cast<std::size_t>(std::max(utf8proc_charwidth(point), 0))};
}

// How wide each column of a table is on a terminal; 0 for one that isn't shown.
class Layout {
public:
    Layout(const std::vector<Column>& columns, std::vector<std::size_t> widths)
        : columns_(columns), natural_(std::move(widths)), widths_(natural_)
    {}

    std::vector<std::size_t> Within(std::size_t width)
    {
        if (width == 0 || Shorten(width))
            return widths_;
        for (std::size_t i = columns_.size(); i-- > 0;) {
            if (columns_[i].fit != Fit::kDropped)
                continue;
            natural_[i] = 0;
            widths_ = natural_;
            if (Shorten(width))
                break;
        }
        return widths_;
    }

private:
    std::size_t Total() const
    {
        std::size_t total = 0;
        for (const std::size_t width : widths_)
            total += width == 0 ? 0 : width + (total == 0 ? 0 : kGap);
        return total;
    }
    // Takes from the widest of those that may be cut; false where that isn't enough.
    bool Shorten(std::size_t width)
    {
        while (Total() > width) {
            std::size_t widest = columns_.size();
            for (std::size_t i = 0; i < columns_.size(); ++i)
                if ((columns_[i].fit == Fit::kShortened || columns_[i].fit == Fit::kFolded) &&
                    widths_[i] > kLeast && (widest == columns_.size() || widths_[i] > widths_[widest]))
                    widest = i;
            if (widest == columns_.size())
                return false;
            --widths_[widest];
        }
        return true;
    }

    const std::vector<Column>& columns_;
    std::vector<std::size_t> natural_;
    std::vector<std::size_t> widths_;
};

// A column of numbers has nothing else.
bool IsNumber(const std::string& text)
{
    return text.find_first_not_of("0123456789") == std::string::npos;
}

// How a table's lines are put together.
struct Form {
    const std::vector<Column>& columns;
    std::vector<std::size_t> widths;  // 0 of a column that isn't shown
    std::vector<bool> areNumbers;
};

std::string LineOf(const std::vector<std::string>& cells, const Form& form)
{
    std::string line;
    std::size_t behind = 0;  // what the cell before leaves free
    for (std::size_t i = 0; i < cells.size() && i < form.widths.size(); ++i) {
        if (form.widths[i] == 0)
            continue;
        const std::string cell = Shortened(cells[i], form.widths[i]);
        const std::size_t free = form.widths[i] - DisplayWidth(cell);
        if (!cell.empty())
            line.append(behind + (form.areNumbers[i] ? free : 0), ' ').append(cell);
        behind = (cell.empty() ? behind + form.widths[i] : (form.areNumbers[i] ? 0 : free)) + kGap;
    }
    return line;
}

// Where to part a text that is wider than `width`: behind its last blank there, or its last hyphen or slash,
// or where it is full.
std::size_t PartingIn(const std::string& text, std::size_t width)
{
    std::size_t full = 0, taken = 0, blank = 0, mark = 0;
    for (Character c; full < text.size(); full += c.size, taken += c.width) {
        c = FirstOf(std::string_view(text).substr(full));
        if (taken + c.width > width && full > 0)
            break;
        if (text[full] == ' ')
            blank = full + 1;
        if (text[full] == '-' || text[full] == '/')
            mark = full + 1;
    }
    if (full < text.size() && text[full] == ' ')
        return full + 1;
    return blank > 0 ? blank : (mark > 0 ? mark : full);
}

// A row's lines: the cells of columns that fold go on in further ones.
std::vector<std::string> LinesOf(std::vector<std::string> cells, const Form& form)
{
    std::vector<std::string> lines;
    for (bool isMore = true; isMore;) {
        isMore = false;
        std::vector<std::string> rest(cells.size());
        for (std::size_t i = 0; i < cells.size() && i < form.widths.size(); ++i) {
            if (form.columns[i].fit != Fit::kFolded || form.widths[i] == 0 ||
                DisplayWidth(cells[i]) <= form.widths[i])
                continue;
            const std::size_t end = PartingIn(cells[i], form.widths[i]);
            rest[i] = cells[i].substr(end);
            cells[i] = cells[i].substr(0, end);
            if (cells[i].ends_with(' '))
                cells[i].pop_back();
            isMore = true;
        }
        lines.push_back(LineOf(cells, form));
        cells = std::move(rest);
    }
    return lines;
}

std::string Coloured(const std::string& line, const char* sequence, const Look& look)
{
    return look.hasColours ? "\033[" + std::string(sequence) + "m" + line + kPlainAgain + "\n" : line + "\n";
}

}  // namespace

std::string Printable(std::string_view text)
{
    // Through UTF-16 and back, which leaves nothing that isn't valid UTF-8.
    std::string result = ToUtf8(FromUtf8(text));
    for (char& c : result)
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F)
            c = ' ';
    return result;
}

std::size_t DisplayWidth(std::string_view text)
{
    std::size_t width = 0;
    for (Character c; !text.empty(); text.remove_prefix(c.size)) {
        c = FirstOf(text);
        width += c.width;
    }
    return width;
}

std::string Shortened(const std::string& text, std::size_t width)
{
    if (DisplayWidth(text) <= width)
        return text;
    std::size_t end = 0, taken = 1;
    for (Character c; end < text.size(); end += c.size, taken += c.width) {
        c = FirstOf(std::string_view(text).substr(end));
        if (taken + c.width > width)
            break;
    }
    const bool isColoured = text.find(kSequence) != std::string::npos;
    return text.substr(0, end) + kCut + (isColoured ? kPlainAgain : "");
}

std::string Folded(const std::string& line, std::size_t width, std::size_t indent)
{
    if (width == 0 || DisplayWidth(line) <= width)
        return line;
    std::string folded;
    std::size_t taken = 0;  // of the line in hand
    for (std::size_t at = 0; at < line.size();) {
        const std::size_t end =
            std::min(line.find(' ', std::min(line.find_first_not_of(' ', at), line.size())), line.size());
        std::string word = line.substr(at, end - at);
        if (at > 0 && taken + DisplayWidth(word) > width) {
            word.erase(0, word.find_first_not_of(' '));
            folded += "\n" + std::string(indent, ' ');
            taken = indent;
        }
        folded += word;
        taken += DisplayWidth(word);
        at = end;
    }
    return folded;
}

std::string FoldedLines(const std::string& text, std::size_t width)
{
    std::string folded;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find('\n', begin), text.size());
        const std::string line = text.substr(begin, end - begin);
        const std::size_t indent = std::min(line.find_first_not_of(' '), line.size()) + 2;
        folded += line.find(kSequence) == std::string::npos ? Folded(line, width, indent) : line;
        folded += end < text.size() ? "\n" : "";
        begin = end + 1;
    }
    return folded;
}

std::string Counted(std::uint64_t number, const std::string& thing)
{
    return std::to_string(number) + " " + thing + (number == 1 ? "" : "s");
}

void ChooseColours(Colours colours) noexcept
{
    chosenColours = colours;
}

Look OutputLook()
{
    const std::size_t width = OutputWidth();
    const char* const refused = std::getenv("NO_COLOR");
    const char* const terminal = std::getenv("TERM");
    const bool isWanted =
        width > 0 && !(refused && *refused) && !(terminal && std::string_view(terminal) == "dumb");
    const Colours colours = chosenColours;
    return {width, colours == Colours::kAlways || (colours == Colours::kAuto && isWanted)};
}

std::string Table::Text(const Look& look) const
{
    std::vector<std::string> head;
    std::vector<std::size_t> widths;
    std::vector<bool> areNumbers;
    for (std::size_t i = 0; i < columns_.size(); ++i) {
        head.push_back(columns_[i].head);
        widths.push_back(DisplayWidth(columns_[i].head));
        areNumbers.push_back(!rows_.empty());
        for (const Line& line : rows_)
            if (i < line.cells.size()) {
                widths[i] = std::max(widths[i], DisplayWidth(line.cells[i]));
                areNumbers[i] = areNumbers[i] && IsNumber(line.cells[i]);
            }
    }
    const Form form{columns_, Layout(columns_, std::move(widths)).Within(look.width), std::move(areNumbers)};
    std::string out = Coloured(LineOf(head, form), "1", look);
    for (const Line& line : rows_)
        for (const std::string& text : LinesOf(line.cells, form))
            out += line.row == Row::kPlain ? text + "\n"
                                           : Coloured(text, line.row == Row::kStrong ? "1" : "31", look);
    return out;
}

void Print(bool asJson, const Json& json, const std::string& text)
{
    WipeProgress();
    if (asJson)
        std::printf("%s\n", json.dump(-1, ' ', false, Json::error_handler_t::replace).c_str());
    else
        std::fputs(text.c_str(), stdout);
    std::fflush(stdout);
}

void PrintSentences(bool asJson, const Json& json, const std::string& text)
{
    Print(asJson, json, FoldedLines(text, OutputWidth()));
}

std::uint64_t FileTimeNow()
{
    return FileTimeOf(std::chrono::system_clock::now());
}

std::string TimeText(std::uint64_t fileTime)
{
    if (fileTime == 0)
        return {};
    const FILETIME time{static_cast<DWORD>(fileTime), static_cast<DWORD>(fileTime >> 32)};
    SYSTEMTIME parts{};
    if (!FileTimeToSystemTime(&time, &parts))
        return {};
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02dZ", parts.wYear, parts.wMonth, parts.wDay,
                  parts.wHour, parts.wMinute, parts.wSecond);
    return text;
}

}  // namespace quorvane::host
