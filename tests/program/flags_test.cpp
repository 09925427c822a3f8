// What readers make of mails: whether they are read, flagged, answered, forwarded and so on. It stays with
// each of them, unless the folder's members share it.
#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iostream>

#include "host/exchange/item_flags.h"
#include "tests/program/killed_run.h"
#include "tests/program/program.h"
#include "tests/program/sealed.h"

namespace quorvane::test {

namespace {

class FlagsTest : public KilledRunTest {
protected:
    // One unread mail that all of them have.
    void ShareOne(const std::vector<std::string>& names, const std::vector<std::string>& options = {})
    {
        MakeMailboxes(names);
        names_ = names;
        MustRun({"import", Mailbox("alice"), "Shared", Sample("01-plain").string()});
        MustRun({"edit", Mailbox("alice"), "Shared", "1", "--unread"});
        std::vector<std::string> arguments{"share", Mailbox("alice"), "Shared", "--with"};
        arguments.insert(arguments.end(), names.begin() + 1, names.end());
        arguments.insert(arguments.end(), options.begin(), options.end());
        MustRun(arguments);
        Settle();
        id_ = Items("alice", "Shared").at(0).at("id");
    }
    std::vector<Json> Settle() { return RunUntilIdle(names_, kIdle); }

    void Mark(const std::string& name, const std::vector<std::string>& marks) const
    {
        std::vector<std::string> arguments{"edit", Mailbox(name), "Shared", id_};
        arguments.insert(arguments.end(), marks.begin(), marks.end());
        MustRun(arguments);
    }
    // Of the item that all had from the beginning: "RFAW" and a line where it isn't.
    std::string Marks(const std::string& name) const
    {
        for (const Json& item : Items(name, "Shared"))
            if (item.at("id") == id_)
                return std::string(item.at("read").get<bool>() ? "R" : "-") +
                       (item.at("flagged").get<bool>() ? "F" : "-") +
                       (item.at("answered").get<bool>() ? "A" : "-") +
                       (item.at("forwarded").get<bool>() ? "W" : "-") +
                       (item.at("draft").get<bool>() ? "D" : "") +
                       (item.at("forDeletion").get<bool>() ? "T" : "");
        return "missing";
    }
    std::string Subject(const std::string& name) const { return Items(name, "Shared").at(0).at("subject"); }
    void ExpectMarks(const std::string& marks) const
    {
        for (const std::string& name : names_)
            EXPECT_EQ(Marks(name), marks) << name;
    }
    static std::uint64_t Sum(const std::vector<Json>& counts, const char* what)
    {
        std::uint64_t sum = 0;
        for (const Json& count : counts)
            sum += count.at(what).get<std::uint64_t>();
        return sum;
    }

