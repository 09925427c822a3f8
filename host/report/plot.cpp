#include "host/report/plot.h"

#include <algorithm>
#include <limits>

#include "host/report/html.h"

namespace quorvane::host {

namespace {

// In the plot's own units, which stretch: a day is so wide, the axis so high.
constexpr std::int64_t kDayWidth = 10;
constexpr std::int64_t kBarWidth = 4;
constexpr std::int64_t kHeight = 1000;
// What isn't nothing is seen.
constexpr std::int64_t kLeastBar = 12;

std::int64_t LengthOf(std::int64_t number, std::int64_t end)
{
    if (number <= 0 || end <= 0)
        return 0;
    const double share = static_cast<double>(number) / static_cast<double>(end);
    return std::clamp(static_cast<std::int64_t>(share * kHeight), kLeastBar, kHeight);
}

std::string Bar(const char* kind, std::int64_t x, std::int64_t y, std::int64_t width, std::int64_t height)
{
    if (width == 0 || height == 0)
        return {};
    return "<rect class=\"" + std::string(kind) + "\" x=\"" + std::to_string(x) + "\" y=\"" +
           std::to_string(y) + "\" width=\"" + std::to_string(width) + "\" height=\"" +
           std::to_string(height) + "\"/>\n";
}

std::string Svg(const std::string& id, const std::string& name, const std::string& description,
                std::int64_t width, std::int64_t height, const std::string& shapes)
{
    return "<svg role=\"img\" aria-labelledby=\"" + id + "-title " + id + "-desc\" viewBox=\"0 0 " +
           std::to_string(width) + " " + std::to_string(height) +
           "\" preserveAspectRatio=\"none\" xmlns=\"http://www.w3.org/2000/svg\">\n<title id=\"" + id +
           "-title\">" + Escaped(name) + "</title>\n<desc id=\"" + id + "-desc\">" + Escaped(description) +
           "</desc>\n" + shapes + "</svg>\n";
}

std::string Figure(const char* kind, const std::string& name, const std::string& content)
{
    return "<figure class=\"" + std::string(kind) + "\">\n<figcaption><h3>" + Escaped(name) +
           "</h3></figcaption>\n" + content + "</figure>\n";
}

std::string Describe(const DaysPlot& plot)
{
    std::int64_t sent = 0, received = 0;
    const DaysPlot::Day* most = nullptr;
    for (const DaysPlot::Day& day : plot.days) {
        sent += day.sent;
        received += day.received;
        if (!most || std::max(day.sent, day.received) > std::max(most->sent, most->received))
            most = &day;
    }
    if (!most || sent + received == 0)
        return "Nothing passed in these days.";
    return "Two bars for each day from " + plot.days.front().day + " to " + plot.days.back().day +
           ". In all " + plot.show(sent) + " sent and " + plot.show(received) + " received; the most on " +
           most->day + ": " + plot.show(most->sent) + " sent, " + plot.show(most->received) + " received.";
}

std::string Lines(std::int64_t width)
{
    std::string lines;
    for (const std::int64_t y : {std::int64_t{0}, kHeight / 2, kHeight})
        lines += "<line x1=\"0\" x2=\"" + std::to_string(width) + "\" y1=\"" + std::to_string(y) +
                 "\" y2=\"" + std::to_string(y) + "\"/>\n";
    return lines;
}

std::string NumbersOf(const DaysPlot& plot)
{
    HtmlTable table(plot.name, {"Day", "Sent", "Received"});
    for (auto day = plot.days.rbegin(); day != plot.days.rend(); ++day)
        table.Add({Escaped(day->day), plot.show(day->sent), plot.show(day->received)});
    return Folded("The numbers: " + plot.name, table.Html("No days."));
}

}  // namespace

std::int64_t RoundUp(std::int64_t number)
{
    for (std::int64_t power = 1; power <= std::numeric_limits<std::int64_t>::max() / 10; power *= 10)
        for (const std::int64_t step : {1, 2, 3, 4, 5, 6, 8})
            if (step * power >= number)
                return step * power;
    return std::numeric_limits<std::int64_t>::max();
}

std::string Html(const DaysPlot& plot)
{
    std::int64_t most = 0;
    for (const DaysPlot::Day& day : plot.days)
        most = std::max({most, day.sent, day.received});
    const std::int64_t end = RoundUp(most), width = kDayWidth * static_cast<std::int64_t>(plot.days.size());
    std::string shapes = Lines(width);
    for (std::size_t i = 0; i < plot.days.size(); ++i) {
        const std::int64_t x = kDayWidth * static_cast<std::int64_t>(i) + 1;
        const std::int64_t sent = LengthOf(plot.days[i].sent, end);
        const std::int64_t received = LengthOf(plot.days[i].received, end);
        shapes += Bar("sent", x, kHeight - sent, kBarWidth, sent) +
                  Bar("received", x + kBarWidth, kHeight - received, kBarWidth, received);
    }
    const std::string first = plot.days.empty() ? "" : plot.days.front().day;
    const std::string last = plot.days.empty() ? "" : plot.days.back().day;
    return Figure(
        "days", plot.name,
        "<div class=\"axes\" aria-hidden=\"true\"><span>" + plot.show(end) + "</span><span>" +
            (end % 2 == 0 ? plot.show(end / 2) : "") + "</span><span>0</span></div>\n" +
            Svg(plot.id, plot.name, Describe(plot), width, kHeight, shapes) +
            "<div class=\"ends\" aria-hidden=\"true\"><span>" + Escaped(first) +
            "</span><span class=\"key\"><i class=\"sent\"></i> sent <i class=\"received\"></i> received</span>" +
            "<span>" + Escaped(last) + "</span></div>\n" + NumbersOf(plot));
}

std::string Html(const RowsPlot& plot)
{
    std::int64_t most = 0, total = 0;
    for (const RowsPlot::Row& row : plot.rows) {
        most = std::max(most, row.number);
        total += row.number;
    }
    HtmlTable table(plot.name, {plot.heading, plot.unit});
    std::string shapes, labels, numbers, description;
    const auto count = static_cast<std::int64_t>(plot.rows.size());
    for (std::int64_t i = 0; i < count; ++i) {
        const RowsPlot::Row& row = plot.rows[static_cast<std::size_t>(i)];
        shapes += Bar("received", 0, i * kDayWidth + 2, LengthOf(row.number, most), kDayWidth - 4);
        labels += "<span>" + Escaped(row.label) + "</span>";
        numbers += "<span>" + Counted(row.number) + "</span>";
        table.Add({Escaped(row.label), Counted(row.number)});
        if (row.number > 0)
            description += ", " + row.label + ": " + Counted(row.number);
    }
    return Figure(
        "rows", plot.name,
        "<div class=\"labels\" aria-hidden=\"true\">" + labels + "</div>\n" +
            Svg(plot.id, plot.name, plot.unit + ": " + Counted(total) + " in all" + description + ".",
                kHeight, count * kDayWidth, shapes) +
            "<div class=\"numbers\" aria-hidden=\"true\">" + numbers + "</div>\n" +
            Folded("The numbers: " + plot.name, table.Html("None.")));
}

}  // namespace quorvane::host
