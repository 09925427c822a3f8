#include "host/base/output.h"

#include <utf8proc.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "host/base/terminal.h"
#include "quorvane3/com.h"

namespace quorvane::host {

namespace {

constexpr std::size_t kGap = 2;     // between columns
constexpr std::size_t kLeast = 20;  // columns of a text that was cut
constexpr char kCut[] = "\xE2\x80\xA6";

std::atomic<Colours> chosenColours{Colours::kAuto};

// The character at the beginning of valid UTF-8: its bytes and its width.
struct Character {
    std::size_t size = 1;
    std::size_t width = 1;
};

Character FirstOf(std::string_view text)
{
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
                if (columns_[i].fit == Fit::kShortened && widths_[i] > kLeast &&
                    (widest == columns_.size() || widths_[i] > widths_[widest]))
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

std::string LineOf(const std::vector<std::string>& cells, const std::vector<std::size_t>& widths)
{
    std::string line;
    std::size_t behind = 0;  // what the cell before leaves free
    for (std::size_t i = 0; i < cells.size() && i < widths.size(); ++i) {
        if (widths[i] == 0)
            continue;
        const std::string cell = Shortened(cells[i], widths[i]);
        line.append(behind, ' ').append(cell);
        behind = widths[i] - DisplayWidth(cell) + kGap;
    }
    return line;
}

std::string Coloured(const std::string& line, const char* sequence, const Look& look)
{
    return look.hasColours ? "\033[" + std::string(sequence) + "m" + line + "\033[0m\n" : line + "\n";
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
    return text.substr(0, end) + kCut;
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
    for (const Column& column : columns_) {
        head.push_back(column.head);
        widths.push_back(DisplayWidth(column.head));
    }
    for (const Line& line : rows_)
        for (std::size_t i = 0; i < line.cells.size() && i < widths.size(); ++i)
            widths[i] = std::max(widths[i], DisplayWidth(line.cells[i]));
    widths = Layout(columns_, std::move(widths)).Within(look.width);
    std::string out = Coloured(LineOf(head, widths), "1", look);
    for (const Line& line : rows_) {
        const std::string text = LineOf(line.cells, widths);
        out += line.row == Row::kPlain ? text + "\n"
                                       : Coloured(text, line.row == Row::kStrong ? "1" : "31", look);
    }
    return out;
}

void Print(bool asJson, const Json& json, const std::string& text)
{
    if (asJson)
        std::printf("%s\n", json.dump(-1, ' ', false, Json::error_handler_t::replace).c_str());
    else
        std::fputs(text.c_str(), stdout);
    std::fflush(stdout);
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
