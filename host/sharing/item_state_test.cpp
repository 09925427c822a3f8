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

}  // namespace
}  // namespace quorvane::host
