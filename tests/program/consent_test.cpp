// Who shares a folder: nothing comes into a mailbox that its user hasn't accepted, and nothing goes to, or is
// taken from, who isn't a member.
#include <algorithm>
#include <csignal>
#include <map>

#include "host/exchange/folder_note.h"
#include "tests/program/program.h"
#include "tests/program/sealed.h"

namespace quorvane::test {

namespace {

class ConsentTest : public ProgramTest {
protected:
    // A folder with one mail, shared by alice.
    void ShareWith(const std::vector<std::string>& members, const std::string& folder = "Shared")
    {
        MustRun({"import", Mailbox("alice"), folder, Sample("01-plain").string()});
        std::vector<std::string> arguments{"share", Mailbox("alice"), folder, "--with"};
        arguments.insert(arguments.end(), members.begin(), members.end());
        MustRun(arguments);
    }

    // A run that accepts nothing by itself, but from these.
    Json RunOnce(const std::string& name, const std::vector<std::string>& acceptFrom = {}) const
    {
        std::vector<std::string> arguments{"run", Mailbox(name), "--until-idle", "--idle-seconds",
                                           kIdle, "--json"};
        for (const std::string& member : acceptFrom)
            arguments.insert(arguments.end(), {"--accept-from", member});
        const Outcome outcome = MustRun(arguments);
        said_ = outcome.errors;
        return outcome.exitCode == 0 ? outcome.Value() : Json::object();
    }
    // Runs them by turns until nothing travels; nothing is accepted.
    void Settle(const std::vector<std::string>& names) const
    {
        RunByTurns(names, [this](const std::string& name) { return RunOnce(name); });
    }
    Json Invitations(const std::string& name) const
    {
        return MustRun({"invitations", Mailbox(name), "--json"}).Value();
    }
    std::string InvitationId(const std::string& name) const
    {
        const Json invitations = Invitations(name);
        return invitations.empty() ? std::string("none") : invitations[0].at("id").get<std::string>();
    }
    Json Status(const std::string& name) const
    {
        return MustRun({"status", Mailbox(name), "--json"}).Value();
    }
    std::vector<std::string> Folders(const std::string& name) const
    {
        std::vector<std::string> folders;
        for (const Json& folder : MustRun({"list", Mailbox(name), "--json"}).Value())
            folders.push_back(folder.at("folder"));
        return folders;
    }
    bool HasFolder(const std::string& name, const std::string& folder) const
    {
        const auto folders = Folders(name);
        return std::find(folders.begin(), folders.end(), folder) != folders.end();
    }
    void Edit(const std::string& name, const std::string& subject, const std::string& folder = "Shared") const
    {
        MustRun({"edit", Mailbox(name), folder, "1", "--subject", subject});
    }
    TestDevice DeviceOf(const std::string& name) const { return {Path("exchange"), KeysOf(Mailbox(name))}; }
    // Whether any package that lies there can be opened by a mailbox.
    bool IsAnythingFor(const std::string& name) const
    {
        const auto packages = Packages();
        return std::any_of(packages.begin(), packages.end(), [&](const std::filesystem::path& package) {
            return Open(package, KeysOf(Mailbox(name))).has_value();
        });
    }
    std::vector<std::string> RefusedMembers(const std::string& name) const
    {
        std::vector<std::string> members;
        const Json status = Status(name);
        for (const Json& refusal : status.at("refusals"))
            members.push_back(refusal.at("member"));
        return members;
    }
    // A package of `from`'s own making, as the next that `to` takes from it.
    void Inject(const std::string& from, const std::string& to, const std::string& content,
                host::exchange::PackageKind kind) const
    {
        TestDevice device = DeviceOf(from);
        const Json members = Status(to).at("members");
        std::uint64_t applied = 0;
        for (const Json& member : members)
            if (member.at("device") == host::exchange::TextOf(device.Keys().Id()))
                applied = member.at("applied");
        device.epoch = EpochOfMailbox(from);
        device.kind = kind;
        device.Lay(applied + 1000, device.Sealed(applied + 1000, applied, KeysOf(Mailbox(to)), content));
    }
    // That which its packages name.
    host::exchange::Epoch EpochOfMailbox(const std::string& name) const { return epochs_.at(name); }
    void RememberEpoch(const std::string& name)
    {
        for (const auto& package : Packages())
            if (package.parent_path().parent_path() == DeviceOf(name).Home())
                epochs_[name] = EpochOf(package);
    }

