#include "host/mirror/maildir_name.h"

#include <gtest/gtest.h>

namespace quorvane::host {

namespace {

TEST(MaildirNameTest, AnInfoPartStandsBehindTheLastMark)
{
    const MaildirName name("1.M2.host,U=7:2,FS");
    EXPECT_EQ(name.base, "1.M2.host,U=7");
    EXPECT_EQ(name.info, "FS");
    EXPECT_EQ(name.Text(), "1.M2.host,U=7:2,FS");
    EXPECT_EQ(MaildirName("1.host").Text(), "1.host");
    EXPECT_EQ(MaildirName("1.host:2,").Text(), "1.host:2,");
    EXPECT_EQ(MaildirName(":2,S").base, "");
}

TEST(MaildirNameTest, LettersTellMarksAndOthersDoNot)
{
    EXPECT_EQ(MarksOfInfo("DFPRST"), kAllMarks);
    EXPECT_EQ(MarksOfInfo("dfprst"), 0);
    EXPECT_EQ(MarksOfInfo("D,S"), kMarkDraft);
}

TEST(MaildirNameTest, WhatElseStandsInAnInfoPartIsKept)
{
    EXPECT_EQ(InfoWith("", kMarkRead | kMarkFlagged), "FS");
    EXPECT_EQ(InfoWith("DSTXab", kMarkAnswered | kMarkForDeletion), "RTXab");
    EXPECT_EQ(InfoWith("S,x=S", 0), ",x=S");
    EXPECT_EQ(InfoWith("SS", kMarkRead), "S");
}

TEST(MaildirNameTest, ANumberOfTheFolderBeforeIsLeftThere)
{
    EXPECT_EQ(BaseElsewhere("1.host,U=17"), "1.host");
    EXPECT_EQ(BaseElsewhere("1.host,U=17,S=3"), "1.host,S=3");
    EXPECT_EQ(BaseElsewhere("1.host,S=3"), "1.host,S=3");
}

TEST(MaildirNameTest, NewNamesDiffer)
{
    EXPECT_NE(NewBase(), NewBase());
}

}  // namespace

}  // namespace quorvane::host
