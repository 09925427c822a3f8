#include "host/mailbox/flag_records.h"

#include <gtest/gtest.h>

#include "host/mailbox/records_for_test.h"
#include "platform/testing/test_directory.h"

namespace quorvane::host {

namespace {

class FlagRecordsTest : public ::testing::Test {
protected:
    static FlagRecord Marked(const std::string& item, std::uint8_t shown, bool isPending = false,
                             std::uint8_t due = 0)
    {
        FlagRecord record{item, "{F}", {}, isPending, due};
        record.flags.Show(shown, 100, exchange::DeviceId{});
        return record;
    }

    test::TestDirectory directory;
    const std::string path = MakeTables((directory / "host.db").string());
    Records records{path};
    FlagRecords flags{path};
};

TEST_F(FlagRecordsTest, TheyAreFoundAsTheyWerePut)
{
    flags.Put({Marked("{A}", 3, true), Marked("{B}", 4)});
    const auto found = flags.Find("{A}");
    ASSERT_TRUE(found);
    EXPECT_EQ(found->flags, Marked("{A}", 3).flags);
    EXPECT_EQ(found->folderId, "{F}");
    EXPECT_TRUE(found->isPending);
    EXPECT_FALSE(flags.Find("{C}"));
    EXPECT_EQ(flags.Of("{F}").size(), 2U);
    EXPECT_EQ(flags.Of("{G}").size(), 0U);
    EXPECT_EQ(flags.Pending("{F}", 10).size(), 1U);
    EXPECT_EQ(flags.Pending("{F}", 0).size(), 0U);
}

// An earlier version noted only whether anything was.
TEST_F(FlagRecordsTest, WhatWasDueBeforeEachFlagWasNotedIsAllOfThem)
{
    Database database(path, Database::Mode::kOpen);
    database.Execute(
        "ALTER TABLE share DROP COLUMN tree; ALTER TABLE folder DROP COLUMN lies_in; ALTER TABLE folder DROP "
        "COLUMN follows; DROP INDEX item_flags_due; CREATE INDEX item_flags_due ON item_flags (item) WHERE due = "
        "1");
    flags.Put({Marked("{A}", 3, false, 1), Marked("{B}", 3)});

    Records::Upgrade(database, 12);

    EXPECT_EQ(flags.Find("{A}")->due, 15U);
    EXPECT_EQ(flags.Find("{B}")->due, 0U);
}

TEST_F(FlagRecordsTest, WhatIsDueIsShownOnceItsItemIsHere)
{
    flags.Put({Marked("{A}", 3, false, 2)});
    EXPECT_TRUE(flags.Due().empty());
    EXPECT_EQ(flags.CountWaiting("{F}"), 1);
    ItemRecord item{"{A}", "{F}", {1, "alice"}, false, 0};
    item.isWhole = false;
    records.PutItem(item);
    EXPECT_TRUE(flags.Due().empty());
    EXPECT_EQ(flags.CountWaiting("{F}"), 0);
    records.SetModified("{A}", 5);
    ASSERT_EQ(flags.Due().size(), 1U);
    EXPECT_EQ(flags.Due()[0].due, 2U);
    flags.NoteShown(Marked("{A}", 1));
    EXPECT_EQ(flags.Due().size(), 1U) << "they have changed since";
    flags.NoteShown(flags.Due()[0]);
    EXPECT_TRUE(flags.Due().empty());
}

TEST_F(FlagRecordsTest, AnItemThatIsDeletedOrForgottenHasNone)
{
    flags.Put({Marked("{A}", 3), Marked("{B}", 3)});
    records.PutItem({"{A}", "{F}", {1, "alice"}, false, 0});
    EXPECT_TRUE(flags.Find("{A}"));
    records.PutItem({"{A}", "{F}", {2, "alice"}, true, 0});
    EXPECT_FALSE(flags.Find("{A}"));
    records.ForgetItem("{B}");
    EXPECT_FALSE(flags.Find("{B}"));
}

TEST_F(FlagRecordsTest, WhatChangedAgainSinceItWasPackedIsStillToBeSent)
{
    flags.Put({Marked("{A}", 3, true)});
    const auto packed = flags.Pending("{F}", 10);
    flags.Put({Marked("{A}", 1, true)});
    flags.NoteGoing({{}, "00AB", {}, packed, "{F}", false});
    EXPECT_TRUE(flags.HasPending());
    flags.NoteGoing({{}, "00AB", {}, flags.Pending("{F}", 10), "{F}", false});
    EXPECT_FALSE(flags.HasPending());
}

}  // namespace

}  // namespace quorvane::host