    static constexpr char kIdle[] = "0.5";
    mutable std::string said_;
    std::map<std::string, host::exchange::Epoch> epochs_;
};

TEST_F(ConsentTest, AMembersInboxIsAnInvitationAndNeverBecomesOnesOwn)
{
    MakeMailboxes({"alice", "mallory"});
    MustRun({"import", Mailbox("alice"), "Inbox", Sample("07-attachment-csv").string()});
    MustRun({"import", Mailbox("mallory"), "Inbox", Sample("01-plain").string()});
    MustRun({"share", Mailbox("mallory"), "Inbox", "--with", "alice"});
    const auto before = Folders("alice");

    Settle({"mallory", "alice"});
    EXPECT_EQ(Folders("alice"), before);
    ASSERT_EQ(Invitations("alice").size(), 1U);
    EXPECT_EQ(Invitations("alice")[0].at("folder"), "Inbox");
    EXPECT_EQ(Invitations("alice")[0].at("from"), "mallory");
    EXPECT_EQ(Status("alice").at("folders").at(0).at("state"), "invited");
    EXPECT_TRUE(Status("alice").at("shares").empty());

    const Json accepted = MustRun({"accept", Mailbox("alice"), InvitationId("alice"), "--json"}).Value();
    EXPECT_EQ(accepted.at("folder"), "Inbox (mallory)");
    Settle({"alice", "mallory"});

    EXPECT_EQ(Subjects("alice", "Inbox (mallory)").size(), 1U);
    EXPECT_EQ(Subjects("alice", "Inbox").size(), 1U);
    EXPECT_EQ(Subjects("mallory", "Inbox").size(), 1U) << "nothing of alice's own went there";
}

TEST_F(ConsentTest, AnInvitationThatNobodyHasDecidedOnHoldsUpNoOtherFolder)
{
    MakeMailboxes({"alice", "bob"});
    ShareWith({"bob"});
    RunOnce("alice");
    RunOnce("bob", {"alice"});
    Settle({"alice", "bob"});
    ShareWith({"bob"}, "Later");
    Edit("alice", "in the folder that both have");

    Settle({"alice", "bob"});

    EXPECT_EQ(Subjects("bob"), std::vector<std::string>{"in the folder that both have"});
    EXPECT_FALSE(HasFolder("bob", "Later"));
    Edit("alice", "while it was undecided", "Later");
    Settle({"alice", "bob"});
    EXPECT_TRUE(Packages().empty());
    MustRun({"accept", Mailbox("bob"), InvitationId("bob").substr(0, 4)});
    Settle({"bob", "alice"});
    EXPECT_EQ(Subjects("bob", "Later"), std::vector<std::string>{"while it was undecided"});
    ExpectSame("alice", "Later", "bob", "Later");
}

TEST_F(ConsentTest, AFolderIsAcceptedUnderAnotherNameOrIntoOneThatIsThereOrDeclined)
{
    MakeMailboxes({"alice", "bob"});
    ShareWith({"bob"}, "One");
    ShareWith({"bob"}, "Two");
    ShareWith({"bob"}, "Three");
    MustRun({"import", Mailbox("bob"), "Mine", Sample("07-attachment-csv").string()});
    Settle({"alice", "bob"});
    std::map<std::string, std::string> ids;
    for (const Json& invitation : Invitations("bob"))
        ids[invitation.at("folder")] = invitation.at("id");
    ASSERT_EQ(ids.size(), 3U);

    EXPECT_EQ(Run({"accept", Mailbox("bob"), ids["One"], "--as", "Mine"}).exitCode, 1);
    EXPECT_EQ(Run({"accept", Mailbox("bob"), ids["One"], "--into", "Nothing"}).exitCode, 1);
    EXPECT_EQ(Run({"accept", Mailbox("bob"), ids["One"], "--as", "A", "--into", "Mine"}).exitCode, 2);
    EXPECT_EQ(Run({"accept", Mailbox("bob"), "ffffffff"}).exitCode, 1);
    MustRun({"accept", Mailbox("bob"), ids["One"], "--as", "Work/First"});
    MustRun({"accept", Mailbox("bob"), ids["Two"], "--into", "Mine"});
    EXPECT_EQ(Run({"accept", Mailbox("bob"), ids["Three"], "--into", "Mine"}).exitCode, 1) << "it is shared";
    MustRun({"decline", Mailbox("bob"), ids["Three"]});
    Settle({"bob", "alice"});

    ExpectSame("alice", "One", "bob", "Work/First");
    ExpectSame("alice", "Two", "bob", "Mine");
    EXPECT_EQ(Subjects("alice", "Two").size(), 2U) << "what was in it is shared";
    EXPECT_FALSE(HasFolder("bob", "Three"));
    EXPECT_TRUE(Invitations("bob").empty());
    for (const Json& share : Status("alice").at("shares"))
        EXPECT_EQ(share.at("members"), share.at("folder") == "Three" ? Json::array() : Json{"bob"}) << share;
    Edit("alice", "for nobody", "Three");
    RunOnce("alice");
    EXPECT_FALSE(IsAnythingFor("bob"));
}

TEST_F(ConsentTest, WhatAMemberSharesIsAcceptedAtOnceWhereTheUserSaysSoAndNobodyElses)
{
    MakeMailboxes({"alice", "bob", "mallory"});
    ShareWith({"bob"});
    MustRun({"import", Mailbox("mallory"), "Junk", Sample("01-plain").string()});
    MustRun({"share", Mailbox("mallory"), "Junk", "--with", "bob"});
    RunOnce("alice");
    RunOnce("mallory");

    RunOnce("bob", {"alice", "carol"});
    EXPECT_NE(said_.find("accepted 'Shared' from alice"), std::string::npos) << said_;
    EXPECT_NE(said_.find("mallory shares 'Junk'"), std::string::npos) << said_;
    Settle({"alice", "bob", "mallory"});

    ExpectSame("alice", "Shared", "bob", "Shared");
    EXPECT_FALSE(HasFolder("bob", "Junk"));
    EXPECT_EQ(Invitations("bob").size(), 1U);
}

// By bob, who didn't found the folder; carol knows nobody but him.
TEST_F(ConsentTest, WhomAMemberBringsInGetsAllOfTheFolderAndIsHeardByAll)
{
    MakeMailboxes({"alice", "bob"});
    ShareWith({"bob"});
    MustRun({"import", Mailbox("alice"), "Shared", Sample("07-attachment-csv").string()});
    RunUntilIdle({"alice", "bob"}, kIdle);
    Edit("alice", "by alice");
    RunUntilIdle({"alice", "bob"}, kIdle);
    MustRun({"init", Mailbox("carol"), "--name", "carol", "--exchange", Exchange()});
    MustRun({"members", "add", Mailbox("carol"), "bob"});
    MustRun({"share", Mailbox("bob"), "Shared", "--with", "carol"});
    RunUntilIdle({"alice", "bob", "carol"}, kIdle);

    ExpectSame("alice", "Shared", "carol", "Shared");
    MustRun({"edit", Mailbox("carol"), "Shared", "2", "--subject", "by carol"});
    RunUntilIdle({"alice", "bob", "carol"}, kIdle);
    EXPECT_EQ(std::ranges::count(Subjects("alice"), "by carol"), 1);
    ExpectSame("alice", "Shared", "carol", "Shared");
    ExpectSame("bob", "Shared", "carol", "Shared");
}

TEST_F(ConsentTest, WhoIsTakenOutKeepsWhatHeHasAndGetsNothingMoreAndIsHeardByNobody)
{
    MakeMailboxes({"alice", "bob", "carol"});
    ShareWith({"bob", "carol"});
    RunUntilIdle({"alice", "bob", "carol"}, kIdle);
    EXPECT_EQ(Run({"unshare", Mailbox("bob"), "Shared", "--with", "carol"}).exitCode, 1)
        << "he didn't found it";
    // What carol changes before she hears of it.
    Edit("carol", "by one who is out");
    RunOnce("carol");
    const auto late = Packages();
    ASSERT_EQ(late.size(), 1U);
    std::filesystem::rename(late[0], Path("late"));

    MustRun({"unshare", Mailbox("alice"), "Shared", "--with", "carol"});
    RunOnce("alice");
    RunOnce("bob");
    std::filesystem::rename(Path("late"), late[0]);
    Edit("alice", "for members alone");
    RunOnce("alice");
    RunOnce("bob");

    for (const char* name : {"alice", "bob"}) {
        EXPECT_EQ(Subjects(name), std::vector<std::string>{"for members alone"}) << name;
        EXPECT_EQ(RefusedMembers(name), std::vector<std::string>{"carol"}) << name;
    }
    Settle({"alice", "bob", "carol"});
    EXPECT_EQ(Subjects("carol"), std::vector<std::string>{"by one who is out"});
    EXPECT_TRUE(Status("carol").at("shares").empty());
    EXPECT_EQ(Status("carol").at("folders").at(0).at("state"), "taken out");
    Edit("alice", "still");
    Edit("carol", "still out");
    RunOnce("alice");
    RunOnce("carol");
    EXPECT_FALSE(IsAnythingFor("carol"));
    Settle({"alice", "bob", "carol"});
    EXPECT_EQ(Subjects("bob"), std::vector<std::string>{"still"});
}

TEST_F(ConsentTest, WhoLeavesTakesNoPartAnyMoreAndMayComeBackIntoHisFolder)
{
    MakeMailboxes({"alice", "bob"});
    ShareWith({"bob"});
    MustRun({"import", Mailbox("alice"), "Shared", Sample("07-attachment-csv").string()});
    RunUntilIdle({"alice", "bob"}, kIdle);

    MustRun({"leave", Mailbox("bob"), "Shared"});
    EXPECT_EQ(Run({"leave", Mailbox("bob"), "Shared"}).exitCode, 1);
    Settle({"bob", "alice"});
    EXPECT_EQ(Status("alice").at("shares").at(0).at("members"), Json::array());
    Edit("alice", "after he left");
    MustRun({"delete", Mailbox("bob"), "Shared", "2"});
    Settle({"alice", "bob"});
    EXPECT_EQ(Subjects("bob").size(), 1U);
    EXPECT_EQ(Subjects("alice").size(), 2U);

    // What he removed meanwhile was his own; it comes back, and is there once.
    MustRun({"share", Mailbox("alice"), "Shared", "--with", "bob"});
    Settle({"alice", "bob"});
    MustRun({"accept", Mailbox("bob"), InvitationId("bob"), "--into", "Shared"});
    Settle({"bob", "alice"});
    EXPECT_EQ(Subjects("alice").size(), 2U);
    ExpectSame("alice", "Shared", "bob", "Shared");
}

// bob shares one of alice's two folders, and knows the ids of the other one's items.
TEST_F(ConsentTest, AMemberOfOneFolderTouchesNothingOfAnother)
{
    MakeMailboxes({"alice", "bob", "carol"});
    ShareWith({"carol"}, "Private");
    ShareWith({"bob"}, "Common");
    RunUntilIdle({"alice", "bob", "carol"}, kIdle);
    // As carol may, and bob may not: a new item, a change, and a deletion.
    const auto seal = [&](int step) {
        if (step == 0)
            MustRun({"import", Mailbox("carol"), "Private", Sample("07-attachment-csv").string()});
        else if (step == 1)
            Edit("carol", "changed", "Private");
        else
            MustRun({"delete", Mailbox("carol"), "Private", "1"});
        RunOnce("carol");
        RememberEpoch("carol");
        const auto files = ContentFor("alice");
        EXPECT_EQ(files.size(), 1U);
        return BytesOf(files.at(0));
    };
    for (int step = 0; step < 3; ++step) {
        const std::string content = seal(step);
        const auto before = Subjects("alice", "Private");
        // hers is withheld meanwhile
        const auto hers = DeviceOf("carol").Home() / "out";
        std::filesystem::rename(hers, Path("withheld"));
        Edit("bob", "step " + std::to_string(step), "Common");
        RunOnce("bob");
        RememberEpoch("bob");
        RunOnce("alice");
        Inject("bob", "alice", content, host::exchange::PackageKind::kItems);
        const Json counts = RunOnce("alice");
        EXPECT_EQ(counts.at("packagesRejected"), 1U) << step;
        EXPECT_EQ(Subjects("alice", "Private"), before) << step;
        std::filesystem::remove_all(hers);
        std::filesystem::rename(Path("withheld"), hers);
        std::filesystem::remove_all(DeviceOf("bob").Home() / "out");
        Settle({"alice", "carol"});
        EXPECT_NE(Subjects("alice", "Private"), before) << "carol may";
    }
    EXPECT_EQ(RefusedMembers("alice"), std::vector<std::string>{"bob"});
}

// carol was taken out. She founds an entry that has seen no more than when she was in, and sends what follows
// from it.
TEST_F(ConsentTest, WhatAFormerMemberDatesBackBringsNobodyIn)
{
    MakeMailboxes({"alice", "carol", "mallory"});
    ShareWith({"carol"});
    RunUntilIdle({"alice", "carol"}, kIdle);
    // What she knows from a note of hers.
    MustRun({"import", Mailbox("alice"), "Shared", Sample("07-attachment-csv").string()});
    Settle({"alice", "carol"});
    MustRun({"share", Mailbox("carol"), "Shared", "--with", "mallory"});
    RunOnce("carol");
    std::string note;
    for (const auto& package : Packages())
        if (const auto content = Open(package, KeysOf(Mailbox("alice"))))
            note = *content;
    ASSERT_FALSE(note.empty());
    auto told = host::exchange::ReadFolderNote(note);
    RememberEpoch("carol");
    // Before it reaches alice, she takes carol out.
    for (const auto& package : Packages())
        std::filesystem::remove(package);
    MustRun({"unshare", Mailbox("alice"), "Shared", "--with", "carol"});
    RunOnce("alice");

    Inject("carol", "alice", host::exchange::WriteFolderNote(told), host::exchange::PackageKind::kMembership);
    const Json counts = RunOnce("alice");

    EXPECT_EQ(counts.at("packagesRejected"), 1U);
    EXPECT_EQ(Status("alice").at("shares").at(0).at("members"), Json::array());
    EXPECT_EQ(RefusedMembers("alice"), std::vector<std::string>{"carol"});
}

TEST_F(ConsentTest, AMemberWhoIsRemovedIsOutOfAllThatThisMailboxFounded)
{
    MakeMailboxes({"alice", "bob"});
    ShareWith({"bob"}, "One");
    ShareWith({"bob"}, "Two");
    RunUntilIdle({"alice", "bob"}, kIdle);

    const Json removed = MustRun({"members", "remove", Mailbox("alice"), "bob", "--json"}).Value();
    EXPECT_EQ(removed.at("takenOutOf").size(), 2U);
    EXPECT_EQ(Run({"members", "remove", Mailbox("alice"), "nobody"}).exitCode, 1);
    Edit("alice", "not for bob", "One");
    Edit("bob", "from bob", "Two");
    RunOnce("bob");
    RunOnce("alice");

    EXPECT_FALSE(IsAnythingFor("bob"));
    EXPECT_EQ(std::ranges::count(Subjects("alice", "Two"), "from bob"), 0);
    EXPECT_TRUE(MustRun({"members", Mailbox("alice"), "--json"}).Value().at("members").empty());
}

// At any moment between the answer and the last item.
TEST_F(ConsentTest, AKillBetweenTheAnswerAndWhatItAsksForLosesNothingAndDoublesNothing)
{
    MakeMailboxes({"alice", "bob"});
    MustRun({"import", Mailbox("alice"), "Shared", Samples().string()});
    MustRun({"share", Mailbox("alice"), "Shared", "--with", "bob"});
    Settle({"alice", "bob"});
    MustRun({"accept", Mailbox("bob"), InvitationId("bob")});
    for (int round = 0; round < 6; ++round)
        for (const char* name : {"bob", "alice"}) {
            Process process = Start({"run", Mailbox(name), "-v"});
            Outcome outcome;
            ASSERT_FALSE(process.WaitFor(std::chrono::milliseconds(150 + 130 * round), outcome))
                << outcome.errors;
            process.Signal(SIGKILL);
            EXPECT_EQ(process.Wait().exitCode, 128 + SIGKILL);
        }

    RunUntilIdle({"alice", "bob"}, "1");

    EXPECT_EQ(Items("bob", "Shared").size(), 40U);
    ExpectSame("alice", "Shared", "bob", "Shared");
    EXPECT_FALSE(HasFolder("bob", "Shared (alice)"));
}

}  // namespace

}  // namespace quorvane::test
