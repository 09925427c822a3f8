#include "host/report/html.h"

#include <gtest/gtest.h>

namespace quorvane::host {

namespace {

TEST(HtmlTest, MarkupInATextIsText)
{
    EXPECT_EQ(Escaped("<b onclick=\"x('&')\">"), "&lt;b onclick=&quot;x(&#39;&amp;&#39;)&quot;&gt;");
}

TEST(HtmlTest, ForeignBytesAreOneLineOfLettersAndKeepTheirDirectionToThemselves)
{
    const std::string shown = Foreign("a\nb\x01\xff");

    EXPECT_TRUE(shown.starts_with("<bdi>a") && shown.ends_with("</bdi>")) << shown;
    EXPECT_EQ(shown.find_first_of("\n\x01\xff"), std::string::npos) << shown;
    EXPECT_EQ(Foreign(""), "<bdi>(nothing)</bdi>");
}

TEST(HtmlTest, NumbersAreGroupedByThousands)
{
    EXPECT_EQ(Counted(0), "0");
    EXPECT_EQ(Counted(999), "999");
    EXPECT_EQ(Counted(1000), "1,000");
    EXPECT_EQ(Counted(1'234'567), "1,234,567");
    EXPECT_EQ(Counted(-1234), "-1,234");
    EXPECT_EQ(Counted(-123), "-123");
}

TEST(HtmlTest, SizesHaveTwoOrThreeDigitsAndAUnit)
{
    EXPECT_EQ(Sized(999), "999 B");
    EXPECT_EQ(Sized(1000), "1.0 kB");
    EXPECT_EQ(Sized(9'960), "10 kB");
    EXPECT_EQ(Sized(999'700), "1.0 MB");
    EXPECT_EQ(Sized(123'456'789), "123 MB");
}

TEST(HtmlTest, TimesTellHowLongTheyAreAgo)
{
    EXPECT_EQ(Time("2026-11-21T06:16:47Z"),
              "<time datetime=\"2026-11-21T06:16:47Z\">2026-11-21 06:16 UTC</time>");
    EXPECT_EQ(Time(""), "never");
    EXPECT_EQ(Time("<soon>"), "&lt;soon&gt;");
    const auto ago = [](const char* text) {
        const std::string shown = TimeBefore(text, "2026-03-01T12:00:00Z");
        const std::size_t at = shown.find("ago\">");
        return at == std::string::npos ? std::string() : shown.substr(at + 5, shown.rfind("<") - at - 5);
    };
    EXPECT_EQ(ago("2026-03-01T11:59:55Z"), "5 s ago");
    EXPECT_EQ(ago("2026-03-01T11:50:00Z"), "10 min ago");
    EXPECT_EQ(ago("2026-02-28T12:00:00Z"), "1 day ago");
    EXPECT_EQ(ago("2026-02-01T12:00:00Z"), "28 days ago");
    EXPECT_EQ(ago("2026-03-01T12:00:05Z"), "");
}

TEST(HtmlTest, ATableWithoutRowsSaysSo)
{
    EXPECT_EQ(HtmlTable("c", {"A"}).Html("Nothing & nobody."),
              "<p class=\"none\">Nothing &amp; nobody.</p>\n");
}

TEST(HtmlTest, EachCellOfARowHasItsHeadBesideIt)
{
    HtmlTable table("Things", {"Name", "Count & more"});
    table.Add({"<bdi>a</bdi>", "1"});

    const std::string html = table.Html("none");

    EXPECT_NE(html.find("<caption>Things</caption>"), std::string::npos);
    EXPECT_NE(html.find("<tr><th scope=\"row\"><bdi>a</bdi></th><td data-head=\"Count &amp; more\">"
                        "<span>1</span></td></tr>"),
              std::string::npos)
        << html;
}

}  // namespace

}  // namespace quorvane::host
