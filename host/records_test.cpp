#include "host/records.h"
#include "platform/testing/test_directory.h"

#include <gtest/gtest.h>


namespace quorvane::host {

namespace {

class RecordsTest : public ::testing::Test {
protected:
    RecordsTest() : path_((directory_ / "host.db").string()), records_(MakeTables(path_)) {}

    static std::string MakeTables(const std::string& path)
    {
        Database database(path, Database::Mode::kCreate);
        Records::CreateTables(database, "alice", "0011223344556677");
        return path;
    }

    void ShareWith(const std::vector<std::string>& members)
    {
        records_.AddShare({"{F}", "00AB", "00CD", "Shared"});
        for (const std::string& member : members)
            records_.AddMember("{F}", member);
    }

    // A package that was taken and is to go to these.
    std::vector<Delivery> Plan(const std::string& path, const PackagePlan& plan)
    {
        return records_.PlanDeliveries(records_.AddOutgoing(path, "00AB"), plan);
    }

    // The announcement to one member that names so many.
    void Announce(const std::string& member, std::size_t membersNamed)
    {
        PackagePlan plan;
        plan.members = {member};
        plan.announcedFolder = "{F}";
        plan.membersNamed = membersNamed;
        Plan("/to-" + member + std::to_string(membersNamed), plan);
    }
    // An item for these.
    void Give(const std::string& item, const std::vector<std::string>& members)
    {
        PackagePlan plan;
        plan.members = members;
        plan.items = {{item, "{F}"}};
        Plan("/items-" + std::to_string(++packages_), plan);
    }
    using Names = std::vector<std::string>;

