// A member with several devices: each of them gets everything, nobody else has to say whose they are, and one
// that is lost is taken out by another.
#include <algorithm>

#include "tests/program/program.h"
#include "tests/program/sealed.h"

namespace quorvane::test {

namespace {

// alice has a laptop, "alice", and a desktop, "desk".
class DevicesTest : public ProgramTest {
protected:
    void SetUp() override
    {
        ProgramTest::SetUp();
        MakeMailboxes({"alice", "bob"});
        MustRun({"init", Mailbox("desk"), "--name", "alice", "--exchange", Exchange()});
    }

    void Share(const std::string& folder, const std::string& by = "alice") const
    {
        MustRun({"import", Mailbox(by), folder, Sample("01-plain").string()});
        MustRun({"import", Mailbox(by), folder, Sample("07-attachment-csv").string()});
        MustRun({"share", Mailbox(by), folder, "--with", "bob"});
    }
    std::string IdOf(const std::string& name) const
    {
        return host::exchange::TextOf(KeysOf(Mailbox(name)).Id());
    }
    Outcome Link(const std::string& here, const std::string& other) const
    {
        return Run({"members", "link", Mailbox(here), IdOf(other), "--json"});
    }
    void LinkBoth() const
    {
        EXPECT_EQ(Link("alice", "desk").exitCode, 0);
        EXPECT_EQ(Link("desk", "alice").exitCode, 0);
    }
    Json RunOnce(const std::string& name) const
    {
        std::vector<std::string> arguments{"run", Mailbox(name), "--until-idle", "--idle-seconds",
                                           "0.5", "--json"};
        if (name == "bob")
            arguments.insert(arguments.end(), {"--accept-from", "alice"});
        const Outcome outcome = MustRun(arguments);
        return outcome.exitCode == 0 ? outcome.Value() : Json::object();
    }
    // Runs them by turns until nothing travels.
    void Settle(const std::vector<std::string>& names) const
    {
        RunByTurns(names, [this](const std::string& name) { return RunOnce(name); });
    }
    void Edit(const std::string& name, const std::string& subject, const std::string& folder = "Shared") const
    {
        MustRun({"edit", Mailbox(name), folder, "1", "--subject", subject});
    }
    bool Has(const std::string& name, const std::string& subject, const std::string& folder = "Shared") const
    {
        const auto items = Items(name, folder);
        return std::any_of(items.begin(), items.end(),
                           [&](const Json& item) { return item.at("subject") == subject; });
    }
    bool IsAnythingFor(const std::string& name) const
    {
        const auto packages = Packages();
        return std::any_of(packages.begin(), packages.end(), [&](const std::filesystem::path& package) {
            return Open(package, KeysOf(Mailbox(name))).has_value();
        });
    }
    // How a device came to be known, by its id; empty when it isn't.
    std::string HowKnown(const std::string& at, const std::string& device) const
    {
        const Json members = MustRun({"members", Mailbox(at), "--json"}).Value();
        for (const Json& known : members.at("members"))
            if (known.at("device") == IdOf(device))
                return known.at("member").get<std::string>() + ", " + known.at("how").get<std::string>();
        return {};
    }
    Json SharesOf(const std::string& name) const
    {
        return MustRun({"status", Mailbox(name), "--json"}).Value().at("shares");
    }
};

TEST_F(DevicesTest, ALinkedDeviceGetsAllThatItsMemberSharesAndNobodyElsePinsIt)
{
    Share("Shared");
    Settle({"alice", "bob"});
    const Outcome first = Link("alice", "desk"), second = Link("desk", "alice");
    EXPECT_EQ(first.Value().at("agrees"), false);
    EXPECT_EQ(second.Value().at("agrees"), true);
    Settle({"alice", "desk", "bob"});

    ExpectSame("alice", "Shared", "desk", "Shared");
    EXPECT_EQ(HowKnown("bob", "desk"), "alice, introduced by alice");
    EXPECT_EQ(HowKnown("alice", "desk"), "alice, linked");
    Edit("bob", "by bob");
    Settle({"bob", "alice", "desk"});
    EXPECT_TRUE(Has("desk", "by bob"));
    // The laptop is switched off meanwhile.
    Edit("desk", "at the desk");
    Settle({"desk", "bob"});
    EXPECT_TRUE(Has("bob", "at the desk"));
    MustRun({"delete", Mailbox("bob"), "Shared", "1"});
    Settle({"bob", "desk"});
    EXPECT_FALSE(Has("desk", "at the desk"));
    Settle({"alice", "desk", "bob"});
    ExpectSame("alice", "Shared", "desk", "Shared");
    ExpectSame("alice", "Shared", "bob", "Shared");
}

TEST_F(DevicesTest, WhatEitherDeviceSharesLaterIsAcceptedByTheOther)
{
    LinkBoth();
    Settle({"alice", "desk"});
    Share("Of the laptop");
    Settle({"alice", "desk", "bob"});
    MustRun({"members", "add", Mailbox("desk"), "bob"});
    MustRun({"members", "add", Mailbox("bob"), "alice", "--device", IdOf("desk")});
    Share("Of the desk", "desk");
    Settle({"desk", "alice", "bob"});

    ExpectSame("alice", "Of the laptop", "desk", "Of the laptop");
    ExpectSame("alice", "Of the desk", "desk", "Of the desk");
    ExpectSame("alice", "Of the desk", "bob", "Of the desk");
}

TEST_F(DevicesTest, ALinkIsSaidOnBothDevicesInWhateverOrderAndHoweverOften)
{
    Share("Shared");
    EXPECT_EQ(Link("desk", "alice").Value().at("agrees"), false);
    Settle({"desk", "alice", "bob"});
    EXPECT_TRUE(SharesOf("desk").empty()) << "the laptop's user has said nothing";

    const Json linked = Link("alice", "desk").Value();
    EXPECT_EQ(linked.at("agrees"), true);
    EXPECT_EQ(linked.at("folders"), 1);
    EXPECT_EQ(Link("alice", "desk").Value().at("folders"), 0);
    EXPECT_EQ(Link("desk", "alice").exitCode, 0);
    Settle({"alice", "desk", "bob"});
    ExpectSame("alice", "Shared", "desk", "Shared");
    EXPECT_EQ(SharesOf("desk").size(), 1U);
}

TEST_F(DevicesTest, NothingIsLinkedButAnotherDeviceOfTheSameName)
{
    EXPECT_EQ(Link("alice", "bob").exitCode, 1);
    EXPECT_EQ(Link("alice", "alice").exitCode, 2);
    EXPECT_EQ(Run({"members", "link", Mailbox("alice"), "desk"}).exitCode, 2);
    EXPECT_EQ(Run({"members", "link", Mailbox("alice"), std::string(32, '0')}).exitCode, 1);
    EXPECT_EQ(Run({"members", "unlink", Mailbox("alice"), IdOf("desk")}).exitCode, 1);
    EXPECT_EQ(Run({"members", "unlink", Mailbox("alice"), IdOf("bob")}).exitCode, 1);
    MustRun({"init", Mailbox("other"), "--name", "carol", "--exchange", Exchange()});
    const Outcome other = Link("alice", "other");
    EXPECT_EQ(other.exitCode, 1);
    EXPECT_NE(other.errors.find("carol"), std::string::npos) << other.errors;
    EXPECT_EQ(HowKnown("alice", "bob"), "bob, name");
}

// Who names himself as alice does, and says that her laptop is his.
TEST_F(DevicesTest, AStrangerOfTheSameNameWhoLinksHimselfGetsNothing)
{
    Share("Shared");
    EXPECT_EQ(Link("desk", "alice").exitCode, 0);
    Settle({"desk", "alice", "bob", "desk", "alice"});
    EXPECT_TRUE(SharesOf("desk").empty());
    EXPECT_FALSE(IsAnythingFor("desk"));
    EXPECT_EQ(HowKnown("alice", "desk"), "");
    EXPECT_EQ(HowKnown("bob", "desk"), "");
}

TEST_F(DevicesTest, ALostDeviceIsTakenOutByAnotherAndTheMemberStays)
{
    Share("Shared");
    LinkBoth();
    Settle({"alice", "desk", "bob"});
    const Json unlinked = MustRun({"members", "unlink", Mailbox("desk"), IdOf("alice"), "--json"}).Value();
    EXPECT_EQ(unlinked.at("takenOutOf"), Json::array({"Shared"}));
    EXPECT_TRUE(unlinked.at("stillIn").empty());
    Settle({"desk", "bob"});

    Edit("bob", "not for the thief");
    Edit("alice", "by the thief");
    Settle({"bob", "desk"});
    EXPECT_FALSE(IsAnythingFor("alice"));
    RunOnce("alice");
    Settle({"bob", "desk"});
    for (const char* name : {"bob", "desk"}) {
        EXPECT_TRUE(Has(name, "not for the thief")) << name;
        EXPECT_FALSE(Has(name, "by the thief")) << name;
    }
    EXPECT_FALSE(Has("alice", "not for the thief"));
    ExpectSame("bob", "Shared", "desk", "Shared");
    // She founded it, with whatever device.
    MustRun({"unshare", Mailbox("desk"), "Shared", "--with", "bob"});
    Settle({"desk", "bob"});
    EXPECT_TRUE(SharesOf("bob").empty());
}

TEST_F(DevicesTest, ADeviceThatLeavesOrDeclinesTakesOutItselfAlone)
{
    Share("Shared");
    LinkBoth();
    Settle({"alice", "desk", "bob"});
    MustRun({"leave", Mailbox("desk"), "Shared"});
    Settle({"desk", "alice", "bob"});
    EXPECT_TRUE(SharesOf("desk").empty());
    ASSERT_EQ(SharesOf("alice").size(), 1U);
    Edit("bob", "after that");
    Settle({"bob", "alice"});
    EXPECT_TRUE(Has("alice", "after that"));
    EXPECT_FALSE(IsAnythingFor("desk")) << "it isn't linked again by itself";

    EXPECT_EQ(Link("alice", "desk").Value().at("folders"), 1) << "but where the user says so";
    Settle({"alice", "desk", "bob"});
    EXPECT_TRUE(Has("desk", "after that", "Shared (alice)"));
}

}  // namespace

}  // namespace quorvane::test
