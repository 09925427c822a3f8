#include "host/sharing/since.h"

#include <gtest/gtest.h>

#include "host/base/output.h"

namespace quorvane::host {

namespace {

TEST(ParseTimeTest, ADateIsItsFirstMomentAndATimeItself)
{
    EXPECT_EQ(TimeText(*ParseTime("2026-11-21")), "2026-11-21T00:00:00Z");
    EXPECT_EQ(TimeText(*ParseTime("2026-11-21T06:16:47Z")), "2026-11-21T06:16:47Z");
}

TEST(ParseTimeTest, AnythingElseIsNoTime)
{
    for (const char* text : {"", "yesterday", "2026-11", "2026-13-01", "2026-02-30", "2026-11-21 06:16",
                             "21.11.2026", "2026-11-21T25:00:00Z", "-026-11-21", "2026-11-21Z"})
        EXPECT_FALSE(ParseTime(text)) << text;
}

}  // namespace

}  // namespace quorvane::host
