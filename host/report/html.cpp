#include "host/report/html.h"

#include <array>
#include <chrono>
#include <cstdio>

#include "host/base/output.h"

namespace quorvane::host {

namespace {

std::string Element(std::string_view name, std::string_view content, std::string_view attributes = {})
{
    return "<" + std::string(name) + (attributes.empty() ? "" : " ") + std::string(attributes) + ">" +
           std::string(content) + "</" + std::string(name) + ">";
}

// Seconds of a time as TimeText gives it, counted from anywhere; -1 for another text.
std::int64_t SecondsOf(const std::string& text)
{
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
    if (std::sscanf(text.c_str(), "%4d-%2d-%2dT%2d:%2d:%2dZ", &year, &month, &day, &hour, &minute, &second) !=
        6)
        return -1;
    const std::chrono::sys_days date{std::chrono::year(year) / month / day};
    return std::int64_t{date.time_since_epoch().count()} * 86'400 + hour * 3600 + minute * 60 + second;
}

}  // namespace

std::string Escaped(std::string_view text)
{
    std::string escaped;
    for (const char letter : Printable(text))
        switch (letter) {
            case '&':
                escaped += "&amp;";
                break;
            case '<':
                escaped += "&lt;";
                break;
            case '>':
                escaped += "&gt;";
                break;
            case '"':
                escaped += "&quot;";
                break;
            case '\'':
                escaped += "&#39;";
                break;
            default:
                escaped += letter;
        }
    return escaped;
}

std::string Foreign(std::string_view text)
{
    return Element("bdi", text.empty() ? "(nothing)" : Escaped(text));
}

std::string Counted(std::int64_t number)
{
    std::string text = std::to_string(number);
    for (std::size_t place = text.size(); place > 3 + (number < 0 ? 1U : 0U);)
        text.insert(place -= 3, ",");
    return text;
}

std::string Sized(std::int64_t bytes)
{
    if (bytes < 1000)
        return std::to_string(bytes) + " B";
    constexpr std::array<const char*, 5> kUnits{"kB", "MB", "GB", "TB", "PB"};
    double size = static_cast<double>(bytes) / 1000;
    std::size_t unit = 0;
    for (; size >= 999.5 && unit + 1 < kUnits.size(); ++unit)
        size /= 1000;
    char text[32];
    std::snprintf(text, sizeof text, size < 9.95 ? "%.1f %s" : "%.0f %s", size, kUnits.at(unit));
    return text;
}

std::string Lasted(std::int64_t seconds)
{
    constexpr std::int64_t kMinute = 60, kHour = 3600, kDay = 86'400;
    if (seconds < kMinute)
        return std::to_string(seconds) + " s";
    if (seconds < kHour)
        return std::to_string(seconds / kMinute) + " min";
    if (seconds < kDay)
        return std::to_string(seconds / kHour) + " h";
    return Counted(seconds / kDay) + (seconds < 2 * kDay ? " day" : " days");
}

std::string Time(const std::string& text)
{
    const std::string shown = Escaped(text);
    if (SecondsOf(text) < 0)
        return text.empty() ? "never" : shown;
    return Element("time", shown.substr(0, 10) + " " + shown.substr(11, 5) + " UTC",
                   "datetime=\"" + shown + "\"");
}

std::string TimeBefore(const std::string& text, const std::string& now)
{
    const std::int64_t then = SecondsOf(text), end = SecondsOf(now);
    return Time(text) + (then < 0 || end < then
                             ? ""
                             : ", " + Element("span", Lasted(end - then) + " ago", "class=\"ago\""));
}

void HtmlTable::Add(const std::vector<std::string>& cells)
{
    std::string row;
    for (std::size_t i = 0; i < cells.size(); ++i)
        row += i == 0 ? Element("th", cells[i], "scope=\"row\"")
                      : Element("td", Element("span", cells[i]), "data-head=\"" + Escaped(heads_[i]) + "\"");
    rows_ += Element("tr", row) + "\n";
}

std::string HtmlTable::Html(const std::string& none) const
{
    if (rows_.empty())
        return Element("p", Escaped(none), "class=\"none\"") + "\n";
    std::string heads;
    for (const std::string& head : heads_)
        heads += Element("th", Escaped(head), "scope=\"col\"");
    return Element("table", Element("caption", Escaped(caption_)) + "\n" +
                                Element("thead", Element("tr", heads)) + "\n" + Element("tbody", rows_)) +
           "\n";
}

std::string Section(std::string_view id, std::string_view heading, std::string_view content)
{
    const std::string name = Escaped(id);
    return Element(
               "section",
               "\n" + Element("h2", Escaped(heading), "id=\"" + name + "\"") + "\n" + std::string(content),
               "aria-labelledby=\"" + name + "\"") +
           "\n";
}

std::string Folded(std::string_view summary, std::string_view content)
{
    return Element("details", Element("summary", Escaped(summary)) + "\n" + std::string(content)) + "\n";
}

}  // namespace quorvane::host
