// Long works of folders: others write in between, and the file gives back what became free.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>

#include "msgstore/store/ask_store.h"
#include "msgstore/store/folder_contents.h"
#include "msgstore/store/test_mailbox.h"

namespace quorvane {
namespace {

using namespace quorvane::testing;

// Writes whenever somebody has, by a connection that waits for nobody.
class OtherWriter final : public CommitListener {
public:
    explicit OtherWriter(StoreCore& core) : core_(core)
    {
        EXPECT_EQ(connection_.Open(core.Path(), SqliteAccess::Write), S_OK);
        EXPECT_EQ(connection_.RunScript("PRAGMA busy_timeout=0"), S_OK);
    }
    void Committed() noexcept override
    {
        if (SUCCEEDED(connection_.RunScript("UPDATE store SET flushes=flushes+1")))
            left.push_back(AskStore(core_, "SELECT count(*) FROM message"));
    }
    HRESULT Deliver(const StoreCore&, ULONG&, ULONG&) noexcept override { return S_FALSE; }

    std::vector<std::int64_t> left;

private:
    StoreCore& core_;
    SqliteConnection connection_;
};

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
    static std::vector<BinaryValue> IdsOf(IMAPIFolder& folder)
    {
        std::vector<BinaryValue> ids;
        RowSet rows;
        EXPECT_EQ(ContentsOf(folder)->QueryRows(100, 0, rows.Put()), S_OK);
        for (const SRow& row : rows)
            ids.push_back(BinaryOf(row, PR_ENTRYID));
        return ids;
    }
    std::int64_t Ask(const char* sql) { return AskStore(*core, sql); }

    // How many messages there were each time that somebody else could write, until none was left.
    std::vector<std::int64_t> LeftWhenOthersWrite(const std::function<void()>& work)
    {
        const auto others = std::make_shared<OtherWriter>(*core);
        core->AddListener(others);
        core->Switches().hurriesSteps = true;
        work();
        return others->left;
    }

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
    EXPECT_EQ(core->WriteInSteps([&](SqliteConnection&, const StepTime& time) {
        begun = true;
        while (!time.IsOver())
            std::this_thread::yield();
        return written || ++stepsWithoutIt == kMostSteps ? S_OK : S_FALSE;
    }),
              S_OK);

