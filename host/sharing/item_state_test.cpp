#include "host/sharing/item_state.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "host/sharing/test_mailbox.h"

namespace quorvane::host {
namespace {

class ReceivingTest : public ::testing::Test {
protected:
    // As the engine notes a package that it was given.
    void Give()
    {
        std::ofstream(file) << "a package";
        here.Execute("INSERT INTO tblUnfinishedReceiveJob (Path, Tag) VALUES ('" + file.string() +
                     "', 'alice')");
    }
    void RemoveRow() { here.Execute("DELETE FROM tblUnfinishedReceiveJob"); }

    SharedTestMailbox here;
    const std::filesystem::path file = here.directory / "received.qvt";
};

TEST_F(ReceivingTest, APackageIsWorkedOffUntilItsFileAndThenItsRowAreGone)
{
    EXPECT_FALSE(here.state.IsReceiving());
    Give();
    EXPECT_TRUE(here.state.IsReceiving());

    std::filesystem::remove(file);
    EXPECT_TRUE(here.state.IsReceiving());

    RemoveRow();
    EXPECT_FALSE(here.state.IsReceiving());
}

TEST_F(ReceivingTest, ARowThatAKilledRunLeftIsntWaitedForWithoutEnd)
{
    Give();
    std::filesystem::remove(file);
    const auto start = std::chrono::steady_clock::now();

    EXPECT_TRUE(here.state.IsReceiving(start));
    EXPECT_TRUE(here.state.IsReceiving(start + std::chrono::seconds(29)));
    EXPECT_FALSE(here.state.IsReceiving(start + std::chrono::seconds(31)));
}

TEST(ItemStateTest, RowsOfSeveralMessagesComeInTheirOrderAsEachWouldByItself)
{
    SharedTestMailbox here;
    const auto addRow = [&](const std::string& id, const std::string& entryId) {
        Check(here.engine.Session().ImportItem(BstrOf(id).Get(), BstrOf(entryId).Get(),
                                               BstrOf(here.share.storeId).Get()),
              "add a row of", id);
    };
    addRow("{A}", "01");
    addRow("{STRAY}", "02");
    addRow("{KNOWN}", "02");
    here.records.PutItem({"{KNOWN}", "{F}", {100, "alice"}, false, 0});

    const auto rows = here.state.RowsOf({"02", "03", "01"});

    ASSERT_EQ(rows.size(), 3U);
    ASSERT_TRUE(rows[0] && rows[2]);
    EXPECT_EQ(rows[0]->id, "{KNOWN}");
    EXPECT_FALSE(rows[1]);
    EXPECT_EQ(rows[2]->id, "{A}");
    addRow("{LATER}", "03");  // the database isn't held
    EXPECT_EQ(here.state.RowsOf({"03"})[0]->id, "{LATER}");
}

}  // namespace
}  // namespace quorvane::host
