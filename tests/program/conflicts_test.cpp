// What comes of changes that didn't see each other, and of what is removed: all end with the same, and no
// text is lost.
#include <algorithm>
#include <cstdlib>
#include <iostream>

#include "tests/program/killed_run.h"
#include "tests/program/program.h"

namespace quorvane::test {

namespace {

class ConflictsTest : public KilledRunTest {
protected:
    // One mail that all of them have.
    void ShareOne(const std::vector<std::string>& names, const std::string& sample = "01-plain")
    {
        MakeMailboxes(names);
        names_ = names;
        MustRun({"import", Mailbox("alice"), "Shared", Sample(sample).string()});
        std::vector<std::string> arguments{"share", Mailbox("alice"), "Shared", "--with"};
        arguments.insert(arguments.end(), names.begin() + 1, names.end());
        MustRun(arguments);
        Settle();
        id_ = Items("alice", "Shared").at(0).at("id");
    }

    std::vector<Json> Settle() { return RunUntilIdle(names_, kIdle); }

    void Edit(const std::string& name, const std::string& subject, const std::string& id = {}) const
    {
        MustRun({"edit", Mailbox(name), "Shared", id.empty() ? id_ : id, "--subject", subject});
    }
    void Delete(const std::string& name) const { MustRun({"delete", Mailbox(name), "Shared", id_}); }

    Json Conflicts(const std::string& name) const
    {
        return MustRun({"conflicts", Mailbox(name), "--json"}).Value();
    }
    std::vector<std::string> InTrash(const std::string& name) const
    {
        std::vector<std::string> subjects;
        const Json trash = MustRun({"trash", Mailbox(name), "--json"}).Value();
        for (const Json& entry : trash.at("entries"))
            subjects.push_back(entry.at("subject"));
        std::sort(subjects.begin(), subjects.end());
        return subjects;
    }
    void ExpectAllEqual() const
    {
        for (std::size_t other = 1; other < names_.size(); ++other)
            ExpectSame(names_[0], "Shared", names_[other], "Shared");
    }
    // The subject of the item that all had from the beginning.
    std::string Shown(const std::string& name) const
    {
        for (const Json& item : Items(name, "Shared"))
            if (item.at("id") == id_)
                return item.at("subject");
        return "missing";
    }

    // A kill in place of a change of a file, from the first to the last one that a run makes of what lies
    // before it, and what the next run makes of it.
    template <class Expect>
    void ExpectSameAfterAKillOf(const std::string& name, Expect expect)
    {
        const auto copy = [&](const std::string& from, const std::string& to) {
            std::filesystem::remove_all(Path(to));
            std::filesystem::copy(Path(from), Path(to), std::filesystem::copy_options::recursive);
        };
        std::vector<std::string> places = names_;
        places.push_back("exchange");
        for (const std::string& place : places)
            copy(place, place + " before");
        const bool isEach = std::getenv("QUORVANE_EACH_STEP") != nullptr;
        std::size_t kills = 0;
        for (unsigned long at = 1; !HasFailure(); at += isEach ? 1 : 1 + at / 2, ++kills) {
            SCOPED_TRACE("change " + std::to_string(at));
            for (const std::string& place : places)
                copy(place + " before", place);
            if (!RunToAKill(name, at))
                break;
            MustRun({"run", Mailbox(name), "--until-idle", "--idle-seconds", kIdle});

            expect();
        }
        std::cout << kills << " kills\n";
        EXPECT_GT(kills, 10U);
    }

