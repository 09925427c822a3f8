// The road of a change between mailboxes, as a user travels it.
#include <algorithm>
#include <csignal>
#include <fstream>

#include "tests/program/program.h"

namespace quorvane::test {

namespace {

class SharingTest : public ProgramTest {
protected:
    void ShareSamples(const std::vector<std::string>& members)
    {
        MakeMailboxes({"alice"});
        MakeMailboxes(members);
        MustRun({"import", Mailbox("alice"), "Shared", Samples().string()});
        std::vector<std::string> arguments{"share", Mailbox("alice"), "Shared", "--with"};
        arguments.insert(arguments.end(), members.begin(), members.end());
        MustRun(arguments);
    }

    std::string IdOf(const std::string& mailbox, std::size_t number) const
    {
        const auto items = Items(mailbox, "Shared");
        return number < items.size() ? items[number].at("id").get<std::string>() : std::string("missing");
    }

    std::string SubjectOf(const std::string& mailbox, const std::string& id) const
    {
        for (const Json& item : Items(mailbox, "Shared"))
            if (item.at("id") == id)
                return item.at("subject");
        return "missing";
    }

    static std::uint64_t Total(const std::vector<Json>& counts, const char* name)
    {
        std::uint64_t total = 0;
        for (const Json& count : counts)
            total += count.value(name, std::uint64_t{0});
        return total;
    }
};

TEST_F(SharingTest, AMemberGetsTheFolderWithEqualItems)
{
    ShareSamples({"bob"});

    const auto counts = RunUntilIdle({"alice", "bob"});

    EXPECT_EQ(Items("bob", "Shared").size(), 40U);
    ExpectSame("alice", "Shared", "bob", "Shared");
    EXPECT_EQ(Total(counts, "echoes"), 0U);
    EXPECT_EQ(counts[1].at("itemsSent"), 0U);
    EXPECT_EQ(counts[1].at("packagesSent"), 1U) << "that the folder was accepted";
}

TEST_F(SharingTest, ChangesAndDeletionsFollowInBothDirections)
{
    ShareSamples({"bob"});
    RunUntilIdle({"alice", "bob"});
    const std::string byAlice = IdOf("alice", 0), byBob = IdOf("alice", 1);
    const std::string goneAtAlice = IdOf("alice", 2), goneAtBob = IdOf("alice", 3);

    MustRun({"edit", Mailbox("alice"), "Shared", byAlice, "--subject", "changed by alice"});
    MustRun({"edit", Mailbox("bob"), "Shared", byBob, "--subject", "changed by bob"});
    MustRun({"delete", Mailbox("alice"), "Shared", goneAtAlice});
    MustRun({"delete", Mailbox("bob"), "Shared", goneAtBob});
    const auto counts = RunUntilIdle({"alice", "bob"});

    EXPECT_EQ(SubjectOf("bob", byAlice), "changed by alice");
    EXPECT_EQ(SubjectOf("alice", byBob), "changed by bob");
    EXPECT_EQ(Items("alice", "Shared").size(), 38U);
    EXPECT_EQ(Items("bob", "Shared").size(), 38U);
    ExpectSame("alice", "Shared", "bob", "Shared");
    EXPECT_EQ(Total(counts, "echoes"), 0U);
    EXPECT_EQ(Total(counts, "itemsSent"), 2U);
    EXPECT_EQ(Total(counts, "deletionsSent"), 2U);
}

TEST_F(SharingTest, AChangeIsSeenWhileBothSidesRun)
{
    ShareSamples({"bob"});
    RunUntilIdle({"alice", "bob"});
    Process alice = Start({"run", Mailbox("alice"), "--exchange", Exchange(), "-v"});
    Process bob = Start({"run", Mailbox("bob"), "--exchange", Exchange(), "-v"});
    const std::string id = IdOf("alice", 5);

    alice.AwaitQuiet();  // what is changed before it watches is found, and not heard of
    MustRun({"edit", Mailbox("alice"), "Shared", id, "--subject", "live"});
    EXPECT_TRUE(Eventually([&] { return SubjectOf("bob", id) == "live"; }));
    alice.AskToEnd();
    bob.Signal(SIGINT);
    const Outcome atAlice = alice.Wait();
    const Outcome atBob = bob.Wait();

    EXPECT_EQ(atAlice.exitCode, 0) << atAlice.errors;
    EXPECT_EQ(atBob.exitCode, 0) << atBob.errors;
    EXPECT_NE(atAlice.errors.find("onItemChanged " + id), std::string::npos) << atAlice.errors;
    EXPECT_NE(atBob.errors.find("onItemReceived " + id), std::string::npos) << atBob.errors;
    EXPECT_NE(atAlice.errors.find("onItemChanged " + id + " live"), std::string::npos) << atAlice.errors;
    EXPECT_NE(atBob.errors.find("applied " + id + " live"), std::string::npos) << atBob.errors;
    EXPECT_NE(atAlice.errors.find("lies in the exchange"), std::string::npos) << atAlice.errors;
    EXPECT_NE(atBob.errors.find("from 'alice' is taken"), std::string::npos) << atBob.errors;
}

TEST_F(SharingTest, AFileThatOnlyResemblesAPackageStaysInTheExchange)
{
    ShareSamples({"bob"});
    LetAccept("alice", "bob");
    RunUntilIdle({"alice"});
    ASSERT_FALSE(Packages().empty());
    const std::filesystem::path package = Packages().front();
    std::string name = package.filename().string();
    name.replace(package.stem().string().size() - 2, 2, "9x");
    const std::filesystem::path other = package.parent_path() / name;
    std::filesystem::copy_file(package, other);

    const auto counts = RunUntilIdle({"bob"});
    RunUntilIdle({"alice"});  // removes what bob has taken

    EXPECT_TRUE(std::filesystem::exists(other));
    EXPECT_EQ(Packages(), std::vector{other});
    EXPECT_EQ(counts[0].at("packagesRejected"), 0U);
    ExpectSame("alice", "Shared", "bob", "Shared");
}

TEST_F(SharingTest, APackageThatComesOnceMoreIsDropped)
{
    ShareSamples({"bob"});
    LetAccept("alice", "bob");
    RunUntilIdle({"alice"});
    ASSERT_FALSE(Packages().empty());
    const std::filesystem::path package = Packages().front();
    std::filesystem::copy_file(package, Path("kept"));
    RunUntilIdle({"bob"});
    RunUntilIdle({"alice"});
    EXPECT_TRUE(Packages().empty());

    std::filesystem::copy_file(Path("kept"), package);
    const Outcome outcome = MustRun(
        {"run", Mailbox("bob"), "--exchange", Exchange(), "--until-idle", "--idle-seconds", "3", "--json"});
    EXPECT_EQ(outcome.Value().at("packagesReceived"), 0U);
    EXPECT_EQ(outcome.Value().at("itemsApplied"), 0U);
    EXPECT_EQ(outcome.errors, "");
    RunUntilIdle({"alice"});
    EXPECT_TRUE(Packages().empty()) << "its sender removes it";
}

TEST_F(SharingTest, ASecondRunSendsNothing)
{
    ShareSamples({"bob"});
    RunUntilIdle({"alice", "bob"});

    const auto counts = RunUntilIdle({"alice", "bob"});

    EXPECT_EQ(Total(counts, "packagesSent"), 0U);
    EXPECT_EQ(Total(counts, "itemsApplied"), 0U);
}

TEST_F(SharingTest, AnItemMovedAwayIsDeletedAtTheOtherMember)
{
    ShareSamples({"bob"});
    RunUntilIdle({"alice", "bob"});
    MustRun({"import", Mailbox("alice"), "Private", Sample("01-plain").string()});

    MustRun({"move", Mailbox("alice"), "Shared", IdOf("alice", 0), "Private"});
    RunUntilIdle({"alice", "bob"});

    EXPECT_EQ(Items("bob", "Shared").size(), 39U);
    ExpectSame("alice", "Shared", "bob", "Shared");
}

TEST_F(SharingTest, AnItemMovedBetweenTwoSharedFoldersFollowsAndIsThereOnce)
{
    ShareSamples({"bob"});
    MustRun({"import", Mailbox("alice"), "Second", Sample("01-plain").string()});
    MustRun({"share", Mailbox("alice"), "Second", "--with", "bob"});
    RunUntilIdle({"alice", "bob"});

    MustRun({"move", Mailbox("alice"), "Shared", IdOf("alice", 0), "Second"});
    RunUntilIdle({"alice", "bob"});
    EXPECT_EQ(Items("bob", "Shared").size(), 39U);
    EXPECT_EQ(Items("bob", "Second").size(), 2U);
    ExpectSame("alice", "Shared", "bob", "Shared");
    ExpectSame("alice", "Second", "bob", "Second");

    Process alice = Start({"run", Mailbox("alice"), "--exchange", Exchange(), "-v"});
    Process bob = Start({"run", Mailbox("bob"), "--exchange", Exchange(), "-v"});
    MustRun({"move", Mailbox("alice"), "Shared", IdOf("alice", 0), "Second"});
    EXPECT_TRUE(Eventually(
        [&] { return Items("bob", "Shared").size() == 38U && Items("bob", "Second").size() == 3U; }));
    alice.AskToEnd();
    bob.AskToEnd();
    EXPECT_EQ(alice.Wait().exitCode, 0);
    EXPECT_EQ(bob.Wait().exitCode, 0);
    const std::string moved = Items("alice", "Second").back().at("id");
    MustRun({"edit", Mailbox("alice"), "Second", moved, "--subject", "moved, then changed"});
    RunUntilIdle({"alice", "bob"});
    EXPECT_EQ(Items("bob", "Second").size(), 3U);
    ExpectSame("alice", "Shared", "bob", "Shared");
    ExpectSame("alice", "Second", "bob", "Second");
}

TEST_F(SharingTest, ThreeMembersEndEqualAndThenKeepStill)
{
    ShareSamples({"bob", "carol"});
    const std::vector<std::string> members{"alice", "bob", "carol"};
    RunUntilIdle(members);
    const auto items = Items("alice", "Shared");
    ASSERT_EQ(items.size(), 40U);
    const auto id = [&](std::size_t number) { return items[number].at("id").get<std::string>(); };
    std::size_t number = 0;
    for (const std::string& member : members) {
        std::filesystem::create_directory(Path("new-" + member));
        const std::string file = (Path("new-" + member) / "new.eml").string();
        std::ofstream(file) << "From: " << member << "@example.org\nSubject: new from " << member
                            << "\n\nhello\n";
        MustRun({"import", Mailbox(member), "Shared", file});
        MustRun({"edit", Mailbox(member), "Shared", id(number), "--subject", "edited by " + member});
        MustRun({"delete", Mailbox(member), "Shared", id(number + 1)});
        number += 3;
    }
    // All three change one item at once: one is shown everywhere, and the others are kept beside it.
    const std::string contested = id(20);
    for (const std::string& member : members)
        MustRun({"edit", Mailbox(member), "Shared", contested, "--subject", "contested by " + member});

    RunUntilIdle(members);

    EXPECT_EQ(Items("alice", "Shared").size(), 42U);
    EXPECT_EQ(SubjectOf("alice", contested), "contested by carol");
    ExpectSame("alice", "Shared", "bob", "Shared");
    ExpectSame("bob", "Shared", "carol", "Shared");
    const auto counts = RunUntilIdle(members, "30");
    EXPECT_EQ(Total(counts, "packagesSent"), 0U);
    EXPECT_EQ(Total(counts, "echoes"), 0U);
}

TEST_F(SharingTest, AMemberWhoComesLaterGetsEverything)
{
    ShareSamples({"bob"});
    RunUntilIdle({"alice", "bob"});
    MustRun({"edit", Mailbox("bob"), "Shared", IdOf("bob", 0), "--subject", "from bob, before carol"});
    MakeMailboxes({"carol"});
    MustRun({"share", Mailbox("alice"), "Shared", "--with", "carol"});

    RunUntilIdle({"alice", "bob", "carol"});

    ExpectSame("alice", "Shared", "carol", "Shared");
    ExpectSame("bob", "Shared", "carol", "Shared");
}

TEST_F(SharingTest, AnExchangeThatVanishesIsMissedOnceAndUsedAgain)
{
    ShareSamples({"bob"});
    LetAccept("alice", "bob");
    RunUntilIdle({"alice"});
    const auto before = Packages().size();
    Process alice = Start({"run", Mailbox("alice"), "--exchange", Exchange()});
    MustRun({"edit", Mailbox("alice"), "Shared", IdOf("alice", 1), "--subject", "while it was there"});
    EXPECT_TRUE(Eventually([&] { return Packages().size() == before + 1; }));

    std::filesystem::rename(Path("exchange"), Path("hidden"));
    MustRun({"edit", Mailbox("alice"), "Shared", IdOf("alice", 0), "--subject", "while it was away"});
    EXPECT_TRUE(Eventually([&] { return alice.ErrorsSoFar().find("is gone") != std::string::npos; }));
    EXPECT_FALSE(std::filesystem::exists(Path("exchange")));
    std::filesystem::rename(Path("hidden"), Path("exchange"));
    EXPECT_TRUE(Eventually([&] { return Packages().size() == before + 2; }));
    alice.AskToEnd();
    const Outcome atAlice = alice.Wait();
    RunUntilIdle({"bob"});

    EXPECT_EQ(atAlice.exitCode, 0);
    EXPECT_EQ(std::count(atAlice.errors.begin(), atAlice.errors.end(), '\n'), 2) << atAlice.errors;
    EXPECT_NE(atAlice.errors.find("is back"), std::string::npos) << atAlice.errors;
    ExpectSame("alice", "Shared", "bob", "Shared");
}

TEST_F(SharingTest, TwoRunsOfOneMailboxAreRefused)
{
    MakeMailboxes({"alice"});
    Process first = Start({"run", Mailbox("alice"), "--exchange", Exchange(), "-v"});
    // The log is begun at the logon, when the lock has long been taken.
    EXPECT_TRUE(
        Eventually([&] { return std::filesystem::exists(Path("alice") / "logs" / "quorvane3.log"); }));

    const Outcome second = Run({"run", Mailbox("alice"), "--exchange", Exchange(), "--until-idle"});
    first.AskToEnd();

    EXPECT_EQ(second.exitCode, 1);
    EXPECT_NE(second.errors.find("another run"), std::string::npos) << second.errors;
    EXPECT_EQ(first.Wait().exitCode, 0);
}

}  // namespace

}  // namespace quorvane::test
