// A kill at any moment of a run loses nothing and doubles nothing.
#include <csignal>
#include <random>

#include "tests/program/program.h"

namespace quorvane::test {

namespace {

using namespace std::chrono_literals;

constexpr int kKills = 25;
constexpr int kLongestLifeMilliseconds = 2500;

class KillTest : public ProgramTest {
protected:
    bool HasManyItems(const std::string& mailbox)
    {
        const Outcome outcome = Run({"list", Mailbox(mailbox), "Shared", "--json"});
        return outcome.exitCode == 0 && outcome.Value().size() > 8;
    }

    // Makes some changes on one side, so that every life of a run has something to do.
    void Change(const std::string& mailbox, int round)
    {
        const auto items = Items(mailbox, "Shared");
        ASSERT_GT(items.size(), 8U);
        const auto pick = [&](int offset) {
            return items[static_cast<std::size_t>(round * 7 + offset) % items.size()];
        };
        MustRun({"edit", Mailbox(mailbox), "Shared", pick(0).at("entryId"), "--subject",
                 mailbox + " in round " + std::to_string(round)});
        if (round % 3 == 0)
            MustRun({"delete", Mailbox(mailbox), "Shared", pick(3).at("entryId")});
        if (round % 4 == 0)
            MustRun({"import", Mailbox(mailbox), "Shared",
                     Sample(mailbox == "alice" ? "01-plain" : "07-attachment-csv").string(), "--again"});
    }
};

TEST_F(KillTest, TwentyFiveKillsAtRandomMomentsLeaveBothSidesEqual)
{
    std::mt19937 random(20261121);
    MakeMailboxes({"alice", "bob"});
    MustRun({"import", Mailbox("alice"), "Shared", Samples().string()});
    MustRun({"share", Mailbox("alice"), "Shared", "--with", "bob"});
    // The first lives are spent on announcing and joining; changes come once both have the folder.
    bool joined = false;
    std::size_t added = 0, deleted = 0;
    for (int round = 0; round < kKills; ++round) {
        if (joined) {
            for (const char* side : {"alice", "bob"}) {
                Change(side, round);
                added += round % 4 == 0 ? 1 : 0;
                deleted += round % 3 == 0 ? 1 : 0;
            }
        }
        Process alice = Start(RunOf("alice"));
        Process bob = Start(RunOf("bob"));
        Process& victim = round % 2 == 0 ? alice : bob;
        Process& other = round % 2 == 0 ? bob : alice;
        Outcome outcome;
        const auto life = std::chrono::milliseconds(random() % kLongestLifeMilliseconds);
        ASSERT_FALSE(victim.WaitFor(life, outcome)) << outcome.errors;
        victim.Signal(SIGKILL);
        EXPECT_EQ(victim.Wait().exitCode, 128 + SIGKILL);
        other.AskToEnd();
        const Outcome ended = other.Wait();
        EXPECT_EQ(ended.exitCode, 0) << ended.errors;
        joined = joined || HasManyItems("bob");
    }
    ASSERT_TRUE(joined);

    RunUntilIdle({"alice", "bob"});

    ExpectSame("alice", "Shared", "bob", "Shared");
    // Both sides may have deleted the same item: then it counts once.
    const std::size_t left = Items("alice", "Shared").size();
    EXPECT_LE(left, 40 + added);
    EXPECT_GE(left, 40 + added - deleted);
}

}  // namespace

}  // namespace quorvane::test
