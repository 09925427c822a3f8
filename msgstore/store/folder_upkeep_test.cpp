// Long works of folders: others write in between, and the file gives back what became free.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "msgstore/store/ask_store.h"
#include "msgstore/store/folder_contents.h"
#include "msgstore/store/test_mailbox.h"

namespace quorvane {
namespace {

using namespace quorvane::testing;

class FolderUpkeepTest : public ::testing::Test {
protected:
    FolderUpkeepTest() { EXPECT_EQ(StoreCore::Open(mailbox.StorePath(), false, core), S_OK); }

    void Fill(IMAPIFolder& folder, int messages, std::size_t size)
    {
        const OleString body(size / sizeof(OLECHAR), OLESTR('x'));
        for (int i = 0; i < messages; ++i) {
            ComPtr<IMessage> message;
            ASSERT_EQ(folder.CreateMessage(nullptr, 0, message.Put()), S_OK);
            ASSERT_EQ(SetText(*message, PR_BODY_W, body), S_OK);
            ASSERT_EQ(message->SaveChanges(MAPI_DEFERRED_ERRORS), S_OK);
        }
    }
    std::int64_t Ask(const char* sql) { return AskStore(*core, sql); }

    TestMailbox mailbox;
    std::shared_ptr<StoreCore> core;
};

// Steps on a machine that is so slow that each is over when it begins.
TEST_F(FolderUpkeepTest, AStepThatIsOverDeletesOneMessageAndLeavesTheRestForTheNext)
{
    ASSERT_NO_FATAL_FAILURE(Fill(mailbox.Inbox(), 3, 100));
    const StepTime time;
    while (!time.IsOver())
        std::this_thread::yield();
    const auto step = [&](SqliteConnection& connection) {
        return EmptyFolderRows(connection, 3, false, time);
    };

    for (const std::int64_t left : {2, 1, 0}) {
        EXPECT_EQ(core->Write(Durability::AtReturn, step), S_FALSE);
        EXPECT_EQ(Ask("SELECT count(*) FROM message"), left);
    }
    EXPECT_EQ(core->Write(Durability::AtReturn, step), S_OK);
}

TEST_F(FolderUpkeepTest, OthersWriteBetweenTheStepsOfALongWork)
{
    std::atomic<bool> begun{false};
    std::atomic<bool> written{false};
    int stepsWithoutIt = 0;
    std::thread other([&] {
        while (!begun)
            std::this_thread::yield();
        EXPECT_EQ(core->Write(Durability::Deferred,
                              [](SqliteConnection& connection) {
                                  return connection.Run("UPDATE store SET flushes=flushes+1");
                              }),
                  S_OK);
        written = true;
    });

    // Ends by itself when the other has had its turn, and else not for long.
    constexpr int kMostSteps = 250;
    EXPECT_EQ(core->WriteInSteps([&](SqliteConnection&) {
        const StepTime time;
        begun = true;
        while (!time.IsOver())
            std::this_thread::yield();
        return written || ++stepsWithoutIt == kMostSteps ? S_OK : S_FALSE;
    }),
              S_OK);

    EXPECT_LT(stepsWithoutIt, kMostSteps);
    other.join();
}

TEST_F(FolderUpkeepTest, AFailedStepLeavesWhatThoseBeforeItDid)
{
    int steps = 0;
    EXPECT_EQ(core->WriteInSteps([&](SqliteConnection& connection) -> HRESULT {
        QV_RETURN_IF_FAILED(connection.Run("UPDATE store SET flushes=flushes+1"));
        return ++steps < 3 ? S_FALSE : MAPI_E_NOT_ENOUGH_DISK;
    }),
              MAPI_E_NOT_ENOUGH_DISK);
    EXPECT_EQ(Ask("SELECT flushes FROM store"), 2);
}

TEST_F(FolderUpkeepTest, AnEmptiedFolderGivesItsSpaceBack)
{
    const std::int64_t before = Ask("PRAGMA page_count");
    const ComPtr<IMAPIFolder> folder = mailbox.MakeFolder(mailbox.Inbox(), "large");
    ASSERT_NO_FATAL_FAILURE(Fill(*folder, 100, 100 * 1024));
    const std::int64_t full = Ask("PRAGMA page_count");
    ASSERT_GT(full, before + 2000);

    ASSERT_EQ(mailbox.Inbox().EmptyFolder(0, nullptr, 0), S_OK);

    EXPECT_LT(Ask("PRAGMA page_count"), before + 1000);
    EXPECT_EQ(Ask("SELECT count(*) FROM pragma_integrity_check WHERE "
                  "integrity_check <> 'ok'"),
              0);
}

TEST_F(FolderUpkeepTest, ADeletedFolderGoesWithAllThatIsBelow)
{
    const ComPtr<IMAPIFolder> folder = mailbox.MakeFolder(mailbox.Inbox(), "upper");
    const ComPtr<IMAPIFolder> below = mailbox.MakeFolder(*folder, "lower");
    ASSERT_NO_FATAL_FAILURE(Fill(*folder, 30, 50 * 1024));
    ASSERT_NO_FATAL_FAILURE(Fill(*below, 30, 50 * 1024));
    BinaryValue id = BinaryOf(*folder, PR_ENTRYID);

    ASSERT_EQ(
        mailbox.Inbox().DeleteFolder(static_cast<ULONG>(id.size()), reinterpret_cast<LPENTRYID>(id.data()), 0,
                                     nullptr, DEL_MESSAGES | DEL_FOLDERS),
        S_OK);

    EXPECT_EQ(Ask("SELECT count(*) FROM message"), 0);
    EXPECT_EQ(Ask("SELECT count(*) FROM part"), 0);
    EXPECT_EQ(Ask("SELECT count(*) FROM folder"), 6);
}

}  // namespace
}  // namespace quorvane
