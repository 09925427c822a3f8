// `list` with words and in an order.
#include <fstream>

#include "tests/program/program.h"

namespace quorvane::test {

namespace {

class ListTest : public ProgramTest {
protected:
    void SetUp() override
    {
        ProgramTest::SetUp();
        MakeMailboxes({"a"});
        std::filesystem::create_directory(Path("in"));
        Write("1", "Zebra report", "Ann <ann@x.example>", "bob@x.example", "Mon, 2 Nov 2026 10:00:00 +0000",
              300);
        Write("2", "ÄPFEL", "Carl <carl@y.example>", "dora@x.example", "Sun, 1 Mar 2026 23:59:59 +0000", 200);
        Write("3", "Report two", "Bea <bea@x.example>", "bob@x.example", "Sat, 31 Oct 2026 00:00:00 +0000",
              100);
        MustRun({"import", Mailbox("a"), "In", Path("in").string()});
    }

    void Write(const std::string& name, const std::string& subject, const std::string& from,
               const std::string& to, const std::string& date, std::size_t size) const
    {
        std::ofstream(Path("in") / (name + ".eml"))
            << "Subject: " << subject << "\nFrom: " << from << "\nTo: " << to << "\nDate: " << date
            << "\nContent-Type: text/plain; charset=utf-8\n\nbody " << name << std::string(size, 'x') << "\n";
    }

    // The numbers of the items that are listed.
    std::vector<int> Listed(const std::vector<std::string>& words) const
    {
        std::vector<std::string> arguments{"list", Mailbox("a"), "In"};
        arguments.insert(arguments.end(), words.begin(), words.end());
        arguments.push_back("--json");
        std::vector<int> numbers;
        for (const Json& item : MustRun(arguments).Value())
            numbers.push_back(item["number"]);
        return numbers;
    }
    using Numbers = std::vector<int>;
};

TEST_F(ListTest, WordsAreSearchedForInSubjectsAndSenders)
{
    EXPECT_EQ(Listed({"report"}), (Numbers{1, 3}));
    EXPECT_EQ(Listed({"CARL"}), (Numbers{2}));
    EXPECT_EQ(Listed({"y.example"}), (Numbers{2}));
    EXPECT_EQ(Listed({"report", "bea"}), (Numbers{3}));
    EXPECT_EQ(Listed({"body"}), (Numbers{}));
}

TEST_F(ListTest, AWordMayNameWhatItIsSearchedForIn)
{
    EXPECT_EQ(Listed({"from:x.example"}), (Numbers{1, 3}));
    EXPECT_EQ(Listed({"to:DORA"}), (Numbers{2}));
    EXPECT_EQ(Listed({"subject:äpfel"}), (Numbers{2}));
    EXPECT_EQ(Listed({"subject:carl"}), (Numbers{}));
    EXPECT_EQ(Listed({"body:body 3x"}), (Numbers{3}));
}

TEST_F(ListTest, APeriodHoldsItsFirstMomentAndNotTheNextOnes)
{
    EXPECT_EQ(Listed({"date:2026"}), (Numbers{1, 2, 3}));
    EXPECT_EQ(Listed({"date:2025"}), (Numbers{}));
    EXPECT_EQ(Listed({"date:2026-10"}), (Numbers{3}));
    EXPECT_EQ(Listed({"date:2026-10-31"}), (Numbers{3}));
    EXPECT_EQ(Listed({"date:2026-10-30"}), (Numbers{}));
    EXPECT_EQ(Listed({"date:2026-03-01"}), (Numbers{2}));
    EXPECT_EQ(Listed({"date:2026-10..2026-11-02"}), (Numbers{1, 3}));
    EXPECT_EQ(Listed({"date:..2026-03-01"}), (Numbers{2}));
    EXPECT_EQ(Listed({"date:2026-11.."}), (Numbers{1}));
}

TEST_F(ListTest, WhatReadersMakeOfItemsIsSearchedFor)
{
    MustRun({"edit", Mailbox("a"), "In", "2", "--unread", "--flag"});
    MustRun({"edit", Mailbox("a"), "In", "3", "--answered", "--forwarded"});
    MustRun({"edit", Mailbox("a"), "In", "1", "--draft"});
    MustRun({"edit", Mailbox("a"), "In", "2", "--for-deletion"});
    EXPECT_EQ(Listed({"is:unread"}), (Numbers{2}));
    EXPECT_EQ(Listed({"is:read"}), (Numbers{1, 3}));
    EXPECT_EQ(Listed({"is:flagged"}), (Numbers{2}));
    EXPECT_EQ(Listed({"is:answered"}), (Numbers{3}));
    EXPECT_EQ(Listed({"is:forwarded"}), (Numbers{3}));
    EXPECT_EQ(Listed({"is:draft"}), (Numbers{1}));
    EXPECT_EQ(Listed({"is:for-deletion"}), (Numbers{2}));
    EXPECT_EQ(Listed({"has:attachment"}), (Numbers{}));
}

TEST_F(ListTest, ItemsAreSortedAndKeepTheirNumbers)
{
    EXPECT_EQ(Listed({}), (Numbers{1, 2, 3}));
    EXPECT_EQ(Listed({"--reverse"}), (Numbers{3, 2, 1}));
    EXPECT_EQ(Listed({"--sort", "date"}), (Numbers{2, 3, 1}));
    EXPECT_EQ(Listed({"--sort", "date", "--reverse"}), (Numbers{1, 3, 2}));
    EXPECT_EQ(Listed({"--sort", "sender"}), (Numbers{1, 3, 2}));
    EXPECT_EQ(Listed({"--sort", "size", "report"}), (Numbers{3, 1}));
}

TEST_F(ListTest, AWordThatCantBeUnderstoodIsAnError)
{
    for (const char* word : {"is:blue", "date:2026-13", "date:2026-02-30", "date:..", "date:yesterday",
                             "colour:red", "from:", "has:legs", ""}) {
        const Outcome outcome = Run({"list", Mailbox("a"), "In", word});
        EXPECT_EQ(outcome.exitCode, 2) << word;
        EXPECT_NE(outcome.errors.find("can't search for '" + std::string(word) + "'"), std::string::npos)
            << outcome.errors;
    }
    EXPECT_EQ(Run({"list", Mailbox("a"), "In", "--sort", "colour"}).exitCode, 2);
}

}  // namespace

}  // namespace quorvane::test
