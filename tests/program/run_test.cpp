// A run as somebody has it who lets it stand all day: what it costs while nothing is to be done, that it
// hears of changes, and how it ends.
#include <algorithm>
#include <cstdlib>
#include <fstream>

#include "tests/program/program.h"

namespace quorvane::test {

namespace {

using namespace std::chrono_literals;

int NumberOf(const char* variable, int otherwise)
{
    const char* const text = std::getenv(variable);
    return text ? std::atoi(text) : otherwise;
}

class RunTest : public ProgramTest {
protected:
    // `count` mails, each of so many bytes at the least.
    std::string Mails(const std::string& name, int count, std::size_t size = 0) const
    {
        const auto path = Path(name + ".mbox");
        std::ofstream file(path, std::ios::binary);
        for (int i = 0; i < count; ++i) {
            file << "From a@example.org Thu Jan  1 00:00:00 2026\nFrom: a@example.org\nTo: "
                    "b@example.org\nSubject: "
                 << name << ' ' << i << "\nMessage-ID: <" << name << '-' << i << "@example.org>\n\n";
            // Text that doesn't become smaller when it is packed.
            std::uint32_t state = 1;
            for (std::size_t at = 0; at < size; ++at) {
                state = state * 1664525 + 1013904223;
                file << (at % 70 == 69 ? '\n' : static_cast<char>('0' + (state >> 24) % 64));
            }
            file << "\n\n";
        }
        return path.string();
    }
    void ShareWithBob(const std::string& folder) const
    {
        MustRun({"share", Mailbox("alice"), folder, "--with", "bob"});
    }
    // The end is asked for and comes soon, however much is left to do. Many times as much would be the
    // orderly way.
    static void ExpectToEndSoon(Process& process)
    {
        process.AskToEnd();
        Outcome outcome;
        ASSERT_TRUE(process.WaitFor(3s, outcome));
        EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
        EXPECT_NE(outcome.output.find("itemsSent"), std::string::npos) << outcome.output;
    }
    // The content of the packages that are for somebody, the largest last.
    std::vector<std::filesystem::path> ContentBySize(const std::string& receiver) const
    {
        auto files = ContentFor(receiver);
        std::sort(files.begin(), files.end(), [](const auto& one, const auto& other) {
            return std::filesystem::file_size(one) < std::filesystem::file_size(other);
        });
        return files;
    }