    static constexpr char kIdle[] = "0.5";
    std::vector<std::string> names_;
    std::string id_;
};

using Names = std::vector<std::string>;

TEST_F(ConflictsTest, TwoEditsAtOnceAreBothKeptAndToldEverywhere)
{
    ShareOne({"alice", "bob"});
    Edit("alice", "by alice");
    Edit("bob", "by bob");

    Settle();

    ExpectAllEqual();
    EXPECT_EQ(Subjects("alice"), (Names{"by alice", "by bob"}));
    EXPECT_EQ(Shown("alice"), "by bob") << "the later one";
    for (const char* name : {"alice", "bob"}) {
        const Json conflicts = Conflicts(name);
        ASSERT_EQ(conflicts.size(), 1U) << name;
        EXPECT_EQ(conflicts[0].at("shown"), "bob");
        EXPECT_EQ(conflicts[0].at("other"), "alice");
        EXPECT_EQ(conflicts[0].at("copySubject"), "by alice");
        EXPECT_EQ(MustRun({"status", Mailbox(name), "--json"}).Value().at("conflicts"), 1U);
    }
    EXPECT_EQ(InTrash("alice"), Names{"by alice"});
    EXPECT_EQ(InTrash("bob"), Names{}) << "he has never had it";
}

TEST_F(ConflictsTest, AConflictIsResolvedByDeletingTheOneOrTheOther)
{
    ShareOne({"alice", "bob"});
    Edit("alice", "by alice");
    Edit("bob", "by bob");
    Settle();

    MustRun({"delete", Mailbox("bob"), "Shared", Conflicts("bob").at(0).at("copy")});
    Settle();
    EXPECT_EQ(Subjects("alice"), Names{"by bob"});
    EXPECT_TRUE(Conflicts("alice").empty());
    EXPECT_TRUE(Conflicts("bob").empty());

    // The other way round: what was shown goes, and nothing comes back in its place.
    Edit("alice", "again by alice");
    Edit("bob", "again by bob");
    Settle();
    ASSERT_EQ(Conflicts("alice").size(), 1U);
    Delete("alice");
    Settle();
    EXPECT_EQ(Subjects("bob"), Names{"again by alice"});
    EXPECT_TRUE(Conflicts("bob").empty());
    ExpectAllEqual();
}

TEST_F(ConflictsTest, WhatIsEditedHereAndDeletedThereComesBackEverywhere)
{
    ShareOne({"alice", "bob", "carol"});
    Edit("alice", "edited");
    Delete("bob");

    Settle();

    ExpectAllEqual();
    EXPECT_EQ(Subjects("carol"), Names{"edited"});
    EXPECT_EQ(Shown("bob"), "edited") << "as the item that it was";
}

TEST_F(ConflictsTest, WhatIsDeletedHereAndEditedThereComesBackTooWhoeverIsHeardFirst)
{
    ShareOne({"alice", "bob", "carol"});
    Delete("alice");
    Edit("bob", "edited");
    // carol hears of the deletion alone at first.
    RunUntilIdle({"alice", "carol"}, kIdle);
    EXPECT_EQ(Subjects("carol"), Names{});
    EXPECT_EQ(InTrash("carol").size(), 1U);

    Settle();

    ExpectAllEqual();
    EXPECT_EQ(Subjects("alice"), Names{"edited"});
    EXPECT_TRUE(Conflicts("carol").empty());
}

TEST_F(ConflictsTest, TheSameEditByTwoIsNoConflict)
{
    ShareOne({"alice", "bob"});
    Edit("alice", "the same");
    Edit("bob", "the same");

    Settle();

    EXPECT_EQ(Subjects("alice"), Names{"the same"});
    EXPECT_EQ(Subjects("bob"), Names{"the same"});
    EXPECT_TRUE(Conflicts("alice").empty());
    EXPECT_EQ(InTrash("alice"), Names{});
    EXPECT_EQ(InTrash("bob"), Names{});
}

TEST_F(ConflictsTest, OfThreeEditsAtOnceAllThreeAreKept)
{
    ShareOne({"alice", "bob", "carol"});
    for (const std::string& name : names_)
        Edit(name, "by " + name);

    Settle();

    ExpectAllEqual();
    EXPECT_EQ(Subjects("bob"), (Names{"by alice", "by bob", "by carol"}));
    EXPECT_EQ(Shown("alice"), "by carol");
    EXPECT_EQ(Conflicts("carol").size(), 2U);
}

// An edit of bob's that alice's beats, and alice deletes hers before she has heard of a copy of his: his is
// shown again.
class BeatenEditTest : public ConflictsTest {
protected:
    void SetUp() override
    {
        ConflictsTest::SetUp();
        ShareOne({"alice", "bob", "carol"}, "06-text-html-images-pdf");
        Edit("bob", "by bob");
        Edit("alice", "by alice");
    }
    // bob never hears of it: what he made lies in carol's trash alone.
    void LeaveItToCarolsTrash()
    {
        RunUntilIdle({"bob"}, kIdle);
        RunUntilIdle({"carol"}, kIdle);
        ASSERT_EQ(Shown("carol"), "by bob");
        RunUntilIdle({"alice"}, kIdle);
        RunUntilIdle({"carol"}, kIdle);
        ASSERT_EQ(Shown("carol"), "by alice");
        ASSERT_EQ(InTrash("carol"), Names{"by bob"});
        Delete("alice");
        RunUntilIdle({"alice"}, kIdle);
        ASSERT_EQ(Subjects("alice"), Names{});
    }
};

TEST_F(BeatenEditTest, WhatIsShownAgainAndLiesInATrashAloneIsPutBackForAll)
{
    LeaveItToCarolsTrash();

    RunUntilIdle({"carol"}, kIdle);
    RunUntilIdle({"alice"}, kIdle);

    EXPECT_EQ(Shown("carol"), "by bob");
    EXPECT_EQ(Shown("alice"), "by bob") << "as the item that it was";
    ExpectSame("alice", "Shared", "carol", "Shared");
    EXPECT_EQ(InTrash("carol"), (Names{"by alice", "by bob"}));
    // bob has made a copy of it by then.
    Settle();
    ExpectAllEqual();
    EXPECT_EQ(Subjects("bob"), (Names{"by bob", "by bob"}));
}

TEST_F(BeatenEditTest, WhatIsMadeMeanwhileOfWhatIsntShownAnyMoreIsKeptBesideIt)
{
    LeaveItToCarolsTrash();
    MustRun({"run", Mailbox("carol"), "--until-idle", "--idle-seconds", "0.1"});
    Edit("carol", "of alice's by carol");

    RunUntilIdle({"alice", "carol"}, kIdle);

    Settle();
    ExpectAllEqual();
    for (const std::string& subject : Subjects("bob"))
        EXPECT_TRUE(subject == "by bob" || subject == "of alice's by carol") << subject;
    EXPECT_FALSE(Subjects("bob").empty());
}

TEST_F(BeatenEditTest, WhatIsShownAgainAndStandsInItsCopyGoes)
{
    RunUntilIdle({"alice"}, kIdle);
    RunUntilIdle({"carol"}, kIdle);
    ASSERT_EQ(Shown("carol"), "by alice");
    RunUntilIdle({"bob"}, kIdle);
    ASSERT_EQ(Subjects("bob"), (Names{"by alice", "by bob"}));
    Delete("carol");

    Settle();

    ExpectAllEqual();
    EXPECT_EQ(Subjects("alice"), Names{"by bob"});
    EXPECT_EQ(Shown("alice"), "missing") << "its copy";
}

TEST_F(ConflictsTest, MarkingAMailReadIsNoChangeAndLosesNobodysEdit)
{
    ShareOne({"alice", "bob"});
    Edit("alice", "the newer subject");
    MustRun({"edit", Mailbox("bob"), "Shared", id_, "--read"});
    Settle();

    EXPECT_EQ(Subjects("bob"), Names{"the newer subject"});
    EXPECT_TRUE(Conflicts("alice").empty());

    MustRun({"edit", Mailbox("bob"), "Shared", id_, "--read"});
    const auto counts = Settle();
    EXPECT_EQ(counts[1].at("itemsSent"), 0U);
    EXPECT_EQ(counts[1].at("packagesSent"), 0U);
}

TEST_F(ConflictsTest, WhatAMemberDeletesLiesInTheTrashAndCanBePutBack)
{
    ShareOne({"alice", "bob"});
    const std::string subject = Shown("alice");
    Delete("alice");
    Settle();
    EXPECT_EQ(Subjects("bob"), Names{});
    EXPECT_EQ(InTrash("alice"), Names{}) << "she deleted it herself";
    const Json entries = MustRun({"trash", Mailbox("bob"), "--json"}).Value().at("entries");
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(entries[0].at("subject"), subject);
    EXPECT_EQ(entries[0].at("why"), "deleted");
    EXPECT_EQ(entries[0].at("member"), "alice");
    EXPECT_EQ(entries[0].at("folder"), "Shared");

    EXPECT_EQ(Run({"undelete", Mailbox("bob"), "999"}).exitCode, 1);
    MustRun({"undelete", Mailbox("bob"), std::to_string(entries[0].at("id").get<int>())});
    Settle();

    EXPECT_EQ(Subjects("alice"), Names{subject});
    ExpectAllEqual();
    EXPECT_EQ(InTrash("bob"), Names{});
}

TEST_F(ConflictsTest, TheTrashIsKeptForAsLongAsItIsToldTo)
{
    ShareOne({"alice", "bob"});
    EXPECT_EQ(MustRun({"trash", Mailbox("bob"), "--json"}).Value().at("days"), 30);
    Delete("alice");
    Settle();
    Settle();
    ASSERT_EQ(InTrash("bob").size(), 1U);
    const auto files = [&] {
        return std::distance(std::filesystem::directory_iterator(Path("bob") / "trash"), {});
    };
    EXPECT_EQ(files(), 1);

    MustRun({"trash", Mailbox("bob"), "--days", "0"});
    Settle();

    EXPECT_EQ(InTrash("bob"), Names{});
    EXPECT_EQ(files(), 0);
}

// QUORVANE_EACH_STEP: of each change, and not of some.
TEST_F(ConflictsTest, AKillAtAnyStepOfAConflictLosesNoTextAndDoublesNone)
{
    if (TestedProgram().isForWindows)
        GTEST_SKIP() << "what counts the changes is this system's";
    ShareOne({"alice", "bob"});
    Edit("alice", "by alice");
    Edit("bob", "by bob");
    RunUntilIdle({"bob"}, kIdle);
    ExpectSameAfterAKillOf("alice", [&] {
        EXPECT_EQ(Subjects("alice"), (Names{"by alice", "by bob"}));
        EXPECT_EQ(Conflicts("alice").size(), 1U);
        EXPECT_EQ(InTrash("alice"), Names{"by alice"});
        Settle();
        ExpectAllEqual();
        EXPECT_EQ(Subjects("alice"), (Names{"by alice", "by bob"}));
        EXPECT_EQ(Conflicts("bob").size(), 1U);
    });
}

// The same of what is put back from the trash.
TEST_F(BeatenEditTest, AKillAtAnyStepOfPuttingItBackDoublesNothing)
{
    if (TestedProgram().isForWindows)
        GTEST_SKIP() << "what counts the changes is this system's";
    LeaveItToCarolsTrash();
    ExpectSameAfterAKillOf("carol", [&] { EXPECT_EQ(Subjects("carol"), Names{"by bob"}); });

    RunUntilIdle({"alice"}, kIdle);

    ExpectSame("alice", "Shared", "carol", "Shared");
}

}  // namespace

}  // namespace quorvane::test