    test::TestDirectory directory_;
    std::string path_;
    Records records_;
    int packages_ = 0;
};

TEST_F(RecordsTest, AShareIsFoundByBothItsIdentifiers)
{
    ShareWith({});

    EXPECT_EQ(records_.FindShare("{F}")->name, "Shared");
    EXPECT_EQ(records_.FindShareByEntryId("00AB")->folderId, "{F}");
    EXPECT_FALSE(records_.FindShare("{G}"));
}

TEST_F(RecordsTest, AMemberIsAddedOnceAndKeepsWhatItWasTold)
{
    ShareWith({"bob"});
    Announce("bob", 2);

    EXPECT_FALSE(records_.AddMember("{F}", "bob"));
    EXPECT_EQ(records_.Members("{F}", true), (std::vector<std::string>{"bob"}));
}

TEST_F(RecordsTest, AnItemIsReplacedByItsLaterRecord)
{
    records_.PutItem({"{1}", "{F}", {7, "alice"}, false, 9});
    records_.PutItem({"{1}", "{F}", {8, "bob"}, true, 0});

    const auto item = records_.FindItem("{1}");
    ASSERT_TRUE(item);
    EXPECT_EQ(item->version, (ItemVersion{8, "bob"}));
    EXPECT_TRUE(item->deleted);
    EXPECT_TRUE(records_.ItemsOf("{F}").empty());
}

TEST_F(RecordsTest, SequenceNumbersToAMemberRiseByOne)
{
    ShareWith({"bob", "carol"});
    const auto first = Plan("/1", {{"bob"}, {}, 0, {}});
    const auto second = Plan("/2", {{"bob", "carol"}, {}, 0, {}});

    ASSERT_EQ(first.size(), 1U);
    EXPECT_EQ(first[0].sequence, 1U);
    ASSERT_EQ(second.size(), 2U);
    EXPECT_EQ(second[0].sequence, 2U);
    EXPECT_EQ(second[1].sequence, 1U);
}

TEST_F(RecordsTest, APlanIsMadeOnceWhateverMembersAreGivenLater)
{
    const std::int64_t package = records_.AddOutgoing("/1", "00AB");
    records_.PlanDeliveries(package, {{"bob"}, {}, 0, {}});

    const auto again = Records(path_).PlanDeliveries(package, {{"bob", "carol"}, {}, 0, {}});

    ASSERT_EQ(again.size(), 1U);
    EXPECT_EQ(again[0].member, "bob");
    EXPECT_EQ(again[0].sequence, 1U);
}

TEST_F(RecordsTest, AFinishedDeliveryIsNotPlannedAgain)
{
    const std::int64_t package = records_.AddOutgoing("/1", "00AB");
    records_.PlanDeliveries(package, {{"bob"}, {}, 0, {}});
    records_.FinishDelivery(package, "bob");

    EXPECT_TRUE(records_.IsPlanned(package));
    EXPECT_TRUE(records_.PlanDeliveries(package, {{"bob"}, {}, 0, {}}).empty());
}

TEST_F(RecordsTest, APackageIsNotedOnceUnderItsPath)
{
    EXPECT_EQ(records_.AddOutgoing("/1", "00AB"), records_.AddOutgoing("/1", "00AB"));
    EXPECT_EQ(records_.Outgoing().size(), 1U);
}

TEST_F(RecordsTest, ANewMemberIsToldOfTheFolderAndOwedAllOfItAndNobodyElseIs)
{
    ShareWith({"bob"});
    Announce("bob", 2);
    records_.FinishResend(records_.FindResend("{F}", "bob")->number);

    EXPECT_TRUE(records_.AddMember("{F}", "carol"));

    EXPECT_EQ(records_.MembersToTell("{F}"), Names{"carol"});
    ASSERT_EQ(records_.Resends().size(), 1U);
    EXPECT_EQ(records_.Resends()[0].member, "carol");
    EXPECT_EQ(records_.Resends()[0].scope, ResendScope::kEverything);
    EXPECT_EQ(records_.Members("{F}", true), Names{"bob"});
    Announce("carol", 3);
    EXPECT_EQ(records_.Members("{F}", true), (Names{"bob", "carol"}));
    EXPECT_TRUE(records_.MembersToTell("{F}").empty());
}

TEST_F(RecordsTest, AMemberHearsOfANewOneWithTheNextThatIsSentToItOrComesFromIt)
{
    ShareWith({"bob", "dora"});
    Announce("bob", 3);
    Announce("dora", 3);
    records_.NoteHeardFrom("{F}", "bob");
    EXPECT_TRUE(records_.MembersToTell("{F}").empty());
    records_.AddMember("{F}", "carol");
    Announce("carol", 4);
    EXPECT_TRUE(records_.MembersToTell("{F}").empty());

    records_.NoteHeardFrom("{F}", "bob");
    EXPECT_EQ(records_.MembersToTell("{F}"), Names{"bob"});
    Give("{1}", {"carol", "dora"});
    EXPECT_EQ(records_.MembersToTell("{F}"), (Names{"bob", "dora"}));
    Announce("bob", 4);
    Announce("dora", 4);
    EXPECT_TRUE(records_.MembersToTell("{F}").empty());
}

TEST_F(RecordsTest, ALearnedMemberHasTheFolderAndIsOwedWhatWasMadeHere)
{
    ShareWith({"alice"});
    Announce("alice", 2);
    records_.FinishResend(records_.FindResend("{F}", "alice")->number);

    records_.LearnMembers("{F}", {"alice", "carol"}, true);

    EXPECT_EQ(records_.Members("{F}", true), (Names{"alice", "carol"}));
    ASSERT_EQ(records_.Resends().size(), 1U);
    EXPECT_EQ(records_.Resends()[0].member, "carol");
    EXPECT_EQ(records_.Resends()[0].scope, ResendScope::kOwn);
    records_.NoteHeardFrom("{F}", "alice");
    records_.NoteHeardFrom("{F}", "carol");
    EXPECT_TRUE(records_.MembersToTell("{F}").empty());
}

// dora, whom the announcement didn't name, isn't known to its sender.
TEST_F(RecordsTest, WhoAnnouncesFewerMembersThanAreKnownHereIsToldOfTheOthers)
{
    ShareWith({"alice", "dora"});
    Announce("alice", 2);
    Announce("dora", 3);

    records_.LearnMembers("{F}", {"alice", "carol"}, true);
    records_.NoteHeardFrom("{F}", "alice");

    EXPECT_EQ(records_.MembersToTell("{F}"), Names{"alice"});
}

TEST_F(RecordsTest, WhatAPackageHoldsIsntOwedToItsMembersAnyMore)
{
    ShareWith({"bob", "carol"});
    const std::int64_t toBob = records_.FindResend("{F}", "bob")->number;
    const std::int64_t toCarol = records_.FindResend("{F}", "carol")->number;

    Give("{1}", {"bob"});

    EXPECT_TRUE(records_.IsGiven(toBob, "{1}"));
    EXPECT_FALSE(records_.IsGiven(toBob, "{2}"));
    EXPECT_FALSE(records_.IsGiven(toCarol, "{1}"));
    EXPECT_EQ(records_.CountGiven(toBob), 1);
}

TEST_F(RecordsTest, OthersHaveAnItemUnlessTheyAreYetToBeGivenIt)
{
    ShareWith({"bob", "carol"});
    Announce("bob", 3);
    Announce("carol", 3);
    const ResendRecord toBob = *records_.FindResend("{F}", "bob");
    EXPECT_FALSE(records_.OthersHave(toBob, "{1}"));

    Give("{1}", {"carol"});
    EXPECT_TRUE(records_.OthersHave(toBob, "{1}"));
    EXPECT_FALSE(records_.OthersHave(toBob, "{2}"));

    records_.FinishResend(records_.FindResend("{F}", "carol")->number);
    EXPECT_TRUE(records_.OthersHave(toBob, "{2}"));
}

TEST_F(RecordsTest, ACancelledResendKeepsWhatWasGivenAndGoesOnFromThere)
{
    ShareWith({"bob"});
    Give("{1}", {"bob"});
    const std::int64_t number = records_.FindResend("{F}", "bob")->number;

    EXPECT_EQ(records_.CancelResends("{G}", ""), 0);
    EXPECT_EQ(records_.CancelResends("{F}", "bob"), 1);
    EXPECT_EQ(records_.CancelResends("", ""), 0);
    EXPECT_TRUE(records_.FindResend(number)->cancelled);

    records_.AddResend("{F}", "bob", ResendScope::kChanged, 0);
    EXPECT_FALSE(records_.FindResend(number)->cancelled);
    EXPECT_EQ(records_.FindResend(number)->scope, ResendScope::kEverything);
    EXPECT_TRUE(records_.IsGiven(number, "{1}"));
}

TEST_F(RecordsTest, AResendOfEverythingBeginsAnewAndOneFromADateOnDoesntTakeItsPlace)
{
    ShareWith({"bob"});
    Give("{1}", {"bob"});

    records_.AddResend("{F}", "bob", ResendScope::kEverything, 7);
    EXPECT_EQ(records_.FindResend("{F}", "bob")->since, 0U);
    EXPECT_TRUE(records_.IsGiven(records_.FindResend("{F}", "bob")->number, "{1}"));

    records_.AddResend("{F}", "bob", ResendScope::kEverything, 0);
    EXPECT_FALSE(records_.IsGiven(records_.FindResend("{F}", "bob")->number, "{1}"));
    ASSERT_EQ(records_.Resends().size(), 1U);
}

TEST_F(RecordsTest, AnUnsentItemIsForgottenOnceAPackageHoldsIt)
{
    ShareWith({"bob"});
    records_.PutUnsent({"{1}", "{F}", "Hello", "its message is missing"});
    records_.PutUnsent({"{2}", "{F}", "World", "its message is missing"});

    Give("{1}", {"bob"});

    ASSERT_EQ(records_.Unsent().size(), 1U);
    EXPECT_EQ(records_.Unsent()[0].subject, "World");
    records_.ForgetUnsent("{2}");
    EXPECT_TRUE(records_.Unsent().empty());
}

// The tables as version 1 of the program left them.
TEST_F(RecordsTest, RecordsOfTheFirstVersionKeepWhatTheyTellAndOweWhatTheyOwed)
{
    const std::string path = (directory_ / "old.db").string();
    Database database(path, Database::Mode::kCreate);
    database.Execute(
        "CREATE TABLE share (folder_id TEXT PRIMARY KEY, entry_id TEXT, store_id TEXT, name TEXT);"
        "CREATE TABLE member (folder_id TEXT, name TEXT, announced INTEGER NOT NULL, PRIMARY KEY (folder_id, name));"
        "INSERT INTO share VALUES ('{F}', '00AB', '00CD', 'Shared');"
        "INSERT INTO member VALUES ('{F}', 'bob', 1), ('{F}', 'carol', 0);");

    Records::Upgrade(database, 1);

    Records records(path);
    EXPECT_EQ(records.Members("{F}", true), Names{"bob"});
    EXPECT_EQ(records.MembersToTell("{F}"), Names{"carol"});
    ASSERT_EQ(records.Resends().size(), 1U);
    EXPECT_EQ(records.Resends()[0].member, "carol");
    Statement version(database, "PRAGMA user_version");
    EXPECT_TRUE(version.Step());
    EXPECT_EQ(version.Number(0), Records::kVersion);
}

TEST_F(RecordsTest, WhatWasReceivedIsRememberedPerSender)
{
    records_.SetLastReceived("bob~1", 4);

    EXPECT_EQ(Records(path_).LastReceived("bob~1"), 4U);
    EXPECT_EQ(records_.LastReceived("bob~2"), 0U);
}

}  // namespace

}  // namespace quorvane::host
