#include "host/mailbox/records.h"

#include "host/mailbox/item_text.h"
#include "host/mailbox/records_for_test.h"
#include "platform/testing/test_directory.h"

#include <gtest/gtest.h>

namespace quorvane::host {

namespace {

class RecordsTest : public ::testing::Test {
protected:
    RecordsTest() : path_((directory_ / "host.db").string()), records_(MakeTables(path_))
    {
        for (const char* member : {"alice", "bob", "carol", "dora"})
            Know(member);
    }

    void ShareWith(const std::vector<std::string>& members)
    {
        Share("{F}", "00AB", "Shared");
        for (const std::string& member : members)
            AddMember("{F}", member);
    }

    // What follows from a membership (shared_folders.h): a folder that is shared here, and members who are
    // owed all of it.
    void Share(const std::string& folderId, const std::string& entryId, const std::string& name)
    {
        Database database(path_, Database::Mode::kOpen);
        Statement(database,
                  "INSERT INTO share (folder_id, entry_id, store_id, name) VALUES (?, ?, '00CD', ?)")
            .Bind(1, folderId)
            .Bind(2, entryId)
            .Bind(3, name)
            .Run();
        Statement(database,
                  "INSERT INTO folder (founding, folder_id, state, name, inviter, since) VALUES (?1, ?1, 1, "
                  "?1, '', 0)")
            .Bind(1, folderId)
            .Run();
    }
    void AddMember(const std::string& folderId, const std::string& member)
    {
        Database database(path_, Database::Mode::kOpen);
        Statement(database, "INSERT INTO member (folder_id, name, announced) VALUES (?, ?, 0)")
            .Bind(1, folderId)
            .Bind(2, member)
            .Run();
        Statement(database,
                  "INSERT INTO folder_device (founding, device, has, told) SELECT ?, id, 1, 1 FROM device "
                  "WHERE member = ?")
            .Bind(1, folderId)
            .Bind(2, member)
            .Run();
        records_.AddResend(folderId, member, ResendScope::kEverything, 0);
    }
    void NoteHas(const std::string& member)
    {
        Database database(path_, Database::Mode::kOpen);
        Statement(database, "UPDATE member SET announced = 1 WHERE name = ?").Bind(1, member).Run();
    }

    // A package that was taken and is to go to these.
    void Plan(const std::string& path, const PackagePlan& plan)
    {
        records_.PlanPackage(records_.AddOutgoing(path, "00AB"), plan);
    }

