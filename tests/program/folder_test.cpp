// Folders that are made, renamed, moved and deleted by commands.
#include <algorithm>

#include "tests/program/program.h"

namespace quorvane::test {

namespace {

class FolderTest : public ProgramTest {
protected:
    using Names = std::vector<std::string>;

    // Those that were made since the mailbox was.
    Names Folders(const std::string& name) const
    {
        Names folders;
        for (const Json& folder : MustRun({"list", Mailbox(name), "--json"}).Value())
            folders.push_back(folder.at("folder"));
        std::erase_if(folders, [&](const std::string& folder) {
            return folder == "Inbox" || folder == "Outbox" || folder == "Sent Items" ||
                   folder == "Deleted Items";
        });
        return folders;
    }
    void Make(const std::string& name, const std::string& folder) const
    {
        MustRun({"folder", "make", Mailbox(name), folder});
    }
    void Import(const std::string& name, const std::string& folder) const
    {
        MustRun({"import", Mailbox(name), folder, Sample("01-plain").string()});
    }
    void ExpectRefusal(const std::vector<std::string>& arguments, int exitCode, const std::string& part) const
    {
        const Outcome outcome = Run(arguments);
        EXPECT_EQ(outcome.exitCode, exitCode) << outcome.output;
        EXPECT_NE(outcome.errors.find(part), std::string::npos) << outcome.errors;
    }
    Json Trash(const std::string& name) const
    {
        return MustRun({"trash", Mailbox(name), "--json"}).Value().at("entries");
    }
    // Both run from here on, and bob gets alice's folder.
    void ShareFolder(const std::string& folder)
    {
        Import("alice", folder);
        MustRun({"share", Mailbox("alice"), folder, "--with", "bob"});
        for (const char* name : {"alice", "bob"})
            runs_.push_back(Start(RunOf(name)));
        ASSERT_TRUE(Holds("bob", folder, 1));
    }
    // Whether a folder comes to hold so many items.
    bool Holds(const std::string& name, const std::string& folder, std::size_t items) const
    {
        return Eventually([&] { return ItemsIfAny(name, folder).size() == items; });
    }
    std::vector<Json> ItemsIfAny(const std::string& name, const std::string& folder) const
    {
        const Outcome outcome = Run({"list", Mailbox(name), folder, "--json"});
        return outcome.exitCode == 0 ? outcome.Value().get<std::vector<Json>>() : std::vector<Json>();
    }
    void EndRuns()
    {
        for (Process& run : runs_)
            run.AskToEnd();
        for (Process& run : runs_)
            EXPECT_EQ(run.Wait().exitCode, 0);
        runs_.clear();
    }

private:
    std::vector<Process> runs_;
};

TEST_F(FolderTest, AFolderIsMadeRenamedMovedAndDeleted)
{
    MakeMailboxes({"a"});
    Make("a", "Projects/2026");
    EXPECT_EQ(Folders("a"), (Names{"Projects", "Projects/2026"}));

    MustRun({"folder", "rename", Mailbox("a"), "Projects/2026", "Old"});
    EXPECT_EQ(Folders("a"), (Names{"Projects", "Projects/Old"}));
    MustRun({"folder", "move", Mailbox("a"), "Projects/Old", "Inbox"});
    EXPECT_EQ(Folders("a"), (Names{"Inbox/Old", "Projects"}));
    MustRun({"folder", "move", Mailbox("a"), "/Inbox/Old/", "/"});
    EXPECT_EQ(Folders("a"), (Names{"Projects", "Old"}));
    const Json deleted = MustRun({"folder", "delete", Mailbox("a"), "Old", "--json"}).Value();
    EXPECT_EQ(deleted, (Json{{"deleted", {"Old"}}, {"items", 0}}));
    EXPECT_EQ(Folders("a"), Names{"Projects"});
}

TEST_F(FolderTest, FoldersAreListedBelowTheOnesThatTheyAreInWheneverTheyWereMade)
{
    MakeMailboxes({"a"});
    for (const char* folder : {"P", "Q", "P/1", "Q/1", "P/1/x"})
        Make("a", folder);
    EXPECT_EQ(Folders("a"), (Names{"P", "P/1", "P/1/x", "Q", "Q/1"}));
}

TEST_F(FolderTest, WhatCantBeIsRefused)
{
    MakeMailboxes({"a"});
    Make("a", "P/Q");
    Make("a", "Q");
    ExpectRefusal({"folder", "make", Mailbox("a"), "P"}, 1, "'P': there is one already");
    ExpectRefusal({"folder", "rename", Mailbox("a"), "P", "Q"}, 1, "there is one at 'Q' already");
    ExpectRefusal({"folder", "move", Mailbox("a"), "Q", "P"}, 1, "there is one at 'P/Q' already");
    ExpectRefusal({"folder", "move", Mailbox("a"), "P", "P/Q"}, 1, "it would lie in itself");
    ExpectRefusal({"folder", "move", Mailbox("a"), "P", "Nowhere"}, 1, "no such folder");
    ExpectRefusal({"folder", "rename", Mailbox("a"), "P", "a/b"}, 2, "a name without '/'");
    ExpectRefusal({"folder", "rename", Mailbox("a"), "P", ""}, 2, "a name without '/'");
    for (const char* folder : {"Inbox", "Outbox", "Sent Items", "Deleted Items"}) {
        ExpectRefusal({"folder", "delete", Mailbox("a"), folder, "--yes"}, 1, "each mailbox has it");
        ExpectRefusal({"folder", "rename", Mailbox("a"), folder, "Other"}, 1, "each mailbox has it");
        ExpectRefusal({"folder", "move", Mailbox("a"), folder, "P"}, 1, "each mailbox has it");
    }
    ExpectRefusal({"folder", Mailbox("a")}, 2, "");
    EXPECT_EQ(Folders("a"), (Names{"P", "P/Q", "Q"}));
}

TEST_F(FolderTest, WhatADeletedFolderHeldLiesInTheTrashAndComesBackWithIt)
{
    MakeMailboxes({"a"});
    Import("a", "P");
    Import("a", "P/Q");
    const Json before = Items("a", "P/Q");
    ExpectRefusal({"folder", "delete", Mailbox("a"), "P"}, 1, "it holds 2 items and 1 folder: --yes");
    EXPECT_EQ(Folders("a"), (Names{"P", "P/Q"}));

    const Json deleted = MustRun({"folder", "delete", Mailbox("a"), "P", "--yes", "--json"}).Value();
    EXPECT_EQ(deleted, (Json{{"deleted", {"P/Q", "P"}}, {"items", 2}}));
    EXPECT_EQ(Folders("a"), Names{});

    std::vector<std::string> undelete{"undelete", Mailbox("a")};
    for (const Json& entry : Trash("a")) {
        EXPECT_EQ(entry.at("why"), "deleted");
        EXPECT_EQ(entry.at("member"), "a");
        undelete.push_back(std::to_string(entry.at("id").get<int>()));
    }
    ASSERT_EQ(undelete.size(), 4U);
    MustRun(undelete);
    EXPECT_EQ(Folders("a"), (Names{"P", "P/Q"}));
    ASSERT_EQ(Items("a", "P/Q").size(), 1U);
    EXPECT_EQ(Items("a", "P/Q")[0].at("subject"), before[0].at("subject"));
    EXPECT_TRUE(Trash("a").empty());
}

TEST_F(FolderTest, ASharedFolderStaysSharedUnderItsNewPath)
{
    MakeMailboxes({"alice", "bob"});
    ShareFolder("Shared");
    Make("bob", "Work");
    MustRun({"folder", "rename", Mailbox("bob"), "Shared", "Ours"});
    MustRun({"folder", "move", Mailbox("bob"), "Ours", "Work"});
    EXPECT_EQ(MustRun({"status", Mailbox("bob"), "--json"}).Value().at("shares")[0].at("folder"),
              "Work/Ours");

    MustRun({"import", Mailbox("alice"), "Shared", Sample("03-html-only").string()});
    MustRun({"import", Mailbox("bob"), "Work/Ours", Sample("04-alternative").string()});
    EXPECT_TRUE(Holds("bob", "Work/Ours", 3));
    EXPECT_TRUE(Holds("alice", "Shared", 3));
    ExpectSame("alice", "Shared", "bob", "Work/Ours");

    // What alice deletes comes back to where the folder is by now.
    MustRun({"delete", Mailbox("alice"), "Shared", "1"});
    EXPECT_TRUE(Holds("bob", "Work/Ours", 2));
    EndRuns();
    ASSERT_EQ(Trash("bob").size(), 1U);
    MustRun({"folder", "move", Mailbox("bob"), "Work/Ours", "/"});
    MustRun({"undelete", Mailbox("bob"), std::to_string(Trash("bob")[0].at("id").get<int>())});
    EXPECT_EQ(Items("bob", "Ours").size(), 3U);
    EXPECT_EQ(Folders("bob"), (Names{"Ours", "Work"}));
}

TEST_F(FolderTest, ASharedFolderIsDeletedOnlyOnceItIsLeftAndThenHereAlone)
{
    MakeMailboxes({"alice", "bob"});
    ShareFolder("P/Shared");
    ExpectRefusal({"folder", "delete", Mailbox("bob"), "P", "--yes"}, 1, "'P/Shared': it is shared");
    EXPECT_EQ(Items("bob", "P/Shared").size(), 1U);

    MustRun({"leave", Mailbox("bob"), "P/Shared"});
    MustRun({"folder", "delete", Mailbox("bob"), "P", "--yes"});
    EXPECT_EQ(Folders("bob"), Names{});
    EXPECT_EQ(Trash("bob").size(), 1U);
    EXPECT_TRUE(Eventually([&] {
        return MustRun({"status", Mailbox("alice"), "--json"}).Value().at("shares")[0].at("members").empty();
    }));
    // Somebody who deleted it and then is invited again has deleted nothing at the others.
    MustRun({"share", Mailbox("alice"), "P/Shared", "--with", "bob"});
    MustRun({"import", Mailbox("alice"), "P/Shared", Sample("03-html-only").string()});
    EXPECT_TRUE(Holds("bob", "P/Shared", 2));
    EndRuns();
    ExpectSame("alice", "P/Shared", "bob", "P/Shared");
    EXPECT_EQ(Items("bob", "P/Shared").size(), 2U);
}

}  // namespace

}  // namespace quorvane::test
