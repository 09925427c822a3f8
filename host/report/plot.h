// host/report/plot.h: plots as inline SVG, with a name and a description, and their numbers as a table that
// unfolds beside them.
//
// Nothing but shapes is in the SVG, which stretches to the page's width; what is to be read stands beside it
// in the page's own letters, and so stays legible on a narrow screen.
#ifndef QUORVANE_HOST_REPORT_PLOT_H_
#define QUORVANE_HOST_REPORT_PLOT_H_

#include <cstdint>
#include <string>
#include <vector>

namespace quorvane::host {

// How a plot's numbers are shown: Counted, Sized.
using ShowNumber = std::string (*)(std::int64_t);

// Two bars for each day.
struct DaysPlot {
    std::string id;    // for the page, as in "items"
    std::string name;  // "Items a day"
    ShowNumber show = nullptr;
    struct Day {
        std::string day;  // "2026-11-21"
        std::int64_t sent = 0;
        std::int64_t received = 0;
    };
    std::vector<Day> days;  // without gaps, by rising day
};
std::string Html(const DaysPlot& plot);

// A bar for each row.
struct RowsPlot {
    std::string id;
    std::string name;
    std::string heading;  // of its labels, as a column's head
    std::string unit;     // of its numbers, likewise
    struct Row {
        std::string label;
        std::int64_t number = 0;
    };
    std::vector<Row> rows;
};
std::string Html(const RowsPlot& plot);

// The least of 1, 2, 3, 4, 5, 6 and 8 times a power of ten that isn't less than `number`: where an axis ends.
std::int64_t RoundUp(std::int64_t number);

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_REPORT_PLOT_H_