    // Wine's processes aren't the system's own.
    static bool IsMeasurable() { return !TestedProgram().isForWindows; }
};

// QUORVANE_IDLE_SECONDS=60 QUORVANE_IDLE_MAILS=1000 is the long form, which takes some minutes until all is
// shared.
TEST_F(RunTest, WhileNothingIsToBeDoneItTakesNextToNothingAndWritesNothing)
{
    if (!IsMeasurable())
        GTEST_SKIP() << "what a process costs is told on Linux alone";
    const int seconds = NumberOf("QUORVANE_IDLE_SECONDS", 5);
    const int mails = NumberOf("QUORVANE_IDLE_MAILS", 5);
    MakeMailboxes({"alice", "bob"});
    const std::string file = Mails("mails", mails);
    for (int i = 0; i < 24; ++i) {
        MustRun({"import", Mailbox("alice"), "F" + std::to_string(i), file});
        ShareWithBob("F" + std::to_string(i));
    }
    Process alice = Start(RunOf("alice"));
    Process bob = Start(RunOf("bob"));
    ASSERT_TRUE(Eventually([&] { return Run({"list", Mailbox("bob"), "F23"}).exitCode == 0; }));
    alice.AwaitQuiet();
    bob.AwaitQuiet();

    const Cost before = alice.CostSoFar(), beforeAtBob = bob.CostSoFar();
    Outcome outcome;
    ASSERT_FALSE(alice.WaitFor(std::chrono::seconds(seconds), outcome));
    const Cost after = alice.CostSoFar(), afterAtBob = bob.CostSoFar();

    ASSERT_EQ(Items("bob", "F23").size(), static_cast<std::size_t>(mails));
    const auto share = [&](const Cost& from, const Cost& to) {
        const double used = std::chrono::duration<double>(to.processor - from.processor).count();
        return 100 * used / seconds;
    };
    std::cout << "percent of a core: " << share(before, after) << " and " << share(beforeAtBob, afterAtBob)
              << "\n";
    // One step more or less counts in a few seconds.
    const double bound = seconds >= 60 ? 0.2 : 0.6;
    EXPECT_LT(share(before, after), bound);
    EXPECT_LT(share(beforeAtBob, afterAtBob), bound);
    EXPECT_EQ(after.written, before.written);
    EXPECT_EQ(afterAtBob.written, beforeAtBob.written);
}

TEST_F(RunTest, WhatAnotherProcessDoesIsHeardAtOnceHoweverSeldomARunLooks)
{
    MakeMailboxes({"alice", "bob"});
    MustRun({"import", Mailbox("alice"), "Shared", Sample("01-plain").string()});
    ShareWithBob("Shared");
    RunUntilIdle({"alice", "bob"}, "0.5");
    // An hour is longer than anybody here waits: on Linux and Windows the system tells of changes.
    Process alice = Start(RunOf("alice", {"--look-every", "3600"}));
    Process bob = Start(RunOf("bob", {"--look-every", "3600"}));
    const auto quiet = [](Process& process) {
        if (IsMeasurable())
            process.AwaitQuiet();
    };
    quiet(alice);
    quiet(bob);

    MustRun({"edit", Mailbox("alice"), "Shared", "1", "--subject", "told"});
    EXPECT_TRUE(Eventually([&] { return Items("bob", "Shared").at(0).at("subject") == "told"; }));
    quiet(alice);
    quiet(bob);
    MustRun({"import", Mailbox("bob"), "Another", Sample("07-attachment-csv").string()});
    MustRun({"share", Mailbox("bob"), "Another", "--with", "alice"});
    EXPECT_TRUE(Eventually([&] { return Run({"list", Mailbox("alice"), "Another"}).exitCode == 0; }));
    EXPECT_TRUE(Eventually([&] { return Items("alice", "Another").size() == 1; }));
}

// As who puts a large package there piece by piece.
TEST_F(RunTest, WhoWritesIntoTheExchangeAllTheTimeKeepsNobodyAtWork)
{
    if (!IsMeasurable())
        GTEST_SKIP() << "what a process costs is told on Linux alone";
    MakeMailboxes({"alice", "bob"});
    MustRun({"import", Mailbox("alice"), "Shared", Sample("01-plain").string()});
    ShareWithBob("Shared");
    RunUntilIdle({"alice", "bob"}, "0.5");
    Process alice = Start(RunOf("alice", {"--json"}));
    std::vector<std::ofstream> files;
    for (const auto& home : std::filesystem::directory_iterator(Path("exchange")))
        files.emplace_back(home.path() / "out" / ".writing", std::ios::app);
    const auto write = [&](std::chrono::milliseconds time) {
        const auto end = std::chrono::steady_clock::now() + time;
        while (std::chrono::steady_clock::now() < end)
            for (std::ofstream& file : files)
                file << 'x' << std::flush;
    };
    write(1000ms);
    const Cost before = alice.CostSoFar();
    write(2000ms);
    const auto used = std::chrono::duration<double>(alice.CostSoFar().processor - before.processor).count();
    std::cout << "percent of a core: " << 50 * used << "\n";
    EXPECT_LT(50 * used, 12);
    ASSERT_TRUE(std::all_of(files.begin(), files.end(), [](const std::ofstream& file) { return !!file; }));
    ExpectToEndSoon(alice);
}

// The engine reports nothing of it: it takes those for known that it was shown while it watched.
TEST_F(RunTest, ADeletionOfAMailThatCameWhileNoRunWasAtWorkIsSentSoon)
{
    MakeMailboxes({"alice", "bob"});
    MustRun({"import", Mailbox("alice"), "Shared", Mails("first", 2)});
    ShareWithBob("Shared");
    RunUntilIdle({"alice", "bob"}, "0.5");
    MustRun({"import", Mailbox("alice"), "Shared", Mails("second", 2)});
    Process alice = Start(RunOf("alice"));
    Process bob = Start(RunOf("bob"));
    ASSERT_TRUE(Eventually([&] { return Items("bob", "Shared").size() == 4; }));
    alice.AwaitQuiet();

    MustRun({"delete", Mailbox("alice"), "Shared", "3"});

    EXPECT_TRUE(Eventually([&] { return Items("bob", "Shared").size() == 3; }));
}

TEST_F(RunTest, ItEndsSoonWhateverItIsDoing)
{
    MakeMailboxes({"alice", "bob"});
    MustRun({"import", Mailbox("alice"), "Shared", Sample("01-plain").string()});
    ShareWithBob("Shared");
    RunUntilIdle({"alice", "bob"}, "0.5");
    MustRun({"import", Mailbox("alice"), "Shared", Mails("mails", 1500)});
    {
        // It begins with what was changed meanwhile.
        Process alice = Start(RunOf("alice", {"--json"}));
        ASSERT_TRUE(Eventually([&] { return !std::filesystem::is_empty(Path("alice") / "packages"); }));
        ExpectToEndSoon(alice);
    }
    {
        MustRun({"import", Mailbox("alice"), "Big", Mails("big", 1, 50'000'000)});
        ShareWithBob("Big");
        Process bob = Start(RunOf("bob", {"--json"}));
        Process alice = Start(RunOf("alice", {"--json"}));
        // It is packed, sealed or copied.
        ASSERT_TRUE(Eventually([&] {
            for (const char* place : {"alice/packages", "bob/inbox", "exchange"})
                for (const auto& entry : std::filesystem::recursive_directory_iterator(
                         Path(place), std::filesystem::directory_options::skip_permission_denied)) {
                    std::error_code error;
                    if (entry.file_size(error) > 10'000'000 && !error)
                        return true;
                }
            return false;
        }));
        ExpectToEndSoon(alice);
        ExpectToEndSoon(bob);
    }
    RunUntilIdle({"alice", "bob"}, "1");
    ExpectSame("alice", "Shared", "bob", "Shared");
    ExpectSame("alice", "Big", "bob", "Big");
}

TEST_F(RunTest, AHeldPackageIsntCopied)
{
    if (!IsMeasurable())
        GTEST_SKIP() << "what a process writes is told on Linux alone";
    MakeMailboxes({"alice", "bob"});
    MustRun({"import", Mailbox("alice"), "Shared", Sample("01-plain").string()});
    ShareWithBob("Shared");
    RunUntilIdle({"alice", "bob"}, "0.5");
    MustRun({"edit", Mailbox("alice"), "Shared", "1", "--subject", "the first change"});
    RunUntilIdle({"alice"}, "0.5");
    const auto withheld = Packages();
    ASSERT_EQ(withheld.size(), 1U);
    MustRun({"import", Mailbox("alice"), "Shared", Mails("big", 1, 8 << 20)});
    RunUntilIdle({"alice"}, "0.5");
    std::filesystem::remove(withheld[0]);

    Process bob = Start(RunOf("bob"));
    ASSERT_TRUE(Eventually([&] {
        return MustRun({"status", Mailbox("bob"), "--json"}).Value().at("members").at(0).contains("missing");
    }));
    const Cost before = bob.CostSoFar();
    Outcome outcome;
    ASSERT_FALSE(bob.WaitFor(10s, outcome));
    EXPECT_LT(bob.CostSoFar().written - before.written, 100'000U);
}

TEST_F(RunTest, AFirstShareTravelsAsManyPackagesOfABoundedSize)
{
    constexpr std::uintmax_t kMegabyte = 1 << 20;
    MakeMailboxes({"alice", "bob"});
    MustRun({"import", Mailbox("alice"), "Shared", Mails("small", 20, 200'000)});
    MustRun({"import", Mailbox("alice"), "Shared", Mails("large", 1, 3 * kMegabyte)});
    ShareWithBob("Shared");
    LetAccept("alice", "bob");
    MustRun(RunOf("alice", {"--until-idle", "--idle-seconds", "0.5", "--package-size", "2"}));

    const auto files = ContentBySize("bob");
    ASSERT_GE(files.size(), 5U);
    EXPECT_GT(std::filesystem::file_size(files.back()), 3 * kMegabyte) << "an item that is larger travels";
    EXPECT_EQ(MustRun({"inspect", files.back().string(), "--json"}).Value().at("items").size(), 1U)
        << "alone";
    EXPECT_LE(std::filesystem::file_size(files[files.size() - 2]), 2 * kMegabyte + kMegabyte / 4);

    // The receiver begins with the first, while the others are on their way. Before it he is told of the
    // folder.
    constexpr std::size_t kFirst = 3;
    auto packages = Packages();
    std::sort(packages.begin(), packages.end());
    for (std::size_t i = kFirst; i < packages.size(); ++i)
        std::filesystem::rename(packages[i], Path("late-" + std::to_string(i)));
    MustRun(RunOf("bob", {"--until-idle", "--idle-seconds", "0.5"}));
    EXPECT_GT(Items("bob", "Shared").size(), 0U);
    EXPECT_LT(Items("bob", "Shared").size(), 21U);
    for (std::size_t i = kFirst; i < packages.size(); ++i)
        std::filesystem::rename(Path("late-" + std::to_string(i)), packages[i]);
    RunUntilIdle({"alice", "bob"}, "0.5");
    ExpectSame("alice", "Shared", "bob", "Shared");
}

}  // namespace

}  // namespace quorvane::test
