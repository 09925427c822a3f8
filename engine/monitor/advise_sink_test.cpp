#include "engine/monitor/advise_sink.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <future>
#include <thread>
#include <vector>

#include "engine/monitor/notify_thread.h"
#include "engine/monitor/test_doubles.h"
#include "platform/testing/test_directory.h"

namespace quorvane {
namespace {

using testing::ClosedStore;
using testing::EmptyTable;
using testing::MonitorSession;
using testing::SwitchFolder;

const Bstr kFolderId(OLESTR("folder"));

// A sink over an empty folder. Batches are notified by hand; the closed gate tells that all have ended.
class AdviseSinkTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        const Bstr path(Widen(files.File("")));
        ASSERT_EQ(session.HashStores().Add(kFolderId.Get(), path.Get()), 1);
        sink->SetSession(&session);
        sink->m_pStore = ComPtr<IMsgStore>(MakeComObject<ClosedStore>().Get());
        sink->m_pTable = ComPtr<IMAPITable>(table.Get());
        sink->m_bstrFolderID = kFolderId;
        sink->SetFolder(folder.Get());
    }

    static NOTIFICATION Of(ULONG tableEvent, SRow row = {})
    {
        NOTIFICATION notification{};
        notification.ulEventType = fnevTableModified;
        notification.info.tab.ulTableEvent = tableEvent;
        notification.info.tab.row = row;
        return notification;
    }

    ULONG Notify(std::vector<NOTIFICATION> batch)
    {
        return sink->OnNotify(static_cast<ULONG>(batch.size()), batch.data());
    }

    // Scans after one batch.
    int ScansFor(const std::vector<ULONG>& events)
    {
        std::vector<NOTIFICATION> batch;
        for (const ULONG event : events)
            batch.push_back(Of(event));
        EXPECT_EQ(Notify(batch), static_cast<ULONG>(S_OK));
        session.gate->CloseAndWait();
        return table->scans;
    }

    const test::TestDirectory files;
    MonitorSession session;
    const ComPtr<EmptyTable> table = MakeComObject<EmptyTable>();
    const ComPtr<SwitchFolder> folder = MakeComObject<SwitchFolder>();
    const ComPtr<CAdviseSink> sink = MakeComObject<CAdviseSink>();
};

TEST_F(AdviseSinkTest, EachChangeIsOneScan)
{
    EXPECT_EQ(ScansFor({TABLE_CHANGED}), 1);
}

TEST_F(AdviseSinkTest, ThreeDeletionsOfABatchAreOneScan)
{
    EXPECT_EQ(ScansFor({TABLE_ROW_DELETED, TABLE_ROW_DELETED, TABLE_ROW_DELETED}), 1);
}

TEST_F(AdviseSinkTest, AnAdditionBetweenDeletionsStillScans)
{
    EXPECT_EQ(ScansFor({TABLE_ROW_DELETED, TABLE_ROW_ADDED, TABLE_ROW_DELETED}), 2);
}

TEST_F(AdviseSinkTest, DeletionsAreSearchedOncePerBatchNotOnceForAll)
{
    EXPECT_EQ(Notify({Of(TABLE_ROW_DELETED)}), static_cast<ULONG>(S_OK));
    EXPECT_EQ(Notify({Of(TABLE_ROW_DELETED)}), static_cast<ULONG>(S_OK));
    session.gate->CloseAndWait();

    EXPECT_EQ(table->scans, 2);
}

TEST_F(AdviseSinkTest, OtherTableEventsScanNothingAndAskNobody)
{
    EXPECT_EQ(
        ScansFor({TABLE_ERROR, TABLE_SORT_DONE, TABLE_RESTRICT_DONE, TABLE_SETCOL_DONE, TABLE_RELOAD, 77}),
        0);
    EXPECT_EQ(session.addinsAsked, 0);
}

TEST_F(AdviseSinkTest, ADeletionReadsTheTableOnceAndNoRowOnItsOwn)
{
    EXPECT_EQ(ScansFor({TABLE_ROW_DELETED}), 1);
    EXPECT_EQ(table->rowReads, 1);  // the search for deleted items, and no scan for changes
}

