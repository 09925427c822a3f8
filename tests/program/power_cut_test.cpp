// A power cut (or a kill) at any moment of a run: of what wasn't synchronised any part is lost, in the
// message store, the sharing database, the records, the hash files and what lies in the exchange. The next
// run goes on, both sides end equal, and nothing that was told, acknowledged or read is gone.
//
// QUORVANE_POWER_CUTS  how many; QUORVANE_SEED  another sequence of them; QUORVANE_GROUP_CUTS  how many where
// many items are imported, sent or applied.
#include <algorithm>
#include <cstdlib>
#include <fstream>
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
        const std::string other = victim == "alice" ? "bob" : "alice";
        // Of a run's changes there are more at its beginning and less at its end.
        const unsigned long at = 1 + random() % (std::size_t{32} << random() % 6);
        Process struck = Strike(RunOf(victim, kLimits), at, random());
        Process spared(TestedProgram(), RunOf(other, kLimits), Path(""));
        const Outcome cut = struck.Wait(), ended = spared.Wait();
        EXPECT_EQ(ended.exitCode, 0) << ended.errors;
        ExpectNoLoss(ended, at);
        return IsCut(cut, at);
    }

    // The program, whose power fails at its change `at`.
    Process Strike(const std::vector<std::string>& arguments, unsigned long at, unsigned long seed) const
    {
        static const Program program{{QUORVANE_POWER_CUT_PROGRAM}, false};
        setenv("QUORVANE_POWER", (std::to_string(at) + " " + std::to_string(seed)).c_str(), 1);
        setenv("QUORVANE_POWER_PLACE", Path("").parent_path().c_str(), 1);
        setenv("QUORVANE_POWER_STASH", Path("stash").c_str(), 1);
        Process struck(program, arguments, Path(""));
        unsetenv("QUORVANE_POWER");
        return struck;
    }

    // Whether it came that far.
    bool IsCut(const Outcome& outcome, unsigned long at) const
    {
        EXPECT_TRUE(outcome.exitCode == kPowerCut || outcome.exitCode == 0) << at << ": " << outcome.errors;
        ExpectNoLoss(outcome, at);
        std::filesystem::remove_all(Path("stash"));
        std::filesystem::create_directory(Path("stash"));
        return outcome.exitCode == kPowerCut;
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
    const std::vector<std::string> kLimits{"--until-idle", "--idle-seconds", kIdle};
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

// Where many items go at once.
class GroupPowerCutTest : public PowerCutTest {
protected:
    // A round's own mails, and what alice makes of some that are there.
    void MakeMails(std::mt19937& random)
    {
        std::ofstream mails(Path("mails.mbox"));
        for (int i = 0; i < 9; ++i) {
            const std::string subject = "mail " + std::to_string(++texts_);
            expected_.insert(subject);
            mails << "From a@example.org Thu Jan  1 00:00:00 2026\nFrom: a@example.org\nSubject: " << subject
                  << "\n\n"
                  << std::string(random() % 9000, 'x') << "\n\n";
        }
    }
    // Of those that have been shared.
    void EditMails(std::mt19937& random)
    {
        std::vector<Json> items = Items("alice", "Shared");
        std::erase_if(items, [](const Json& item) { return item.at("id") == ""; });
        std::shuffle(items.begin(), items.end(), random);
        for (std::size_t i = 0; i < 6; ++i) {
            const Json& item = items[i];
            expected_.erase(expected_.find(item.at("subject")));
            if (i == 0 && items.size() > 20) {
                MustRun({"delete", Mailbox("alice"), "Shared", item.at("id")});
                continue;
            }
            const std::string subject = "edit " + std::to_string(++texts_);
            expected_.insert(subject);
            MustRun({"edit", Mailbox("alice"), "Shared", item.at("id"), "--subject", subject});
        }
    }

    // One command, whose power fails at a random change that it makes; or it is killed there, which loses
    // nothing that was written.
    bool CutOne(const std::vector<std::string>& arguments, std::mt19937& random)
    {
        const unsigned long at = 1 + random() % (std::size_t{64} << random() % 6);
        const bool isKill = random() % 2 == 0;
        kills_ += isKill ? 1 : 0;
        return IsCut(Strike(arguments, at, isKill ? 0 : random()).Wait(), at);
    }

    // What is to be imported, sent, applied, sent once more: one of them is cut.
    bool PlayRound(std::mt19937& random)
    {
        const std::vector<std::string> import{"import", Mailbox("alice"), "Shared",
                                              Path("mails.mbox").string()};
        const auto struck = random() % 4;
        bool isCut = false;
        MakeMails(random);
        if (struck == 0)
            isCut = CutOne(import, random);
        MustRun(import);
        if (struck != 0)
            EditMails(random);
        if (struck == 1)
            isCut = CutOne(RunOf("alice", kLimits), random);
        MustRun(RunOf("alice", kLimits));
        if (struck == 2)
            isCut = CutOne(RunOf("bob", kLimits), random);
        if (struck == 3) {
            MustRun({"resend", Mailbox("alice"), "Shared", "--to", "bob", "--all"});
            isCut = CutOne(RunOf("alice", kLimits), random);
        }
        for (const Json& counts : RunUntilIdle({"alice", "bob"}, kIdle))
            EXPECT_EQ(counts.value("packagesRejected", 0), 0);
        return isCut;
    }

    void ExpectEachOnce() const
    {
        for (const char* name : {"alice", "bob"}) {
            const std::vector<std::string> subjects = Subjects(name);
            EXPECT_EQ(std::multiset<std::string>(subjects.begin(), subjects.end()), expected_) << name;
        }
        ExpectSame("alice", "Shared", "bob", "Shared");
    }

    std::multiset<std::string> expected_;  // the subjects of all that is there
    unsigned long kills_ = 0;
};

TEST_F(GroupPowerCutTest, WhatWasUnderWayIsDoneOnceMoreToTheSameEnd)
{
    if (TestedProgram().isForWindows)
        GTEST_SKIP() << "the disk that loses is this system's";
    std::mt19937 random(static_cast<std::mt19937::result_type>(NumberOf("QUORVANE_SEED", 20261123)));
    const unsigned long wanted = NumberOf("QUORVANE_GROUP_CUTS", 4);
    ShareMails();
    for (const std::string& subject : Subjects("alice"))
        expected_.insert(subject);
    MakeMails(random);
    MustRun({"import", Mailbox("alice"), "Shared", Path("mails.mbox").string()});
    RunUntilIdle({"alice", "bob"}, kIdle);
    unsigned long cuts = 0;
    for (unsigned long round = 0; cuts < wanted && round < 4 * wanted && !HasFailure(); ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        cuts += PlayRound(random) ? 1 : 0;
        ExpectEachOnce();
    }
    std::cout << cuts << " power cuts and kills (" << kills_ << " tried), " << texts_ << " mails and edits\n";
    EXPECT_EQ(cuts, wanted);
}

// Of three megabytes in packages of one each the message store has no room for the second.
TEST_F(GroupPowerCutTest, ADiskThatIsFullWhileAPackageIsAppliedEndsTheRunAndTheNextGoesOn)
{
    if (TestedProgram().isForWindows)
        GTEST_SKIP() << "the limit of a file's size is this system's";
    ShareMails();
    for (const std::string& subject : Subjects("alice"))
        expected_.insert(subject);
    std::mt19937 random(1);
    std::ofstream mails(Path("mails.mbox"));
    for (int i = 0; i < 120; ++i) {
        const std::string subject = "mail " + std::to_string(i);
        expected_.insert(subject);
        mails << "From a@example.org Thu Jan  1 00:00:00 2026\nFrom: a@example.org\nSubject: " << subject
              << "\n\n";
        for (int line = 0; line < 400; ++line, mails << '\n')
            for (int j = 0; j < 62; ++j)
                mails << static_cast<char>('0' + random() % 64);
        mails << "\n\n";
    }
    mails.close();
    MustRun({"import", Mailbox("alice"), "Shared", Path("mails.mbox").string()});
    std::vector<std::string> send = RunOf("alice", kLimits);
    send.insert(send.end(), {"--package-size", "1"});
    MustRun(send);

    Program limited{{"/bin/sh", "-c", "ulimit -f 4000; trap '' XFSZ; exec \"$0\" \"$@\""}, false};
    limited.command.insert(limited.command.end(), TestedProgram().command.begin(),
                           TestedProgram().command.end());
    const Outcome full = RunBy(limited, RunOf("bob", kLimits));
    EXPECT_EQ(full.exitCode, 1) << full.errors;
    EXPECT_NE(full.errors.find("is applied again by the next run"), std::string::npos) << full.errors;

    RunUntilIdle({"alice", "bob"}, kIdle);
    ExpectEachOnce();
}

}  // namespace

}  // namespace quorvane::test
