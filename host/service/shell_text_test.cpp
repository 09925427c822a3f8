#include "host/service/shell_text.h"

#include <gtest/gtest.h>

namespace quorvane::host {

namespace {

TEST(ShellTextTest, WhatAShellLeavesAloneStaysAsItIs)
{
    EXPECT_EQ(ShellWord("/home/alice/mail-1_2.x@y"), "/home/alice/mail-1_2.x@y");
    EXPECT_EQ(ShellWord("Entw\xC3\xBCrfe"), "Entw\xC3\xBCrfe");
}

TEST(ShellTextTest, AllElseIsQuoted)
{
    EXPECT_EQ(ShellWord(""), "''");
    EXPECT_EQ(ShellWord("my mail"), "'my mail'");
    EXPECT_EQ(ShellWord("~/mail"), "'~/mail'");
    EXPECT_EQ(ShellWord("$HOME`x`"), "'$HOME`x`'");
    EXPECT_EQ(ShellWord("alice's"), "'alice'\\''s'");
}

}  // namespace

}  // namespace quorvane::host