TEST_F(AdviseSinkTest, ARowOfFourColumnsWidensToAllRowsWithoutASearchForDeletions)
{
    SPropValue columns[4]{};
    columns[0].ulPropTag = PR_MESSAGE_SIZE;
    columns[1].ulPropTag = PR_MESSAGE_FLAGS;
    columns[2].ulPropTag = PR_ROWID;
    columns[3].ulPropTag = PR_RECIPIENT_TYPE;
    EXPECT_EQ(Notify({Of(TABLE_ROW_MODIFIED, {0, 4, columns})}), static_cast<ULONG>(S_OK));
    session.gate->CloseAndWait();

    EXPECT_EQ(table->scans, 1);
    EXPECT_EQ(table->rowReads, 1);
}

TEST_F(AdviseSinkTest, AnEmptyBatchDoesNothing)
{
    EXPECT_EQ(ScansFor({}), 0);
    EXPECT_EQ(folder->asked, 1);
}

TEST_F(AdviseSinkTest, ABatchIsDroppedWhileTheFolderIgnoresEvents)
{
    folder->ignoreEvents = VARIANT_TRUE;

    EXPECT_EQ(ScansFor({TABLE_CHANGED, TABLE_ROW_DELETED}), 0);
    EXPECT_EQ(folder->asked, 1);
}

TEST_F(AdviseSinkTest, IgnoringEventsMeansVariantTrueAndNothingElse)
{
    folder->ignoreEvents = 1;

    EXPECT_EQ(ScansFor({TABLE_CHANGED}), 1);
}

TEST_F(AdviseSinkTest, TheFolderIsAskedWhenTheBatchsTurnComes)
{
    NotifySemaphore.Acquire();
    EXPECT_EQ(Notify({Of(TABLE_CHANGED)}), static_cast<ULONG>(S_OK));
    folder->ignoreEvents = VARIANT_TRUE;
    NotifySemaphore.Release();
    session.gate->CloseAndWait();

    EXPECT_EQ(table->scans, 0);
}

TEST_F(AdviseSinkTest, ABatchWhoseFolderHasGoneIsDropped)
{
    NotifySemaphore.Acquire();
    EXPECT_EQ(Notify({Of(TABLE_CHANGED)}), static_cast<ULONG>(S_OK));
    sink->DropFolder();
    NotifySemaphore.Release();
    session.gate->CloseAndWait();

    EXPECT_EQ(table->scans, 0);
    EXPECT_EQ(folder->asked, 0);
}

TEST_F(AdviseSinkTest, ABatchAfterTheSessionsEndIsDropped)
{
    session.gate->CloseAndWait();

    EXPECT_EQ(Notify({Of(TABLE_CHANGED)}), static_cast<ULONG>(S_OK));
    EXPECT_EQ(table->scans, 0);
}

TEST_F(AdviseSinkTest, ASinkWithoutASessionDropsEverything)
{
    sink->SetSession(nullptr);

    EXPECT_EQ(Notify({Of(TABLE_CHANGED)}), static_cast<ULONG>(S_OK));
    EXPECT_EQ(table->scans, 0);
}

TEST_F(AdviseSinkTest, AFolderWithoutAHashStoreScansNothing)
{
    sink->m_bstrFolderID = Bstr(OLESTR("unknown"));

    EXPECT_EQ(ScansFor({TABLE_CHANGED}), 0);
}

TEST_F(AdviseSinkTest, TheBatchIsCopiedBeforeMapiIsFree)
{
    NotifySemaphore.Acquire();
    std::vector<NOTIFICATION> batch{Of(TABLE_CHANGED)};
    EXPECT_EQ(sink->OnNotify(1, batch.data()), static_cast<ULONG>(S_OK));
    batch[0] = Of(TABLE_ERROR);
    NotifySemaphore.Release();
    session.gate->CloseAndWait();

    EXPECT_EQ(table->scans, 1);
}

