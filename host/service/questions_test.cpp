#include "host/service/questions.h"

#include <gtest/gtest.h>

#include <sstream>

#include "host/base/errors.h"

namespace quorvane::host {

namespace {

std::string NoBob(const std::string& answer)
{
    return answer == "bob" ? "that isn't you" : "";
}

TEST(QuestionsTest, AnEmptyLineIsWhatWasProposed)
{
    std::istringstream in("\n  carol \r\n");
    std::ostringstream out;
    Questions questions(in, out);
    EXPECT_EQ(questions.Ask("Name", "alice", NoBob), "alice");
    EXPECT_EQ(questions.Ask("Name", "alice", NoBob), "carol");
    EXPECT_EQ(out.str(), "Name [alice]: Name [alice]: ");
}

TEST(QuestionsTest, WhatWontDoIsAskedForAgain)
{
    std::istringstream in("bob\ncarol\n");
    std::ostringstream out;
    EXPECT_EQ(Questions(in, out).Ask("Name", "alice", NoBob), "carol");
    EXPECT_NE(out.str().find("  that isn't you\n"), std::string::npos);
}

TEST(QuestionsTest, TheEndOfTheAnswersIsAnError)
{
    std::istringstream in("bob\n");
    std::ostringstream out;
    EXPECT_THROW(Questions(in, out).Ask("Name", "alice", NoBob), HostError);
}

TEST(QuestionsTest, YesIsWhatIsProposed)
{
    std::istringstream in("\nno\nperhaps\ny\n");
    std::ostringstream out;
    Questions questions(in, out);
    EXPECT_TRUE(questions.Confirm("Do it"));
    EXPECT_FALSE(questions.Confirm("Do it"));
    EXPECT_TRUE(questions.Confirm("Do it"));
}

}  // namespace

}  // namespace quorvane::host
