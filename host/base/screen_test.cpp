#include "host/base/screen.h"

#include <gtest/gtest.h>

namespace quorvane::host {

namespace {

TEST(ScreenTest, EachLineIsCutToTheWidthAndWipesWhatStoodThere)
{
    EXPECT_EQ(Drawn("one\nlonger line\n", 6, 9), "\033[Hone\033[K\r\nlonge\xE2\x80\xA6\033[K\033[J");
    EXPECT_EQ(Drawn("\033[1mcoloured\033[0m", 6, 9), "\033[H\033[1mcolou\u2026\033[0m\033[K\033[J");
}

TEST(ScreenTest, LinesWithoutRoomAreCounted)
{
    EXPECT_EQ(Drawn("1\n2\n3\n4\n", 80, 3), "\033[H1\033[K\r\n2\033[K\r\nand 2 lines more\033[K\033[J");
    EXPECT_EQ(Drawn("1\n2\n3\n", 80, 3), "\033[H1\033[K\r\n2\033[K\r\n3\033[K\033[J");
}

}  // namespace

}  // namespace quorvane::host
