#include "host/records.h"

#include <gtest/gtest.h>

#include "host/test_directory.h"

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
            records_.AddMember("{F}", member, false);
    }

    TestDirectory directory_;
    std::string path_;
    Records records_;
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
    records_.PlanDeliveries(records_.AddOutgoing("/p", "to:bob:{F}"), {"bob"}, "{F}");

    EXPECT_FALSE(records_.AddMember("{F}", "bob", false));
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
    const auto first = records_.PlanDeliveries(records_.AddOutgoing("/1", "00AB"), {"bob"}, {});
    const auto second = records_.PlanDeliveries(records_.AddOutgoing("/2", "00AB"), {"bob", "carol"}, {});

    ASSERT_EQ(first.size(), 1U);
    EXPECT_EQ(first[0].sequence, 1U);
    ASSERT_EQ(second.size(), 2U);
    EXPECT_EQ(second[0].sequence, 2U);
    EXPECT_EQ(second[1].sequence, 1U);
}

TEST_F(RecordsTest, APlanIsMadeOnceWhateverMembersAreGivenLater)
{
    const std::int64_t package = records_.AddOutgoing("/1", "00AB");
    records_.PlanDeliveries(package, {"bob"}, {});

    const auto again = Records(path_).PlanDeliveries(package, {"bob", "carol"}, {});

    ASSERT_EQ(again.size(), 1U);
    EXPECT_EQ(again[0].member, "bob");
    EXPECT_EQ(again[0].sequence, 1U);
}

TEST_F(RecordsTest, AFinishedDeliveryIsNotPlannedAgain)
{
    const std::int64_t package = records_.AddOutgoing("/1", "00AB");
    records_.PlanDeliveries(package, {"bob"}, {});
    records_.FinishDelivery(package, "bob");

    EXPECT_TRUE(records_.PlanDeliveries(package, {"bob"}, {}).empty());
}

TEST_F(RecordsTest, APackageIsNotedOnceUnderItsPath)
{
    EXPECT_EQ(records_.AddOutgoing("/1", "00AB"), records_.AddOutgoing("/1", "00AB"));
    EXPECT_EQ(records_.Outgoing().size(), 1U);
}

TEST_F(RecordsTest, WhatWasReceivedIsRememberedPerSender)
{
    records_.SetLastReceived("bob~1", 4);

    EXPECT_EQ(Records(path_).LastReceived("bob~1"), 4U);
    EXPECT_EQ(records_.LastReceived("bob~2"), 0U);
}

}  // namespace

}  // namespace quorvane::host