TEST_F(AdviseSinkTest, MapiWaitsUntilAWriterHasLeftTheSubmitLock)
{
    session.SubmitLock().Lock();
    std::future<ULONG> mapi = std::async(std::launch::async, [this] { return Notify({Of(TABLE_CHANGED)}); });
    EXPECT_EQ(mapi.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
    session.SubmitLock().Unlock();

    EXPECT_EQ(mapi.get(), static_cast<ULONG>(S_OK));
    session.gate->CloseAndWait();
    EXPECT_EQ(table->scans, 1);
}

TEST_F(AdviseSinkTest, BatchesOfTwoFoldersNeverScanAtOnce)
{
    std::atomic<int> atWork{0};
    std::atomic<int> most{0};
    table->atScan = [&] {
        most = std::max(most.load(), ++atWork);
        std::this_thread::yield();
        --atWork;
    };
    const auto other = MakeComObject<CAdviseSink>();
    other->SetSession(&session);
    other->m_pStore = sink->m_pStore;
    other->m_pTable = sink->m_pTable;
    other->m_bstrFolderID = kFolderId;
    other->SetFolder(folder.Get());
    NOTIFICATION notification = Of(TABLE_CHANGED);
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(sink->OnNotify(1, &notification), static_cast<ULONG>(S_OK));
        EXPECT_EQ(other->OnNotify(1, &notification), static_cast<ULONG>(S_OK));
    }
    session.gate->CloseAndWait();

    EXPECT_EQ(table->scans, 40);
    EXPECT_EQ(most, 1);
}

TEST_F(AdviseSinkTest, BatchesTakeTheirTurnsInTheOrderInWhichMapiBroughtThem)
{
    constexpr int kBatches = 20;
    std::vector<int> scanned;
    std::vector<ComPtr<CAdviseSink>> sinks;
    NotifySemaphore.Acquire();
    for (int i = 0; i < kBatches; ++i) {
        const auto ownTable = MakeComObject<EmptyTable>();
        ownTable->atScan = [&scanned, i] { scanned.push_back(i); };
        const auto& own = sinks.emplace_back(MakeComObject<CAdviseSink>());
        own->SetSession(&session);
        own->m_pStore = sink->m_pStore;
        own->m_pTable = ComPtr<IMAPITable>(ownTable.Get());
        own->m_bstrFolderID = kFolderId;
        own->SetFolder(folder.Get());
        NOTIFICATION notification = Of(TABLE_ROW_DELETED);
        EXPECT_EQ(own->OnNotify(1, &notification), static_cast<ULONG>(S_OK));
    }
    NotifySemaphore.Release();
    session.gate->CloseAndWait();

    ASSERT_EQ(scanned.size(), static_cast<size_t>(kBatches));
    EXPECT_TRUE(std::is_sorted(scanned.begin(), scanned.end()));
}

TEST_F(AdviseSinkTest, ABatchKeepsItsSinkAlive)
{
    NotifySemaphore.Acquire();
    auto dying = MakeComObject<CAdviseSink>();
    dying->SetSession(&session);
    dying->m_pStore = sink->m_pStore;
    dying->m_pTable = sink->m_pTable;
    dying->m_bstrFolderID = kFolderId;
    dying->SetFolder(folder.Get());
    NOTIFICATION notification = Of(TABLE_CHANGED);
    EXPECT_EQ(dying->OnNotify(1, &notification), static_cast<ULONG>(S_OK));
    dying.Reset();
    NotifySemaphore.Release();
    session.gate->CloseAndWait();

    EXPECT_EQ(table->scans, 1);
}

TEST_F(AdviseSinkTest, ABatchThatCantBeCopiedFreesMapiAllTheSame)
{
    EXPECT_EQ(sink->OnNotify(0x80000000u, nullptr), static_cast<ULONG>(S_OK));
    session.gate->CloseAndWait();

    EXPECT_EQ(table->scans, 0);
}

}  // namespace
}  // namespace quorvane