    // Gives a member a device whose card is there.
    void Know(const std::string& member)
    {
        Database database(path_, Database::Mode::kOpen);
        Statement(database,
                  "INSERT OR IGNORE INTO device (id, member, card, how, pinned) VALUES (?1, ?1, '00', '', 1)")
            .Bind(1, member)
            .Run();
    }
    void Forget(const std::string& member)
    {
        Database database(path_, Database::Mode::kOpen);
        Statement(database, "DELETE FROM device WHERE member = ?").Bind(1, member).Run();
    }
    // What is for whom.
    std::vector<std::string> Delivered()
    {
        Database database(path_, Database::Mode::kOpen);
        Statement select(
            database, "SELECT sequence || ' ' || device || ' after ' || previous FROM delivery ORDER BY 1");
        std::vector<std::string> lines;
        while (select.Step())
            lines.push_back(select.Text(0));
        return lines;
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
TEST_F(RecordsTest, AnItemIsReplacedByItsLaterRecord)
{
    records_.PutItem({"{1}", "{F}", {7, "alice"}, false, 9});
    records_.PutItem({"{1}", "{F}", {8, "bob"}, true, 0});

    const auto item = records_.FindItem("{1}");
    ASSERT_TRUE(item);
    EXPECT_EQ(item->version, (ItemVersion{8, "bob"}));
    EXPECT_TRUE(item->deleted);
    EXPECT_EQ(records_.CountItems("{F}"), 0);
}

TEST_F(RecordsTest, ItemsAreFoundInTheOrderThatTheyAreAskedForIn)
{
    records_.PutItem({"{1}", "{F}", {7, "alice"}, false, 9});
    records_.PutItem({"{2}", "{G}", {8, "bob"}, true, 0});

    const auto items = records_.FindItems({"{2}", "{3}", "{1}", "{2}"});
    ASSERT_EQ(items.size(), 4U);
    EXPECT_EQ(items[0]->version, (ItemVersion{8, "bob"}));
    EXPECT_FALSE(items[1]);
    EXPECT_EQ(items[2]->modified, 9U);
    EXPECT_EQ(items[3]->id, "{2}");
}

class ManyItemsTest : public RecordsTest {
protected:
    static constexpr int kItems = 450;  // some pages

    static std::string Id(int number) { return std::to_string(1000 + number); }
    void SetUp() override
    {
        for (int number = kItems - 1; number >= 0; --number)
            records_.PutItem({Id(number), "{F}", {7, "alice"}, number % 10 == 0, 9});
        records_.PutItem({Id(3) + "-elsewhere", "{G}", {7, "alice"}, false, 9});
    }
    std::vector<std::string> Visited(
        Records::Deleted deleted, const std::function<void(const ItemRecord&)>& visit = [](const auto&) {})
    {
        std::vector<std::string> ids;
        records_.ForEachItem("{F}", deleted, [&](const ItemRecord& item) {
            ids.push_back(item.id);
            visit(item);
        });
        return ids;
    }
};

TEST_F(ManyItemsTest, AreVisitedByRisingIdWithOrWithoutDeletedOnes)
{
    std::vector<std::string> all, left;
    for (int number = 0; number < kItems; ++number) {
        all.push_back(Id(number));
        if (number % 10 != 0)
            left.push_back(Id(number));
    }
    EXPECT_EQ(Visited(Records::Deleted::kIncluded), all);
    EXPECT_EQ(Visited(Records::Deleted::kLeftOut), left);
    EXPECT_EQ(records_.CountItems("{F}"), static_cast<std::int64_t>(left.size()));
}

// Each visit writes its item and the last one anew, forgets the one of the next page and adds one.
TEST_F(ManyItemsTest, MayBeWrittenAndForgottenWhileTheyAreVisited)
{
    const auto ids = Visited(Records::Deleted::kIncluded, [&](const ItemRecord& item) {
        ItemRecord again = item;
        again.version.stamp = 8;
        records_.PutItem(again);
        again.id = Id(kItems - 1);
        records_.PutItem(again);
        const int number = std::stoi(item.id) - 1000;
        if (number < 200)
            records_.ForgetItem(Id(number + 200));
        records_.PutItem({"9" + item.id, "{F}", {7, "alice"}, false, 9});
    });

    EXPECT_EQ(ids.size(), kItems - 200U);
    EXPECT_EQ(ids.back(), Id(kItems - 1));
    EXPECT_EQ(records_.FindItem(Id(0))->version.stamp, 8U);
}

TEST_F(ManyItemsTest, OneThatCameToAnotherFolderMeanwhileIsNotVisited)
{
    const auto ids = Visited(Records::Deleted::kLeftOut, [&](const ItemRecord& item) {
        if (item.id == Id(1))
            records_.PutItem({Id(kItems - 1), "{G}", {8, "alice"}, false, 9});
    });

    EXPECT_EQ(ids.back(), Id(kItems - 2));
}

exchange::ItemHeads HeadsBy(unsigned char device, std::uint64_t stamp)
{
    exchange::Revision revision;
    revision.version.Raise(exchange::ChangerId{{device}});
    revision.stamp = stamp;
    revision.by.bytes[0] = device;
    revision.content[0] = device;
    exchange::ItemHeads heads;
    heads.Take(revision);
    return heads;
}

TEST_F(RecordsTest, WhatIsKnownOfAnItemIsKeptAndAConflictIsFound)
{
    ItemRecord record{"{1}", "{F}", {8, "bob"}, false, 9, HeadsBy(1, 7), false, true};
    records_.PutItem(record);
    EXPECT_TRUE(records_.ItemsInConflict().empty());
    record.heads.Take(HeadsBy(2, 8));
    records_.PutItem(record);

    const auto item = records_.FindItem("{1}");
    ASSERT_TRUE(item);
    EXPECT_EQ(item->heads, record.heads);
    EXPECT_FALSE(item->isWhole);
    EXPECT_TRUE(item->isPending);
    ASSERT_EQ(records_.ItemsInConflict().size(), 1U);
    ASSERT_EQ(records_.MissingItems().size(), 1U);
    EXPECT_EQ(records_.MissingItems()[0].id, "{1}");
    records_.SetModified("{1}", 10);
    EXPECT_TRUE(records_.FindItem("{1}")->isWhole) << "it was applied to the end";
    EXPECT_TRUE(records_.MissingItems().empty());
}

TEST_F(RecordsTest, AChangeIsSentWhenAPackageForAllHoldsItAsItIs)
{
    ShareWith({"bob"});
    records_.PutItem({"{1}", "{F}", {8, "bob"}, false, 9, HeadsBy(1, 7), true, true});
    PackagePlan plan;
    plan.members = {"bob"};
    plan.items = {{"{1}", "{F}", FormatHeads(HeadsBy(1, 7))}};
    Plan("/for-one", plan);
    EXPECT_TRUE(records_.FindItem("{1}")->isPending);
    plan.isForAll = true;
    plan.items[0].heads = FormatHeads(HeadsBy(1, 6));
    Plan("/of-before", plan);
    EXPECT_TRUE(records_.FindItem("{1}")->isPending);
    plan.items[0].heads = FormatHeads(HeadsBy(1, 7));

    Plan("/for-all", plan);

    EXPECT_FALSE(records_.FindItem("{1}")->isPending);
}

TEST_F(RecordsTest, APackageHasOneNumberForAllItsReceiversAndNamesTheOneBeforeToEach)
{
    ShareWith({"bob", "carol", "dora"});
    Forget("dora");
    Give("{1}", {"bob"});
    Give("{2}", {"bob", "carol"});
    Give("{3}", {"dora"});
    Give("{4}", {"bob"});

    EXPECT_EQ(Delivered(), (Names{"1 bob after 0", "2 bob after 1", "2 carol after 0", "3 bob after 2"}));
    const auto outgoing = records_.Outgoing();
    ASSERT_EQ(outgoing.size(), 4U);
    EXPECT_EQ(outgoing[1].sequence, 2U);
    EXPECT_EQ(outgoing[2].sequence, 0U) << "it is for nobody";
    EXPECT_TRUE(outgoing[2].isPlanned);
}

// Nothing passes for given that was sealed to nobody.
TEST_F(RecordsTest, AMemberWithoutADeviceIsOwedWhatPassedHimBy)
{
    ShareWith({"bob"});
    NoteHas("bob");
    records_.FinishResend(records_.FindResend("{F}", "bob")->number);
    Forget("bob");

    Give("{1}", {"bob"});

    ASSERT_TRUE(records_.FindResend("{F}", "bob"));
    EXPECT_EQ(records_.FindResend("{F}", "bob")->scope, ResendScope::kOwn);
    EXPECT_FALSE(records_.IsGiven(records_.FindResend("{F}", "bob")->number, "{1}"));
    EXPECT_FALSE(records_.IsReachable("{F}", "bob"));
}

// Who left, or a folder that was left, since the package was packed.
TEST_F(RecordsTest, WhoIsNoMemberIsOwedNothingByAPackageThatPassesHimBy)
{
    ShareWith({"bob"});
    Plan("/1", {{"carol"}, {{"{1}", "{F}"}}});
    Plan("/2", {{"bob"}, {{"{2}", "{LEFT}"}}});
    EXPECT_FALSE(records_.FindResend("{F}", "carol"));
    EXPECT_FALSE(records_.FindResend("{LEFT}", "bob"));
    EXPECT_TRUE(Delivered().empty());
}

TEST_F(RecordsTest, APlanIsMadeOnceWhateverMembersAreGivenLater)
{
    ShareWith({"bob", "carol"});
    const std::int64_t package = records_.AddOutgoing("/1", "00AB");
    records_.PlanPackage(package, {{"bob"}, {{"{1}", "{F}"}}});

    Records(path_).PlanPackage(package, {{"bob", "carol"}, {{"{1}", "{F}"}}});

    EXPECT_EQ(Delivered(), Names{"1 bob after 0"});
    EXPECT_TRUE(records_.IsPlanned(package));
    records_.NoteLaid(package, 100);
    EXPECT_TRUE(records_.Outgoing().at(0).isLaid);
}
// All three: a member's device, which has the folder, and was told that it is had here.
TEST_F(RecordsTest, APackageIsForThoseAloneWhoShareAllThatItHolds)
{
    ShareWith({"bob", "carol"});
    Share("{G}", "00AC", "Second");
    AddMember("{G}", "carol");
    Plan("/both", {{"bob", "carol"}, {{"{1}", "{F}"}, {"{2}", "{G}"}}});
    EXPECT_EQ(Delivered(), Names{"1 carol after 0"});

    Database database(path_, Database::Mode::kOpen);
    for (const char* what : {"has", "told", "is_in"}) {
        database.Execute("UPDATE folder_device SET " + std::string(what) + " = 0 WHERE device = 'bob'");
        EXPECT_FALSE(records_.MayGet("{F}", "bob")) << what;
        EXPECT_FALSE(records_.IsReachable("{F}", "bob")) << what;
        database.Execute("UPDATE folder_device SET " + std::string(what) + " = 1 WHERE device = 'bob'");
        EXPECT_TRUE(records_.MayGet("{F}", "bob"));
    }
    database.Execute("UPDATE folder SET state = 3");
    EXPECT_FALSE(records_.MayGet("{F}", "bob")) << "it was left";
}

TEST_F(RecordsTest, APackageIsNotedOnceUnderItsPath)
{
    EXPECT_EQ(records_.AddOutgoing("/1", "00AB"), records_.AddOutgoing("/1", "00AB"));
    EXPECT_EQ(records_.Outgoing().size(), 1U);
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
    NoteHas("bob");
    NoteHas("carol");
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
TEST_F(RecordsTest, FoldersThatWereSharedBeforeAnybodySignedForItAreSharedNoMoreAndRemembered)
{
    const std::string path = (directory_ / "old.db").string();
    Database database(path, Database::Mode::kCreate);
    database.Execute(
        "CREATE TABLE share (folder_id TEXT PRIMARY KEY, entry_id TEXT, store_id TEXT, name TEXT);"
        "CREATE TABLE member (folder_id TEXT, name TEXT, announced INTEGER NOT NULL, PRIMARY KEY (folder_id, "
        "name));"
        "CREATE TABLE mailbox (name TEXT NOT NULL, instance TEXT NOT NULL);"
        "CREATE TABLE outgoing (number INTEGER PRIMARY KEY AUTOINCREMENT, path TEXT NOT NULL UNIQUE, "
        "recipients TEXT NOT NULL, planned INTEGER NOT NULL DEFAULT 0);"
        "CREATE TABLE item (id TEXT PRIMARY KEY, folder_id TEXT NOT NULL, stamp INTEGER NOT NULL, member "
        "TEXT NOT NULL, deleted INTEGER NOT NULL, modified INTEGER NOT NULL);"
        "INSERT INTO item VALUES ('{I}', '{F}', 100, 'bob', 0, 7);"
        "CREATE TABLE delivery (package INTEGER, member TEXT, sequence INTEGER);"
        "CREATE TABLE sequence (member TEXT PRIMARY KEY, last INTEGER NOT NULL);"
        "CREATE TABLE received (sender TEXT PRIMARY KEY, last INTEGER NOT NULL);"
        "INSERT INTO mailbox VALUES ('alice', '0011223344556677');"
        "INSERT INTO outgoing (path, recipients, planned) VALUES ('/1', '00AB', 1);"
        "INSERT INTO delivery VALUES (1, 'bob', 4);"
        "INSERT INTO share VALUES ('{F}', '00AB', '00CD', 'Shared');"
        "INSERT INTO member VALUES ('{F}', 'bob', 1), ('{F}', 'carol', 0);");

    Records::Upgrade(database, 1);

    Records records(path);
    EXPECT_TRUE(records.Shares().empty());
    EXPECT_TRUE(records.Members("{F}").empty());
    EXPECT_TRUE(records.Resends().empty());
    Statement former(database, "SELECT folder_id || ' ' || entry_id || ' ' || name FROM former");
    ASSERT_TRUE(former.Step());
    EXPECT_EQ(former.Text(0), "{F} 00AB Shared");
    ASSERT_EQ(records.Outgoing().size(), 1U);
    EXPECT_FALSE(records.Outgoing()[0].isPlanned);
    const auto item = records.FindItem("{I}");
    ASSERT_TRUE(item);
    EXPECT_EQ(item->version, (ItemVersion{100, "bob"}));
    EXPECT_TRUE(item->isWhole);
    EXPECT_FALSE(item->isPending || item->heads.Shown());
    Statement version(database, "PRAGMA user_version");
    EXPECT_TRUE(version.Step());
    EXPECT_EQ(version.Number(0), Records::kVersion);
}

// As version 13 left them.
TEST_F(RecordsTest, WhatWasSharedBeforeThereWereTreesIsNone)
{
    const std::string path = MakeTables((directory_ / "before.db").string());
    Database database(path, Database::Mode::kOpen);
    database.Execute(
        "ALTER TABLE share DROP COLUMN tree; ALTER TABLE folder DROP COLUMN lies_in; ALTER TABLE folder DROP "
        "COLUMN follows; INSERT INTO share (folder_id, entry_id, store_id, name, flags) VALUES ('{F}', '00AB', "
        "'00CD', 'Shared', 1);"
        "INSERT INTO folder (founding, folder_id, state, name, inviter, since) VALUES ('ff', '{F}', 1, 'Shared', "
        "'', 7)");

    Records::Upgrade(database, 13);

    const auto share = Records(path).FindShare("{F}");
    ASSERT_TRUE(share);
    EXPECT_TRUE(share->hasFlags);
    EXPECT_FALSE(share->isTree);
    Statement folder(database, "SELECT lies_in, follows FROM folder");
    ASSERT_TRUE(folder.Step());
    EXPECT_EQ(folder.Text(0), "");
    EXPECT_EQ(folder.Number(1), 0);
}

}  // namespace

}  // namespace quorvane::host