    EXPECT_LT(stepsWithoutIt, kMostSteps);
    other.join();
}

TEST_F(FolderUpkeepTest, OthersWriteBetweenTheStepsInWhichALongListIsDeleted)
{
    ASSERT_NO_FATAL_FAILURE(Fill(mailbox.Inbox(), 3, 100));
    std::vector<BinaryValue> ids = IdsOf(mailbox.Inbox());
    ids.push_back(ids[0]);  // it is gone by then
    ids.push_back(BinaryValue{1, 2, 3});
    std::vector<SBinary> listed;
    for (BinaryValue& id : ids)
        listed.push_back({static_cast<ULONG>(id.size()), id.data()});
    ENTRYLIST list{static_cast<ULONG>(listed.size()), listed.data()};

    const std::vector<std::int64_t> left = LeftWhenOthersWrite(
        [&] { EXPECT_EQ(mailbox.Inbox().DeleteMessages(&list, 0, nullptr, 0), MAPI_W_PARTIAL_COMPLETION); });

    EXPECT_EQ(left, (std::vector<std::int64_t>{2, 1, 0, 0, 0}));
}

TEST_F(FolderUpkeepTest, OthersWriteBetweenTheStepsInWhichAFolderIsCopied)
{
    const ComPtr<IMAPIFolder> upper = mailbox.MakeFolder(mailbox.Inbox(), "upper");
    const ComPtr<IMAPIFolder> lower = mailbox.MakeFolder(*upper, "lower");
    ASSERT_NO_FATAL_FAILURE(Fill(*upper, 2, 100));
    ASSERT_NO_FATAL_FAILURE(Fill(*lower, 2, 100));
    BinaryValue id = BinaryOf(*upper, PR_ENTRYID);
    char name[] = "copy";

    const std::vector<std::int64_t> there = LeftWhenOthersWrite([&] {
        EXPECT_EQ(
            mailbox.Inbox().CopyFolder(static_cast<ULONG>(id.size()), reinterpret_cast<LPENTRYID>(id.data()),
                                       nullptr, &mailbox.Inbox(), name, 0, nullptr, COPY_SUBFOLDERS),
            S_OK);
    });

    EXPECT_EQ(std::vector<std::int64_t>(there.begin(), there.begin() + 3),
              (std::vector<std::int64_t>{5, 6, 6}));
    EXPECT_EQ(there.back(), 8);
}

TEST_F(FolderUpkeepTest, OthersWriteBetweenTheStepsInWhichAListIsMovedAndMarked)
{
    ASSERT_NO_FATAL_FAILURE(Fill(mailbox.Inbox(), 3, 100));
    const ComPtr<IMAPIFolder> target = mailbox.MakeFolder(mailbox.Inbox(), "target");
    const std::vector<BinaryValue> ids = IdsOf(mailbox.Inbox());
    std::vector<SBinary> listed;
    for (const BinaryValue& id : ids)
        listed.push_back({static_cast<ULONG>(id.size()), const_cast<BYTE*>(id.data())});
    ENTRYLIST list{static_cast<ULONG>(listed.size()), listed.data()};

    std::vector<std::int64_t> there = LeftWhenOthersWrite(
        [&] { EXPECT_EQ(mailbox.Inbox().CopyMessages(&list, nullptr, target.Get(), 0, nullptr, 0), S_OK); });
    EXPECT_EQ(there, (std::vector<std::int64_t>{4, 5, 6}));
    there = LeftWhenOthersWrite([&] { EXPECT_EQ(target->SetReadFlags(nullptr, 0, nullptr, 0), S_OK); });
    EXPECT_GE(there.size(), 3u);
    EXPECT_EQ(LongOf(*target, PR_CONTENT_UNREAD), 0);
    EXPECT_EQ(LongOf(mailbox.Inbox(), PR_CONTENT_UNREAD), 3);
    there = LeftWhenOthersWrite([&] { EXPECT_EQ(mailbox.Inbox().SetReadFlags(&list, 0, nullptr, 0), S_OK); });
    EXPECT_GE(there.size(), 3u);
    EXPECT_EQ(LongOf(mailbox.Inbox(), PR_CONTENT_UNREAD), 0);
}

TEST_F(FolderUpkeepTest, OthersWriteBetweenTheStepsInWhichAFolderIsEmptied)
{
    ASSERT_NO_FATAL_FAILURE(Fill(mailbox.Inbox(), 3, 100));

    const std::vector<std::int64_t> left =
        LeftWhenOthersWrite([&] { EXPECT_EQ(mailbox.Inbox().EmptyFolder(0, nullptr, 0), S_OK); });

    ASSERT_GE(left.size(), 3u);
    EXPECT_EQ(left[0], 2);
    EXPECT_EQ(left[1], 1);
}

// Each is a transaction of its own, whether it waits for the disk or not.
TEST_F(FolderUpkeepTest, OthersWriteBetweenTheMailsOfAnImport)
{
    const std::vector<std::int64_t> left =
        LeftWhenOthersWrite([&] { ASSERT_NO_FATAL_FAILURE(Fill(mailbox.Inbox(), 3, 100)); });

    EXPECT_EQ(left, (std::vector<std::int64_t>{1, 2, 3}));
}

TEST_F(FolderUpkeepTest, AFailedStepLeavesWhatThoseBeforeItDid)
{
    int steps = 0;
    EXPECT_EQ(core->WriteInSteps([&](SqliteConnection& connection, const StepTime&) -> HRESULT {
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
