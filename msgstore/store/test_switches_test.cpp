#include "msgstore/store/test_switches.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

#include "msgstore/store/test_mailbox.h"

namespace quorvane {
namespace {

using namespace quorvane::testing;

class TestSwitchesTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(mailbox.Store().OpenProperty(kPrTestSwitches, &IID_IStoreTestSwitches, 0, 0,
                                               switches.PutUnknown()),
                  S_OK);
    }
    // A table of the inbox, with a sink.
    void Subscribe()
    {
        table = ContentsOf(mailbox.Inbox());
        ULONG connection = 0;
        ASSERT_EQ(table->Advise(fnevTableModified, sink.Get(), &connection), S_OK);
    }
    void AddMessages(int count)
    {
        for (int i = 0; i < count; ++i)
            mailbox.AddMessage(mailbox.Inbox(), OLESTR("Hello"));
    }

    TestMailbox mailbox;
    ComPtr<IStoreTestSwitches> switches;
    ComPtr<IMAPITable> table;
    const ComPtr<CTestSink> sink = MakeComObject<CTestSink>();
};

TEST_F(TestSwitchesTest, WhileNotificationsAreHeldADeliveryAloneTellsThem)
{
    ASSERT_EQ(switches->HoldNotifications(TRUE), S_OK);
    Subscribe();
    AddMessages(3);
    ULONG told = 77;
    ASSERT_EQ(switches->Deliver(0, &told), S_OK);
    EXPECT_EQ(told, 3u);
    EXPECT_EQ(sink->Calls(), 1u);

    ASSERT_EQ(switches->Deliver(0, &told), S_OK);
    EXPECT_EQ(told, 0u);
    EXPECT_EQ(sink->Calls(), 1u);
}

TEST_F(TestSwitchesTest, WhatWasHeldIsToldWhenTheHoldEnds)
{
    ASSERT_EQ(switches->HoldNotifications(TRUE), S_OK);
    Subscribe();
    AddMessages(2);
    ASSERT_EQ(switches->HoldNotifications(FALSE), S_OK);

    EXPECT_TRUE(sink->WaitForCount(2));
}

TEST_F(TestSwitchesTest, ADeliveryToNobodyIsRefused)
{
    ULONG told = 0;
    EXPECT_EQ(switches->Deliver(0, &told), MAPI_E_NOT_FOUND);
    Subscribe();
    EXPECT_EQ(switches->Deliver(1, &told), MAPI_E_NOT_FOUND);
    EXPECT_EQ(switches->Deliver(0, nullptr), MAPI_E_INVALID_PARAMETER);
}

TEST_F(TestSwitchesTest, TablesTellOfThemselvesAlone)
{
    ASSERT_EQ(switches->TellOfTablesOnly(TRUE), S_OK);
    Subscribe();
    AddMessages(1);

    ASSERT_TRUE(sink->WaitForCount(1));
    EXPECT_EQ(sink->Events()[0].tableEvent, static_cast<ULONG>(TABLE_CHANGED));
}

TEST_F(TestSwitchesTest, AsManyReadsOfRowsFailAsAreAskedFor)
{
    AddMessages(1);
    table = ContentsOf(mailbox.Inbox());
    ASSERT_EQ(switches->FailRowReads(2), S_OK);
    LPSRowSet rows = nullptr;
    EXPECT_EQ(table->QueryRows(1, 0, &rows), MAPI_E_NETWORK_ERROR);
    EXPECT_EQ(table->QueryRows(1, 0, &rows), MAPI_E_NETWORK_ERROR);
    ASSERT_EQ(table->QueryRows(1, 0, &rows), S_OK);
    EXPECT_EQ(rows->cRows, 1u);
    FreeProws(rows);
}

TEST_F(TestSwitchesTest, DroppedColumnsAreMissingFromRowsAndNotifications)
{
    const ULONG dropped[] = {PR_MESSAGE_SIZE, PR_SUBJECT_W};
    ASSERT_EQ(switches->DropColumns(2, dropped), S_OK);
    EXPECT_EQ(switches->DropColumns(1, nullptr), MAPI_E_INVALID_PARAMETER);
    Subscribe();
    LPSPropTagArray all = nullptr;
    LPSPropTagArray shown = nullptr;
    ASSERT_EQ(table->QueryColumns(TBL_ALL_COLUMNS, &all), S_OK);
    ASSERT_EQ(table->QueryColumns(0, &shown), S_OK);
    EXPECT_EQ(shown->cValues + 2, all->cValues);
    AddMessages(1);
    ASSERT_TRUE(sink->WaitForCount(1));
    EXPECT_EQ(sink->Events()[0].columns, shown->cValues);
    MAPIFreeBuffer(all);
    MAPIFreeBuffer(shown);
}

TEST_F(TestSwitchesTest, ASeedDrawsTheOrderOfACallsNotifications)
{
    constexpr int kMessages = 20;
    ASSERT_EQ(switches->HoldNotifications(TRUE), S_OK);
    ASSERT_EQ(switches->ShuffleNotifications(5), S_OK);
    Subscribe();
    AddMessages(kMessages);
    ULONG told = 0;
    ASSERT_EQ(switches->Deliver(0, &told), S_OK);

    const auto events = sink->Events();
    ASSERT_EQ(events.size(), static_cast<size_t>(kMessages));
    int order[kMessages];
    std::iota(std::begin(order), std::end(order), 0);
    ShuffleBySeed(5, order, kMessages);
    auto sorted = events;
    std::sort(sorted.begin(), sorted.end(),
              [](const auto& left, const auto& right) { return left.key[0] < right.key[0]; });
    EXPECT_FALSE(std::is_sorted(std::begin(order), std::end(order)));
    for (int i = 0; i < kMessages; ++i)
        EXPECT_EQ(events[i].key, sorted[order[i]].key) << i;
}

TEST_F(TestSwitchesTest, NobodyGetsThemByAnotherInterface)
{
    ComPtr<IMAPITable> other;
    EXPECT_EQ(mailbox.Store().OpenProperty(kPrTestSwitches, &IID_IMAPITable, 0, 0, other.PutUnknown()),
              E_NOINTERFACE);
}

}  // namespace
}  // namespace quorvane
