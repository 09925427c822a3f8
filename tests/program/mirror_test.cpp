// Folders that are tied to Maildirs: what other programs do there reaches the Maildirs of other members.
#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <map>
#include <random>

#include "tests/program/killed_run.h"
#include "tests/program/program.h"

namespace quorvane::test {

namespace {

namespace fs = std::filesystem;

constexpr char kIdle[] = "0.7";

std::string BytesOf(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

class MirrorTest : public KilledRunTest {
protected:
    // Two folders of both, each with a Maildir on each side.
    void ShareMirrors()
    {
        MakeMailboxes({"alice", "bob"});
        for (const char* const folder : {"Work", "Done"}) {
            for (const char* const name : {"alice", "bob"})
                if (std::string(name) == "alice")
                    Tie(name, folder);
            MustRun({"share", Mailbox("alice"), folder, "--flags", "--with", "bob"});
        }
        RunBoth();
        for (const char* const folder : {"Work", "Done"})
            Tie("bob", folder);
        RunBoth();
    }
    void Tie(const std::string& name, const std::string& folder) const
    {
        MustRun({"mirror", Mailbox(name), folder, MaildirOf(name, folder).string()});
    }
    fs::path MaildirOf(const std::string& name, const std::string& folder) const
    {
        return Path(name + "-" + folder);
    }
    void RunBoth() const { RunUntilIdle({"alice", "bob"}, kIdle); }

    // As other programs deliver; under a name of its own.
    void Deliver(const std::string& name, const std::string& folder, const std::string& sample,
                 const std::string& file)
    {
        const fs::path maildir = MaildirOf(name, folder);
        fs::copy_file(Sample(sample), maildir / "tmp" / file);
        fs::rename(maildir / "tmp" / file,
                   maildir / (file.find(":2,") == std::string::npos ? "new" : "cur") / file);
    }
    // The bytes of the mails in a Maildir, and which marks that members share their names tell.
    std::multimap<std::string, std::string> MailsIn(const std::string& name, const std::string& folder) const
    {
        std::multimap<std::string, std::string> mails;
        for (const char* const part : {"new", "cur"})
            for (const auto& file : fs::directory_iterator(MaildirOf(name, folder) / part)) {
                const std::string text = file.path().filename().string();
                const std::size_t at = text.rfind(":2,");
                std::string letters = at == std::string::npos ? "" : text.substr(at + 3);
                std::erase_if(letters,
                              [](char c) { return std::string_view("DFPRST").find(c) == std::string::npos; });
                mails.emplace(BytesOf(file.path()), std::move(letters));
            }
        return mails;
    }
    // The file of a Maildir with these bytes.
    fs::path FileWith(const std::string& name, const std::string& folder, const std::string& bytes) const
    {
        for (const char* const part : {"new", "cur"})
            for (const auto& file : fs::directory_iterator(MaildirOf(name, folder) / part))
                if (BytesOf(file.path()) == bytes)
                    return file.path();
        ADD_FAILURE() << "there is no such mail";
        return {};
    }
    void ExpectSameMaildirs(std::size_t inWork, std::size_t inDone) const
    {
        EXPECT_EQ(MailsIn("alice", "Work").size(), inWork);
        EXPECT_EQ(MailsIn("alice", "Done").size(), inDone);
        for (const char* const folder : {"Work", "Done"})
            EXPECT_TRUE(MailsIn("alice", folder) == MailsIn("bob", folder)) << folder;
    }
};

TEST_F(MirrorTest, WhatIsDoneInOneMaildirIsDoneInTheOther)
{
    ShareMirrors();
    const std::vector<std::string> samples{"01-plain", "02-plain-crlf", "07-attachment-csv"};
    for (std::size_t i = 0; i < samples.size(); ++i)
        Deliver("alice", "Work", samples[i], std::to_string(i) + ".mail");
    Deliver("bob", "Work", "03-html-only", "9.mail,U=12:2,DFSTa");
    RunBoth();
    ExpectSameMaildirs(4, 0);
    EXPECT_EQ(MailsIn("alice", "Work").find(BytesOf(Sample("03-html-only")))->second, "DFST");

    // Marked and moved by bob, deleted by alice.
    const fs::path marked = FileWith("bob", "Work", BytesOf(Sample("01-plain")));
    fs::rename(marked, MaildirOf("bob", "Work") / "cur" / (marked.filename().string() + ":2,RS"));
    const fs::path moved = FileWith("bob", "Work", BytesOf(Sample("02-plain-crlf")));
    fs::rename(moved, MaildirOf("bob", "Done") / "cur" / (moved.filename().string() + ":2,S"));
    fs::remove(FileWith("alice", "Work", BytesOf(Sample("07-attachment-csv"))));
    RunBoth();
    ExpectSameMaildirs(2, 1);
    EXPECT_EQ(MailsIn("alice", "Work").find(BytesOf(Sample("01-plain")))->second, "RS");
    EXPECT_EQ(MailsIn("alice", "Done").count(BytesOf(Sample("02-plain-crlf"))), 1U);
    const Json trash = MustRun({"trash", Mailbox("alice"), "--json"}).Value().at("entries");
    EXPECT_EQ(std::count_if(trash.begin(), trash.end(),
                            [](const Json& entry) { return entry.at("why") == "deleted in its Maildir"; }),
              1);
    EXPECT_EQ(MustRun({"status", Mailbox("bob"), "--json"}).Value().at("mirrors").size(), 2U);

    // What was edited by a command comes as another file, and nothing goes once they are untied.
    MustRun({"edit", Mailbox("alice"), "Done", "1", "--subject", "edited"});
    RunBoth();
    ExpectSameMaildirs(2, 1);
    MustRun({"mirror", Mailbox("bob"), "Work", "--remove"});
    fs::remove_all(MaildirOf("bob", "Work"));
    RunBoth();
    EXPECT_EQ(Items("bob", "Work").size(), 2U);
    EXPECT_EQ(MailsIn("alice", "Work").size(), 2U);
}

TEST_F(MirrorTest, ATreeIsTiedWithAllFoldersOfBothSides)
{
    MakeMailboxes({"alice"});
    const fs::path root = MaildirOf("alice", "Work");
    fs::create_directories(root / "Done" / "cur");
    fs::copy_file(Sample("01-plain"), root / "Done" / "cur" / "1.mail:2,S");
    MustRun({"folder", "make", Mailbox("alice"), "Work/Plans/2026"});
    const auto tie = [&] {
        return MustRun({"mirror", Mailbox("alice"), "Work", root.string(), "--tree", "nested", "--json"})
            .Value()
            .at("tied")
            .size();
    };

    EXPECT_EQ(tie(), 4U);  // Work, Work/Done, Work/Plans, Work/Plans/2026
    MustRun({"import", Mailbox("alice"), "Work/Plans/2026", Sample("03-html-only").string()});
    RunUntilIdle({"alice"}, kIdle);
    EXPECT_EQ(Items("alice", "Work/Done").size(), 1U);
    EXPECT_FALSE(fs::is_empty(root / "Plans" / "2026" / "cur"));

    EXPECT_EQ(tie(), 0U);
    MustRun({"folder", "make", Mailbox("alice"), "Work/Later"});
    EXPECT_EQ(tie(), 1U);
    EXPECT_TRUE(fs::is_directory(root / "Later" / "cur"));
    MustRun({"mirror", Mailbox("alice"), "Workshop", MaildirOf("alice", "Workshop").string()});
    const auto untie = [&](const char* folder) {
        return MustRun({"mirror", Mailbox("alice"), folder, "--remove", "--below", "--json"})
            .Value()
            .at("untied")
            .size();
    };
    EXPECT_EQ(untie("Work/Plans"), 2U);
    EXPECT_EQ(untie("Work"), 3U);
    EXPECT_EQ(MustRun({"mirror", Mailbox("alice"), "--json"}).Value().size(), 1U);
    EXPECT_EQ(Run({"mirror", Mailbox("alice"), "Work", "--remove", "--below"}).exitCode, 1);
    // What has no place in the layout is told before anything is tied.
    MustRun({"folder", "make", Mailbox("alice"), "Work/cur"});
    const Outcome refused = Run({"mirror", Mailbox("alice"), "Work", root.string(), "--tree", "nested"});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_NE(refused.errors.find("'cur' is another thing there"), std::string::npos) << refused.errors;
}

TEST_F(MirrorTest, ARunTakesUpWhatIsDoneMeanwhile)
{
    ShareMirrors();
    Deliver("alice", "Work", "01-plain", "1.mail");
    const Process alice = Start(RunOf("alice"));
    const Process bob = Start(RunOf("bob"));
    ASSERT_TRUE(Eventually([&] { return MailsIn("bob", "Work").size() == 1; }));

    const fs::path there = FileWith("bob", "Work", BytesOf(Sample("01-plain")));
    fs::rename(there, MaildirOf("bob", "Work") / "cur" / (there.filename().string() + ":2,FS"));
    EXPECT_TRUE(Eventually([&] { return fs::exists(MaildirOf("alice", "Work") / "cur" / "1.mail:2,FS"); }));

    Deliver("bob", "Done", "03-html-only", "2.mail");
    EXPECT_TRUE(Eventually([&] { return MailsIn("alice", "Done").size() == 1; }));
    fs::remove(MaildirOf("alice", "Work") / "cur" / "1.mail:2,FS");
    EXPECT_TRUE(Eventually([&] { return MailsIn("bob", "Work").empty(); }));

    // A Maildir that is taken away takes nothing along.
    Deliver("bob", "Work", "02-plain-crlf", "3.mail");
    ASSERT_TRUE(Eventually([&] { return MailsIn("alice", "Work").size() == 1; }));
    fs::rename(MaildirOf("alice", "Work"), Path("away"));
    EXPECT_TRUE(Eventually([&] { return alice.ErrorsSoFar().find("is stopped") != std::string::npos; }));
    EXPECT_EQ(Items("alice", "Work").size(), 1U);
    const Json mirrors = MustRun({"mirror", Mailbox("alice"), "--json"}).Value();
    EXPECT_TRUE(std::any_of(mirrors.begin(), mirrors.end(),
                            [](const Json& mirror) { return mirror.at("problem") != ""; }));
}

// In place of more and more of its changes of files.
TEST_F(MirrorTest, AKillAtAnyMomentLosesAndDoublesNothing)
{
    ShareMirrors();
    std::vector<std::string> samples;
    for (const auto& file : fs::directory_iterator(Samples()))
        if (file.path().extension() == ".eml" && samples.size() < 8)
            samples.push_back(file.path().stem().string());
    for (std::size_t i = 0; i < samples.size(); ++i)
        Deliver(i < 4 ? "alice" : "bob", "Work", samples[i], std::to_string(i) + ".mail");
    for (const char* const name : {"alice", "bob"})
        for (unsigned long at = 1; RunToAKill(name, at); at += 2 + at / 2)
            ;
    RunBoth();
    ExpectSameMaildirs(samples.size(), 0);

    fs::remove(FileWith("alice", "Work", BytesOf(Sample(samples[0]))));
    for (std::size_t i = 1; i < 4; ++i) {
        const fs::path moved = FileWith("alice", "Work", BytesOf(Sample(samples[i])));
        fs::rename(moved, MaildirOf("alice", "Done") / "cur" / (moved.filename().string() + ":2,S"));
    }
    MustRun({"edit", Mailbox("alice"), "Work", "5", "--subject", "edited", "--flag"});
    for (const char* const name : {"alice", "bob"})
        for (unsigned long at = 1; RunToAKill(name, at); at += 2 + at / 2)
            ;
    RunBoth();
    ExpectSameMaildirs(samples.size() - 4, 3);
    for (const char* const name : {"alice", "bob"})
        for (const char* const folder : {"Work", "Done"})
            EXPECT_EQ(Items(name, folder).size(), MailsIn(name, folder).size());
}

// What other programs do in both Maildirs, and what is to come of it.
class MirrorPowerTest : public MirrorTest {
protected:
    void DeliverNew(const std::string& name, std::mt19937& random)
    {
        const std::string number = std::to_string(++mails_);
        const std::string bytes = "From: a@example.org\nSubject: mail " + number + "\n\n" +
                                  std::string(random() % 9000, 'x') + "\n";
        const fs::path maildir = MaildirOf(name, "Work");
        std::ofstream(maildir / "tmp" / number, std::ios::binary) << bytes;
        fs::rename(maildir / "tmp" / number, maildir / "new" / (number + "." + name));
        expected_[bytes] = {"Work", ""};
    }
    // Of each mail one of them is the reader, so that nobody's step is beaten by another's.
    void Change(std::mt19937& random)
    {
        std::size_t number = 0;
        for (auto mail = expected_.begin(); mail != expected_.end();) {
            const std::string name = ++number % 2 == 0 ? "alice" : "bob";
            auto& [folder, letters] = mail->second;
            const auto lot = random() % 10;
            if (lot == 0 && expected_.size() > 4) {
                fs::remove(FileWith(name, folder, mail->first));
                mail = expected_.erase(mail);
                continue;
            }
            if (lot < 4) {
                const std::string to = lot == 1 ? "Done" : folder;
                if (letters.empty())
                    letters = lot == 2 ? "FS" : "S";
                const fs::path file = FileWith(name, folder, mail->first);
                const std::string unique =
                    file.filename().string().substr(0, file.filename().string().find(':'));
                fs::rename(file, MaildirOf(name, to) / "cur" / (unique + ":2," + letters));
                folder = to;
            }
            ++mail;
        }
        for (const char* const name : {"alice", "bob"})
            DeliverNew(name, random);
    }
    void ExpectAllThere() const
    {
        for (const char* const folder : {"Work", "Done"}) {
            std::multimap<std::string, std::string> mails;
            for (const auto& [bytes, there] : expected_)
                if (there.first == folder)
                    mails.emplace(bytes, there.second);
            for (const char* const name : {"alice", "bob"}) {
                EXPECT_TRUE(MailsIn(name, folder) == mails) << name << " " << folder;
                EXPECT_EQ(Items(name, folder).size(), mails.size()) << name << " " << folder;
            }
        }
    }

    std::map<std::string, std::pair<std::string, std::string>> expected_;  // folder and letters, by bytes
    std::size_t mails_ = 0;
};

TEST_F(MirrorPowerTest, APowerCutAtAnyMomentLosesAndDoublesNothing)
{
    const char* const cuts = std::getenv("QUORVANE_MIRROR_CUTS");
    const char* const seed = std::getenv("QUORVANE_SEED");
    const unsigned long wanted = cuts ? std::stoul(cuts) : 4;
    std::mt19937 random(static_cast<std::mt19937::result_type>(seed ? std::stoul(seed) : 20261123));
    ShareMirrors();
    unsigned long made = 0;
    for (unsigned long round = 0; made < wanted && round < 4 * wanted && !HasFailure(); ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        Change(random);
        const bool isAlice = round % 2 == 0;
        // What the other did is to be delivered.
        RunUntilIdle({isAlice ? "bob" : "alice"}, kIdle);
        const unsigned long at = 1 + random() % (std::size_t{32} << random() % 7);
        const std::vector<std::string> each =
            round % 3 == 2 ? std::vector<std::string>{"--sync-each"} : std::vector<std::string>{};
        made += RunToAPowerCut(isAlice ? "alice" : "bob", at, 1 + random() % 1'000'000, each) ? 1 : 0;
        RunBoth();
        ExpectAllThere();
    }
    std::cout << made << " power cuts, " << mails_ << " mails\n";
    EXPECT_EQ(made, wanted);
}

}  // namespace

}  // namespace quorvane::test