    static constexpr char kIdle[] = "0.5";
    std::vector<std::string> names_;
    std::string id_;
};

TEST_F(FlagsTest, UnsharedMarksStayWhereTheyAreAndNothingTravels)
{
    ShareOne({"alice", "bob"});
    Mark("bob", {"--read", "--flag", "--answered", "--forwarded"});
    Mark("alice", {"--flag"});
    const auto counts = Settle();

    EXPECT_EQ(Marks("alice"), "-F--");
    EXPECT_EQ(Marks("bob"), "RFAW");
    for (const char* const what : {"packagesSent", "itemsSent", "flagsSent", "itemsIgnored"})
        EXPECT_EQ(Sum(counts, what), 0U) << what;
}

TEST_F(FlagsTest, SharedMarksComeTogetherInPackagesOfTheirOwn)
{
    ShareOne({"alice", "bob"}, {"--flags"});
    ExpectMarks("----");
    Mark("alice", {"--read", "--answered"});
    Mark("bob", {"--flag", "--answered"});
    auto counts = Settle();

    ExpectMarks("RFA-");
    EXPECT_EQ(counts[0].at("packagesSent"), 1U);
    EXPECT_EQ(counts[1].at("packagesSent"), 1U);
    EXPECT_EQ(Sum(counts, "flagsSent"), 2U);
    for (const char* const what : {"itemsSent", "itemsApplied", "itemsIgnored", "echoes"})
        EXPECT_EQ(Sum(counts, what), 0U) << what;
    EXPECT_EQ(Sum(Settle(), "packagesSent"), 0U) << "nothing echoes";

    Mark("bob", {"--unread", "--draft"});
    Mark("alice", {"--unflag", "--forwarded", "--for-deletion"});
    counts = Settle();

    ExpectMarks("--AWDT");
    EXPECT_EQ(Sum(counts, "packagesSent"), 2U);
    EXPECT_EQ(Sum(Settle(), "packagesSent"), 0U);
}

TEST_F(FlagsTest, TheLaterOfTwoChangesOfOneMarkWinsWhoeverIsHeardFirst)
{
    ShareOne({"alice", "bob", "carol"}, {"--flags"});
    Mark("carol", {"--flag"});
    RunUntilIdle({"carol", "bob"}, kIdle);
    Mark("bob", {"--unflag"});
    RunUntilIdle({"bob"}, kIdle);
    Settle();

    ExpectMarks("----");
}

TEST_F(FlagsTest, NeitherAnEditNorAMarkIsLostThatWereMadeAtOnce)
{
    ShareOne({"alice", "bob"}, {"--flags"});
    MustRun({"edit", Mailbox("alice"), "Shared", id_, "--subject", "the newer subject"});
    Mark("bob", {"--read", "--flag"});
    Settle();

    EXPECT_EQ(Subject("bob"), "the newer subject");
    EXPECT_EQ(Subject("alice"), "the newer subject");
    ExpectMarks("RF--");

    MustRun({"edit", Mailbox("alice"), "Shared", id_, "--subject", "the newest", "--answered"});
    const auto counts = Settle();
    EXPECT_EQ(Subject("bob"), "the newest");
    ExpectMarks("RFA-");
    EXPECT_EQ(counts[1].at("flagsSent"), 0U) << "what the engine leaves unread is nobody's mark";
    EXPECT_TRUE(MustRun({"conflicts", Mailbox("alice"), "--json"}).Value().empty());
}

TEST_F(FlagsTest, WhoJoinsGetsThePresentMarksAndADeletedItemHasNone)
{
    ShareOne({"alice", "bob"}, {"--flags"});
    Mark("bob", {"--read", "--forwarded"});
    Settle();
    MakeMailboxes({"carol"});
    MustRun({"share", Mailbox("bob"), "Shared", "--with", "carol"});
    names_.push_back("carol");
    Settle();
    ExpectMarks("R--W");

    MustRun({"delete", Mailbox("carol"), "Shared", id_});
    Mark("alice", {"--unread"});
    Settle();
    for (const std::string& name : names_)
        EXPECT_TRUE(Items(name, "Shared").empty()) << name;
    EXPECT_EQ(Sum(Settle(), "packagesSent"), 0U);
}

TEST_F(FlagsTest, TheFounderAloneDecidesAndMayDoSoLater)
{
    ShareOne({"alice", "bob"});
    Mark("alice", {"--read"});
    Settle();
    const Outcome refused = Run({"share", Mailbox("bob"), "Shared", "--flags"});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_NE(refused.errors.find("only 'alice'"), std::string::npos) << refused.errors;
    EXPECT_EQ(Marks("bob"), "----");

    EXPECT_EQ(MustRun({"share", Mailbox("alice"), "Shared", "--flags", "--json"}).Value().at("flags"), true);
    Settle();
    ExpectMarks("R---");
    EXPECT_EQ(Sum(Settle(), "packagesSent"), 0U);
}

// What one member marks may come before the mail that another one sent.
TEST_F(FlagsTest, AMarkThatComesBeforeItsItemWaitsForIt)
{
    ShareOne({"alice", "bob", "carol"}, {"--flags"});
    MustRun({"import", Mailbox("alice"), "Shared", Sample("02-plain-crlf").string()});
    MustRun({"edit", Mailbox("alice"), "Shared", "2", "--unread"});
    RunUntilIdle({"alice", "bob"}, kIdle);
    const std::string first = id_;
    id_ = Items("bob", "Shared").at(1).at("id");
    Mark("bob", {"--read", "--flag"});
    RunUntilIdle({"bob"}, kIdle);
    const auto out = Path("exchange") / host::exchange::TextOf(KeysOf(Mailbox("alice")).Id()) / "out";
    std::filesystem::rename(out, Path("alices"));
    const auto before = RunUntilIdle({"carol"}, kIdle);
    EXPECT_EQ(Marks("carol"), "missing");
    EXPECT_EQ(before[0].at("flagsTaken"), 1U);
    std::filesystem::rename(Path("alices"), out);
    const auto after = RunUntilIdle({"carol"}, kIdle);
    EXPECT_EQ(Marks("carol"), "RF--");
    EXPECT_EQ(after[0].at("flagsTaken"), 0U);
    Settle();
    ExpectMarks("RF--");
    id_ = first;
    ExpectMarks("----");
}

// A package of flags that bob's keys made, and what alice makes of it.
TEST_F(FlagsTest, FlagsAreTakenFromMembersWhereTheFounderSharesThemAndOfTheirItemsAlone)
{
    ShareOne({"alice", "bob"});
    MustRun({"import", Mailbox("alice"), "Other", Sample("02-plain-crlf").string()});
    MustRun({"edit", Mailbox("alice"), "Other", "1", "--unread"});
    MakeMailboxes({"carol"});
    MustRun({"share", Mailbox("alice"), "Other", "--with", "carol", "--flags"});
    RunUntilIdle({"alice", "bob", "carol"}, kIdle);
    MustRun({"edit", Mailbox("bob"), "Shared", id_, "--subject", "bob's"});
    RunUntilIdle({"bob"}, kIdle);
    TestDevice bob(Path("exchange"), KeysOf(Mailbox("bob")));
    for (const auto& package : Packages())
        if (package.parent_path().parent_path() == bob.Home())
            bob.epoch = EpochOf(package);
    Settle();
    const auto folderOf = [&](const char* path) {
        return MustRun({"share", Mailbox("alice"), path, "--with", "bob", "--json"}).Value().at("id");
    };
    const std::string shared = folderOf("Shared");
    const std::string other =
        MustRun({"share", Mailbox("alice"), "Other", "--flags", "--json"}).Value().at("id");
    const std::string theirs = Items("alice", "Other").at(0).at("id");
    bob.kind = host::exchange::PackageKind::kFlags;
    const auto inject = [&](const std::string& folder, const std::string& item) {
        host::exchange::FlagNote note{folder, {{item, {}}}};
        note.items[0].flags.Show(15, 1, bob.Keys().Id());
        std::uint64_t applied = 0;
        const Json status = MustRun({"status", Mailbox("alice"), "--json"}).Value();
        for (const Json& member : status.at("members"))
            if (member.at("device") == host::exchange::TextOf(bob.Keys().Id()))
                applied = member.at("applied");
        bob.Lay(applied + 1000, bob.Sealed(applied + 1000, applied, KeysOf(Mailbox("alice")), note.Write()));
        RunUntilIdle({"alice"}, kIdle);
        return MustRun({"status", Mailbox("alice"), "--json"}).Value().at("refusals").size();
    };
    EXPECT_EQ(inject(shared, id_), 1U) << "of a folder without flags";
    EXPECT_EQ(inject(other, theirs), 2U) << "of one that bob has no part in";
    MustRun({"share", Mailbox("alice"), "Shared", "--flags"});
    EXPECT_EQ(inject(shared, theirs), 3U) << "of an item of another folder";
    EXPECT_EQ(Marks("alice"), "----");
    EXPECT_FALSE(Items("alice", "Other").at(0).at("read"));
    EXPECT_EQ(inject(shared, id_), 3U);
    EXPECT_EQ(Marks("alice"), "RFAW");
}

// A mark may be changed in the store, and known, at different moments: a kill between them must not pass for
// somebody's taking it back. QUORVANE_EACH_STEP: at each change of a file, and not at some.
TEST_F(FlagsTest, AKillAtAnyStepOfTakingMarksTakesNoneBack)
{
    if (TestedProgram().isForWindows)
        GTEST_SKIP() << "what counts the changes is this system's";
    ShareOne({"alice", "bob"}, {"--flags"});
    Mark("bob", {"--answered"});
    Settle();
    MustRun({"edit", Mailbox("alice"), "Shared", id_, "--subject", "the newer subject", "--read", "--flag"});
    RunUntilIdle({"alice"}, kIdle);
    const auto copy = [&](const char* from, const char* to) {
        std::filesystem::remove_all(Path(to));
        std::filesystem::copy(Path(from), Path(to), std::filesystem::copy_options::recursive);
    };
    copy("bob", "bob before");
    copy("exchange", "exchange before");
    const bool isEach = std::getenv("QUORVANE_EACH_STEP") != nullptr;
    std::size_t kills = 0;
    for (unsigned long at = 1; !HasFailure(); at += isEach ? 1 : 1 + at / 2, ++kills) {
        SCOPED_TRACE("change " + std::to_string(at));
        copy("bob before", "bob");
        copy("exchange before", "exchange");
        if (!RunToAKill("bob", at))
            break;
        const Json counts =
            MustRun({"run", Mailbox("bob"), "--until-idle", "--idle-seconds", kIdle, "--json"}).Value();

        EXPECT_EQ(Subject("bob"), "the newer subject");
        EXPECT_EQ(Marks("bob"), "RFA-");
        EXPECT_EQ(counts.at("flagsSent"), 0U);
    }
    std::cout << kills << " kills\n";
    EXPECT_GT(kills, 6U);
    Settle();
    ExpectMarks("RFA-");
}

TEST_F(FlagsTest, WhatIsLostOnTheWayIsFoundByAComparison)
{
    ShareOne({"alice", "bob"}, {"--flags"});
    Mark("alice", {"--read"});
    Settle();
    // Bob's mailbox as it was before: it begins anew, and is compared.
    std::filesystem::copy(Path("bob"), Path("backup of bob"), std::filesystem::copy_options::recursive);
    Mark("alice", {"--flag"});
    Settle();
    ExpectMarks("RF--");
    std::filesystem::remove_all(Path("bob"));
    std::filesystem::rename(Path("backup of bob"), Path("bob"));
    Settle();
    ExpectMarks("RF--");
}

}  // namespace

}  // namespace quorvane::test
