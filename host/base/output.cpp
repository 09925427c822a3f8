#include "host/base/output.h"

#include <algorithm>
#include <chrono>
#include <cstdio>

#include "quorvane3/com.h"

namespace quorvane::host {

namespace {

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

std::uint64_t FileTimeNow()
{
    constexpr std::uint64_t kUnixEpochInFileTime = 116'444'736'000'000'000;
    using FileTimeUnits = std::chrono::duration<std::uint64_t, std::ratio<1, 10'000'000>>;
    const auto sinceUnixEpoch = std::chrono::system_clock::now().time_since_epoch();
    return kUnixEpochInFileTime + std::chrono::duration_cast<FileTimeUnits>(sinceUnixEpoch).count();
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
