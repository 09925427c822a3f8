#include "host/report/plot.h"

#include <gtest/gtest.h>

#include <limits>

#include "host/report/html.h"
#include "host/report/page_for_test.h"

namespace quorvane::host {

namespace {

const DaysPlot kTwoDays{"items", "Items a day", Counted, {{"2026-11-22", 1000, 0}, {"2026-11-23", 1, 250}}};

TEST(PlotTest, AxesEndAtARoundNumber)
{
    EXPECT_EQ(RoundUp(0), 1);
    EXPECT_EQ(RoundUp(7), 8);
    EXPECT_EQ(RoundUp(9), 10);
    EXPECT_EQ(RoundUp(501), 600);
    EXPECT_EQ(RoundUp(1000), 1000);
    EXPECT_GE(RoundUp(std::numeric_limits<std::int64_t>::max()), std::int64_t{9} << 59);
}

TEST(PlotTest, BarsAreAsLongAsTheirNumbersAndWhatIsntNothingIsSeen)
{
    const std::string html = Html(kTwoDays);

    EXPECT_TRUE(Holds(html, "<rect class=\"sent\" x=\"1\" y=\"0\" width=\"4\" height=\"1000\"/>")) << html;
    EXPECT_TRUE(Holds(html, "<rect class=\"received\" x=\"15\" y=\"750\" width=\"4\" height=\"250\"/>"))
        << html;
    EXPECT_TRUE(Holds(html, "<rect class=\"sent\" x=\"11\" y=\"988\" width=\"4\" height=\"12\"/>")) << html;
    EXPECT_FALSE(Holds(html, "height=\"0\""));
}

TEST(PlotTest, APlotIsToldInWordsAndItsNumbersUnfold)
{
    const std::string html = Html(kTwoDays);

    EXPECT_TRUE(Holds(html, "aria-labelledby=\"items-title items-desc\""));
    EXPECT_TRUE(Holds(html, "<title id=\"items-title\">Items a day</title>"));
    EXPECT_TRUE(
        Holds(html, "In all 1,001 sent and 250 received; the most on 2026-11-22: 1,000 sent, 0 received."));
    EXPECT_TRUE(Holds(html, "<details><summary>The numbers: Items a day</summary>"));
    EXPECT_TRUE(Holds(html,
                      "<th scope=\"row\">2026-11-23</th><td data-head=\"Sent\"><span>1</span></td>"
                      "<td data-head=\"Received\"><span>250</span></td>"))
        << html;
}

TEST(PlotTest, WhereNothingPassedThePlotSaysSo)
{
    EXPECT_TRUE(
        Holds(Html(DaysPlot{"x", "X", Sized, {{"2026-11-22", 0, 0}}}), "Nothing passed in these days."));
    EXPECT_TRUE(Holds(Html(DaysPlot{"x", "X", Sized, {}}), "Nothing passed in these days."));
}

TEST(PlotTest, RowsHaveABarEachAndTheirNumbersBeside)
{
    const std::string html =
        Html(RowsPlot{"r", "Rows", "Label", "Count", {{"within 1 s", 2000}, {"longer", 500}, {"no", 0}}});

    EXPECT_TRUE(Holds(html, "width=\"1000\"")) << html;
    EXPECT_TRUE(Holds(html, "width=\"250\"")) << html;
    EXPECT_TRUE(Holds(html, "Count: 2,500 in all, within 1 s: 2,000, longer: 500.")) << html;
    EXPECT_TRUE(Holds(html, "<th scope=\"row\">no</th><td data-head=\"Count\"><span>0</span></td>")) << html;
}

}  // namespace

}  // namespace quorvane::host
