// A power cut at any moment of a run: of what wasn't synchronised any part is lost, in the message store, the
// sharing database, the records, the hash files and what lies in the exchange. The next run goes on, both
// sides end equal, and nothing that was told, acknowledged or read is gone.
//
// QUORVANE_POWER_CUTS  how many; QUORVANE_SEED  another sequence of them.
#include <cstdlib>
#include <iostream>
#include <map>
#include <random>
#include <set>

#include "tests/program/program.h"

namespace quorvane::test {

namespace {

constexpr int kPowerCut = 77;  // the program's exit code then (power.cpp)

unsigned long NumberOf(const char* variable, unsigned long otherwise)
{
    const char* const text = std::getenv(variable);
    return text ? std::stoul(text) : otherwise;
}

class PowerCutTest : public ProgramTest {
protected:
    void ShareMails()
    {
        MakeMailboxes({"alice", "bob"});
        std::filesystem::create_directory(Path("stash"));
        for (const char* mail : {"01-plain", "07-attachment-csv", "08-odd-attachment-names", "01-plain"})
            MustRun({"import", Mailbox("alice"), "Shared", Sample(mail).string(), "--again"});
        MustRun({"share", Mailbox("alice"), "Shared", "--with", "bob"});
        RunUntilIdle({"alice", "bob"}, kIdle);
        Settle();
    }

    // What both have is divided: of each item one of them is the editor, so that all that is to come of it is
    // known.
    void Settle()
    {
        for (const Json& item : Items("alice", "Shared"))
            if (const std::string id = item.at("id"); known_.insert(id).second)
                subjects_[id] = item.at("subject");
    }

    // Each changes something of his own, deletes something, adds something.
    void Change(std::mt19937& random)
    {
        std::vector<std::string> ids;
        for (const auto& [id, subject] : subjects_)
            ids.push_back(id);
        for (std::size_t i = 0; i < ids.size(); ++i) {
            const std::string editor = i % 2 == 0 ? "alice" : "bob";
            const auto lot = random() % 8;
            if (lot < 3) {
                subjects_[ids[i]] = "by " + editor + " " + std::to_string(++texts_);
                MustRun({"edit", Mailbox(editor), "Shared", ids[i], "--subject", subjects_[ids[i]]});
            } else if (lot == 3 && ids.size() > 3) {
                MustRun({"delete", Mailbox(editor), "Shared", ids[i]});
                subjects_.erase(ids[i]);
            }
        }
        if (random() % 2 == 0 || subjects_.size() < 4)
            MustRun({"import", Mailbox(random() % 2 == 0 ? "alice" : "bob"), "Shared",
                     Sample("07-attachment-csv").string(), "--again"});
    }

    // Both run; the power of the one fails at a random change of his files. Whether it did.
    bool RunWithACut(const std::string& victim, std::mt19937& random)
    {
        static const Program program{{QUORVANE_POWER_CUT_PROGRAM}, false};
        const std::string other = victim == "alice" ? "bob" : "alice";
        // Of a run's changes there are more at its beginning and less at its end.
        const unsigned long at = 1 + random() % (std::size_t{32} << random() % 6);
        std::vector<std::string> limits{"--until-idle", "--idle-seconds", kIdle};
        setenv("QUORVANE_POWER", (std::to_string(at) + " " + std::to_string(random())).c_str(), 1);
        setenv("QUORVANE_POWER_PLACE", Path("").parent_path().c_str(), 1);
        setenv("QUORVANE_POWER_STASH", Path("stash").c_str(), 1);
        Process struck(program, RunOf(victim, limits), Path(""));
        unsetenv("QUORVANE_POWER");
        Process spared(TestedProgram(), RunOf(other, limits), Path(""));
        const Outcome cut = struck.Wait(), ended = spared.Wait();
        EXPECT_EQ(ended.exitCode, 0) << ended.errors;
        EXPECT_TRUE(cut.exitCode == kPowerCut || cut.exitCode == 0) << at << ": " << cut.errors;
        ExpectNoLoss(cut, at);
        ExpectNoLoss(ended, at);
        std::filesystem::remove_all(Path("stash"));
        std::filesystem::create_directory(Path("stash"));
        return cut.exitCode == kPowerCut;
    }

    // Nobody is behind what others know of him: that would be an acknowledgement, or a package, that was
    // given before what it rests on was on the disk.
    static void ExpectNoLoss(const Outcome& outcome, unsigned long at)
    {
        for (const char* line :
             {"backup", "has lost what it took", "differs", "put aside", "rejected", "damaged"})
            EXPECT_EQ(outcome.errors.find(line), std::string::npos) << "cut " << at << ": " << outcome.errors;
    }

    void ExpectAllThere()
    {
        Settle();
        for (const char* name : {"alice", "bob"}) {
            std::map<std::string, std::string> there;
            for (const Json& item : Items(name, "Shared"))
                there[item.at("id")] = item.at("subject");
            EXPECT_EQ(there, subjects_) << name;
        }
        ExpectSame("alice", "Shared", "bob", "Shared");
    }

    static constexpr char kIdle[] = "0.4";
    std::map<std::string, std::string> subjects_;  // by item, of those that nobody deleted
    std::set<std::string> known_;
    std::size_t texts_ = 0;
};

TEST_F(PowerCutTest, AfterEachAllGoesOnAndNothingThatWasAcknowledgedIsLost)
{
    if (TestedProgram().isForWindows)
        GTEST_SKIP() << "the disk that loses is this system's";
    std::mt19937 random(static_cast<std::mt19937::result_type>(NumberOf("QUORVANE_SEED", 20261122)));
    const unsigned long wanted = NumberOf("QUORVANE_POWER_CUTS", 8);
    ShareMails();
    unsigned long cuts = 0;
    for (unsigned long round = 0; cuts < wanted && round < 4 * wanted && !HasFailure(); ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        Change(random);
        cuts += RunWithACut(round % 2 == 0 ? "alice" : "bob", random) ? 1 : 0;
        for (const Json& counts : RunUntilIdle({"alice", "bob"}, kIdle))
            EXPECT_EQ(counts.value("packagesRejected", 0), 0);
        ExpectAllThere();
    }
    std::cout << cuts << " power cuts, " << texts_ << " edits\n";
    EXPECT_EQ(cuts, wanted);
}

}  // namespace

}  // namespace quorvane::test
