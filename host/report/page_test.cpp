#include "host/report/page.h"

#include <gtest/gtest.h>

#include "host/report/page_for_test.h"

namespace quorvane::host {

namespace {

TEST(PageTest, NoTextFromOutsideIsMarkupAnywhere)
{
    const std::string page = PageOf(FullReport("\"'><script>alert(1)</script>&"));

    EXPECT_FALSE(Holds(page, "<script"));
    EXPECT_FALSE(Holds(page, "\"'>"));
    EXPECT_TRUE(Holds(page, "&quot;&#39;&gt;&lt;script&gt;alert(1)&lt;/script&gt;&amp;"));
}

TEST(PageTest, ItLoadsNothing)
{
    const std::string page = PageOf(FullReport("x"));

    EXPECT_TRUE(Holds(page, "content=\"default-src 'none'; style-src 'unsafe-inline'\""));
    for (const char* const loading : {" src=", "<link", "@import", "url(", "<script"})
        EXPECT_FALSE(Holds(page, loading)) << loading;
}

TEST(PageTest, WhatNeedsSomebodyIsListedFirst)
{
    const std::string page = PageOf(FullReport("x"));

    const std::size_t list = page.find("id=\"waiting\"");
    const std::string waiting = page.substr(list, page.find("</section>", list) - list);
    for (const char* const line : {"invites you to", "No device of", "isn't known", "edits were beaten",
                                   "couldn't be sent", "The Maildir of", "rejected"})
        EXPECT_TRUE(Holds(waiting, line)) << line;
    EXPECT_TRUE(Holds(PageOf(QuietReport()), "Nothing needs you."));
}

TEST(PageTest, TimesAreToldByTheHalfAndTheMost)
{
    EXPECT_TRUE(
        Holds(PageOf(FullReport("x")), "Half of them were applied within 1 s, 95 of 100 within 5 min."));
    EXPECT_TRUE(Holds(PageOf(QuietReport()), "No change of others was applied in these days."));
}

TEST(PageTest, RefusedPackagesAreThoseOfBothKinds)
{
    EXPECT_TRUE(Holds(PageOf(FullReport("x")), "<a href=\"#refused\"><b>4</b> packages refused</a>"));
}

TEST(PageTest, WhoHasNoKnownDeviceIsWaitedForAndOthersGetWhatTheyLack)
{
    Json report = FullReport("x");
    EXPECT_TRUE(Holds(PageOf(report), "waits for a known device"));
    report["awaited"] = {"y"};
    EXPECT_TRUE(Holds(PageOf(report), "goes on with a run"));
    report["resends"][0]["cancelled"] = true;
    EXPECT_FALSE(Holds(PageOf(report), "goes on with a run"));
}

TEST(PageTest, APageIsKnownByItsBeginning)
{
    const std::string page = PageOf(QuietReport());

    EXPECT_TRUE(IsPage(page));
    EXPECT_TRUE(IsPage(page.substr(0, kTellingBytes)));
    EXPECT_FALSE(IsPage("<!DOCTYPE html>\n<html></html>"));
    EXPECT_FALSE(IsPage("x" + page));
    EXPECT_FALSE(IsPage(""));
}

}  // namespace

}  // namespace quorvane::host
