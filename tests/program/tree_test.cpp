// Folders that are shared with all that lies in them, later ones too.
#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <map>

#include "tests/program/killed_run.h"

namespace quorvane::test {

namespace {

using Names = std::vector<std::string>;

class TreeTest : public KilledRunTest {
protected:
    // Runs that accept nothing but what their users have said.
    Names RunOf(const std::string& name) const
    {
        return {"run", Mailbox(name), "--until-idle", "--idle-seconds", "0.5", "--json"};
    }
    // Lets them run side by side until nothing travels.
    void Settle(const Names& names) const
    {
        said_.clear();
        for (bool moved = true; moved;) {
            std::vector<Process> runs;
            for (const std::string& name : names)
                runs.push_back(Start(RunOf(name)));
            moved = false;
            for (Process& run : runs) {
                const Outcome outcome = run.Wait();
                ASSERT_EQ(outcome.exitCode, 0) << outcome.errors;
                const Json counts = outcome.Value();
                said_ += outcome.errors;
                moved |= counts.at("packagesSent") != 0 || counts.at("packagesReceived") != 0;
            }
        }
    }
    void Bring(const std::string& name, const std::string& folder,
               const std::string& sample = "01-plain") const
    {
        MustRun({"import", Mailbox(name), folder, Sample(sample).string(), "--again"});
    }
    Json Invitations(const std::string& name) const
    {
        return MustRun({"invitations", Mailbox(name), "--json"}).Value();
    }
    // The invitation to a folder of this path at whoever invited.
    std::string Invitation(const std::string& name, const std::string& folder) const
    {
        for (const Json& invitation : Invitations(name))
            if (invitation.at("folder") == folder)
                return invitation.at("id");
        return "none";
    }
    Json Accept(const std::string& name, const std::string& folder, const Names& more = {}) const
    {
        Names arguments{"accept", Mailbox(name), Invitation(name, folder), "--json"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return MustRun(arguments).Value();
    }
    // Each folder below one, with it, and how many items it holds.
    std::map<std::string, int> Holds(const std::string& name, const std::string& root) const
    {
        std::map<std::string, int> items;
        for (const Json& folder : MustRun({"list", Mailbox(name), "--json"}).Value())
            if (const std::string path = folder.at("folder"); path == root || path.starts_with(root + "/"))
                items[path] = folder.at("items");
        return items;
    }
    Json Shares(const std::string& name) const
    {
        return MustRun({"status", Mailbox(name), "--json"}).Value().at("shares");
    }
    Names Shared(const std::string& name) const
    {
        Names folders;
        for (const Json& share : Shares(name))
            folders.push_back(share.at("folder"));
        std::sort(folders.begin(), folders.end());
        return folders;
    }
    // alice's Work with three levels, which bob has accepted with all that lies in it.
    void ShareTree() const
    {
        MakeMailboxes({"alice", "bob", "carol"});
        for (const char* folder : {"Work", "Work/2026", "Work/2026/Plans", "Apart"})
            Bring("alice", folder);
        MustRun({"share", Mailbox("alice"), "Work", "--tree", "--with", "bob"});
        Settle({"alice", "bob"});
        Accept("bob", "Work", {"--tree"});
        Settle({"bob", "alice"});
    }

    mutable std::string said_;
};

TEST_F(TreeTest, AFolderIsSharedWithAllThatLiesInItAndWhatIsMadeThereLater)
{
    ShareTree();
    EXPECT_EQ(Holds("bob", "Work"),
              (std::map<std::string, int>{{"Work", 1}, {"Work/2026", 1}, {"Work/2026/Plans", 1}}));
    EXPECT_EQ(Shared("alice"), (Names{"Work", "Work/2026", "Work/2026/Plans"}));

    // Made while nobody runs, moved there, and made while a run is under way.
    Bring("alice", "Work/2026/Plans/Deep/Deeper");
    MustRun({"folder", "move", Mailbox("alice"), "Apart", "Work"});
    Settle({"alice", "bob"});
    EXPECT_EQ(Holds("bob", "Work/2026/Plans/Deep"),
              (std::map<std::string, int>{{"Work/2026/Plans/Deep", 0}, {"Work/2026/Plans/Deep/Deeper", 1}}));
    EXPECT_EQ(Holds("bob", "Work/Apart").at("Work/Apart"), 1);
    const Process alices = Start({"run", Mailbox("alice")}), bobs = Start({"run", Mailbox("bob")});
    Bring("alice", "Work/Live", "07-attachment-csv");
    EXPECT_TRUE(Eventually([&] {
        const auto holds = Holds("bob", "Work/Live");
        return holds.contains("Work/Live") && holds.at("Work/Live") == 1;
    }));
    EXPECT_TRUE(Invitations("bob").empty());
    ExpectSame("alice", "Work/Live", "bob", "Work/Live");
    // It stays the same folder under another name, and one of its former name is another.
    MustRun({"folder", "rename", Mailbox("alice"), "Work/Live", "Lived"});
    Bring("alice", "Work/Live", "03-html-only");
    EXPECT_TRUE(Eventually([&] {
        const auto holds = Holds("bob", "Work/Live (alice)");
        return holds.contains("Work/Live (alice)") && holds.at("Work/Live (alice)") == 1;
    }));
    Bring("bob", "Work/Live");
    EXPECT_TRUE(Eventually([&] { return Items("alice", "Work/Lived").size() == 2; }));
}

TEST_F(TreeTest, WhoComesLaterIsInvitedToAllOfItAndPutsItWhereHeLikes)
{
    ShareTree();
    const Json told =
        MustRun({"share", Mailbox("alice"), "Work", "--with", "carol", "--flags", "--json"}).Value();
    EXPECT_TRUE(told.at("tree"));
    EXPECT_EQ(told.at("below").size(), 2U);
    Settle({"alice", "carol"});
    EXPECT_EQ(Invitations("carol").size(), 3U);
    EXPECT_NE(said_.find("alice shares folders in 'Work', too"), std::string::npos) << said_;
    EXPECT_EQ(said_.find("'Work/2026'"), std::string::npos) << said_;
    for (const Json& invitation : Invitations("carol"))
        EXPECT_EQ(invitation.at("in") == "", invitation.at("folder") == "Work");

    const Json accepted = Accept("carol", "Work", {"--tree", "--as", "Mine/Alice"});
    EXPECT_EQ(accepted.at("folder"), "Mine/Alice");
    EXPECT_EQ(accepted.at("below").size(), 2U);
    EXPECT_TRUE(accepted.at("failures").empty());
    Bring("alice", "Work/2026/New");
    Settle({"carol", "alice", "bob"});
    EXPECT_EQ(Holds("carol", "Mine/Alice"), (std::map<std::string, int>{{"Mine/Alice", 1},
                                                                        {"Mine/Alice/2026", 1},
                                                                        {"Mine/Alice/2026/New", 1},
                                                                        {"Mine/Alice/2026/Plans", 1}}));
    const Json shares = Shares("carol");
    EXPECT_EQ(shares.size(), 4U);
    for (const Json& share : shares) {
        EXPECT_TRUE(share.at("flags")) << share;
        EXPECT_TRUE(share.at("follows")) << share;
        EXPECT_FALSE(share.at("tree")) << share;
        EXPECT_EQ(share.at("members").size(), 2U) << share;
    }
}

// Without --tree each is decided on for itself, and the rest may be accepted afterwards.
TEST_F(TreeTest, WhoAcceptsOneFolderAloneIsAskedForEachOther)
{
    MakeMailboxes({"alice", "bob"});
    Bring("alice", "Work/2026");
    Bring("alice", "Work/2027");
    MustRun({"share", Mailbox("alice"), "Work", "--tree", "--with", "bob"});
    Settle({"alice", "bob"});
    MustRun({"decline", Mailbox("bob"), Invitation("bob", "Work/2027")});
    Accept("bob", "Work", {"--as", "Here"});
    Settle({"bob", "alice"});
    EXPECT_EQ(Holds("bob", "Here").size(), 1U);
    ASSERT_EQ(Invitations("bob").size(), 1U);

    const Json accepted = MustRun({"accept", Mailbox("bob"), "Here", "--tree", "--json"}).Value();
    EXPECT_EQ(accepted.at("below").size(), 1U);
    Settle({"bob", "alice"});
    EXPECT_EQ(Holds("bob", "Here").at("Here/2026"), 1);
    // What he has declined he is asked for again, not given.
    MustRun({"share", Mailbox("alice"), "Work", "--with", "bob"});
    Settle({"alice", "bob"});
    EXPECT_EQ(Invitation("bob", "Work/2026"), "none");
    EXPECT_NE(Invitation("bob", "Work/2027"), "none");
    EXPECT_EQ(Run({"accept", Mailbox("bob"), "Inbox", "--tree"}).exitCode, 1);
}

TEST_F(TreeTest, WhatAMemberMakesInATreeIsHisUntilHeSaysSo)
{
    ShareTree();
    Bring("bob", "Work/2026/Bobs");
    Settle({"bob", "alice"});
    EXPECT_TRUE(Invitations("alice").empty());
    EXPECT_EQ(Shared("bob").size(), 3U);

    MustRun({"share", Mailbox("bob"), "Work", "--tree"});
    Settle({"bob", "alice"});
    ASSERT_EQ(Invitations("alice").size(), 1U) << "nothing comes into a mailbox unasked, hers either";
    EXPECT_EQ(Accept("alice", "Work/2026/Bobs").at("folder"), "Work/2026/Bobs");
    Settle({"alice", "bob"});
    EXPECT_EQ(Subjects("alice", "Work/2026/Bobs").size(), 1U);
    // Nor does she share with others what is his.
    MustRun({"share", Mailbox("alice"), "Work", "--with", "carol"});
    Settle({"alice", "carol"});
    EXPECT_EQ(Invitations("carol").size(), 3U);
}

TEST_F(TreeTest, ATreeIsEndedAndLeftAsAWhole)
{
    ShareTree();
    MustRun({"share", Mailbox("alice"), "Work", "--with", "carol"});
    Settle({"alice", "carol"});
    Accept("carol", "Work", {"--tree"});
    Settle({"carol", "alice", "bob"});
    MustRun({"share", Mailbox("bob"), "Inbox", "--with", "alice"});
    MustRun({"folder", "make", Mailbox("bob"), "Work/2026/Bobs"});
    MustRun({"share", Mailbox("bob"), "Work/2026/Bobs", "--with", "alice"});
    EXPECT_EQ(MustRun({"leave", Mailbox("bob"), "Work", "--tree", "--json"}).Value().at("below").size(), 2U);
    EXPECT_EQ(Shared("bob"), (Names{"Inbox", "Work/2026/Bobs"})) << "his own stay shared";
    Settle({"bob", "alice"});
    Bring("alice", "Work/AfterBob");
    Settle({"alice", "bob", "carol"});
    EXPECT_EQ(Holds("carol", "Work").size(), 4U);
    EXPECT_EQ(Holds("bob", "Work/AfterBob").size(), 0U);

    EXPECT_EQ(Run({"unshare", Mailbox("alice"), "Work"}).exitCode, 1);
    EXPECT_EQ(Run({"unshare", Mailbox("alice"), "Work", "--with", "carol"}).exitCode, 1);
    // One of them alone, which stays out.
    MustRun({"unshare", Mailbox("alice"), "Work/AfterBob"});
    EXPECT_EQ(Run({"unshare", Mailbox("alice"), "Work", "--tree", "--with", "bob"}).exitCode, 1);
    const Json out =
        MustRun({"unshare", Mailbox("alice"), "Work", "--tree", "--with", "carol", "--json"}).Value();
    EXPECT_EQ(out.at("below").size(), 2U);
    Settle({"alice", "carol"});
    EXPECT_TRUE(Shared("carol").empty());
    EXPECT_EQ(Shared("alice"), (Names{"Work", "Work/2026", "Work/2026/Plans"}));
    MustRun({"unshare", Mailbox("alice"), "Work", "--tree"});
    Bring("alice", "Work/Never");
    Settle({"alice"});
    EXPECT_TRUE(Shared("alice").empty());
}

// QUORVANE_TREE_FOLDERS is for more of them.
TEST_F(TreeTest, ManyFoldersComeAtOnce)
{
    const char* const wanted = std::getenv("QUORVANE_TREE_FOLDERS");
    const int count = wanted ? std::atoi(wanted) : 12;
    MakeMailboxes({"alice", "bob"});
    for (int number = 0; number < count; ++number)
        Bring("alice", "Work/" + std::to_string(number % 7) + "/" + std::to_string(number));
    MustRun({"share", Mailbox("alice"), "Work", "--tree", "--with", "bob"});
    Settle({"alice", "bob"});
    Accept("bob", "Work", {"--tree"});
    Settle({"bob", "alice"});
    EXPECT_EQ(Holds("bob", "Work"), Holds("alice", "Work"));
    EXPECT_EQ(Holds("bob", "Work").size(), static_cast<std::size_t>(count + 8));
}

// Both keep what lies in it in Maildirs.
TEST_F(TreeTest, ATreeAndMirrorsOfItGoTogether)
{
    ShareTree();
    const auto tie = [this](const std::string& name) {
        MustRun({"mirror", Mailbox(name), "Work", Path(name + "-mail").string(), "--tree", "nested"});
    };
    tie("alice");
    tie("bob");
    const auto fresh = Path("alice-mail") / "2026" / "Found";
    for (const char* part : {"cur", "new", "tmp"})
        std::filesystem::create_directories(fresh / part);
    std::ofstream(fresh / "new" / "1.host") << "Subject: from a Maildir\n\nText\n";
    tie("alice");
    Settle({"alice", "bob"});
    EXPECT_EQ(Subjects("bob", "Work/2026/Found"), Names{"from a Maildir"});
    tie("bob");
    Settle({"bob"});
    const auto files = std::filesystem::directory_iterator(Path("bob-mail") / "2026" / "Found" / "new");
    EXPECT_EQ(std::distance(begin(files), end(files)), 1);
}

// A run that shares and one that accepts, killed at each n-th of their changes of files; QUORVANE_TREE_KILLS
// is for more of them.
TEST_F(TreeTest, AKillAnywhereLeavesNoFolderOutAndMakesNoneTwice)
{
    ShareTree();
    const char* const wanted = std::getenv("QUORVANE_TREE_KILLS");
    const int kills = wanted ? std::atoi(wanted) : 6;
    int done = 0;
    for (int number = 0; number < kills; ++number) {
        const std::string folder = "Work/2026/K" + std::to_string(number);
        Bring("alice", folder);
        const auto at = static_cast<unsigned long>(1 + number * 149 / kills);
        done += RunToAKill("alice", at) ? 1 : 0;
        MustRun(RunOf("alice"));
        done += RunToAKill("bob", at) ? 1 : 0;
    }
    EXPECT_GT(done, kills) << "most of them were killed";
    Settle({"bob", "alice"});
    EXPECT_EQ(Holds("bob", "Work"), Holds("alice", "Work"));
    EXPECT_EQ(Shared("alice"), Shared("bob"));
    EXPECT_TRUE(Invitations("bob").empty());
    for (const Json& share : Shares("alice"))
        EXPECT_EQ(share.at("members"), Json::array({"bob"})) << share;
}

}  // namespace

}  // namespace quorvane::test
