#include "host/output.h"

#include <algorithm>
#include <cstdio>
#include <ctime>

#include "quorvane3/com.h"

namespace quorvane::host {

namespace {

constexpr std::uint64_t kFileTimeUnitsPerSecond = 10'000'000;
constexpr std::int64_t kSecondsFrom1601To1970 = 11'644'473'600;

// Columns that a text takes on a terminal: code points, which is right for most of what mail shows.
std::size_t Width(const std::string& text)
{
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

void AppendRow(std::string& out, const std::vector<std::string>& row, const std::vector<std::size_t>& widths)
{
    for (std::size_t i = 0; i < row.size(); ++i) {
        out += row[i];
        if (i + 1 < row.size())
            out.append(widths[i] - Width(row[i]) + 2, ' ');
    }
    out += '\n';
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

std::string Table::Text() const
{
    std::vector<std::size_t> widths(head_.size());
    for (std::size_t i = 0; i < head_.size(); ++i)
        widths[i] = Width(head_[i]);
    for (const auto& row : rows_)
        for (std::size_t i = 0; i < row.size() && i < widths.size(); ++i)
            widths[i] = std::max(widths[i], Width(row[i]));
    std::string out;
    AppendRow(out, head_, widths);
    for (const auto& row : rows_)
        AppendRow(out, row, widths);
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

std::string TimeText(std::uint64_t fileTime)
{
    if (fileTime == 0)
        return {};
    const auto seconds = static_cast<std::time_t>(
        static_cast<std::int64_t>(fileTime / kFileTimeUnitsPerSecond) - kSecondsFrom1601To1970);
    std::tm parts{};
    if (!gmtime_r(&seconds, &parts))
        return {};
    char text[32];
    return std::string(text, std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts));
}

}  // namespace quorvane::host
