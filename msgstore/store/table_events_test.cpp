#include "msgstore/store/table_events.h"

#include <gtest/gtest.h>

namespace quorvane {
namespace {

ULONG Merged(ULONG first, ULONG second)
{
    PendingEvents events;
    events.Add(first, 1);
    events.Add(second, 1);
    EXPECT_EQ(events.Rows().size(), 1u);
    return events.Rows()[0].event;
}

TEST(TableEventsTest, TwoEventsOfARowComeToOne)
{
    EXPECT_EQ(Merged(TABLE_ROW_ADDED, TABLE_ROW_MODIFIED), static_cast<ULONG>(TABLE_ROW_ADDED));
    EXPECT_EQ(Merged(TABLE_ROW_ADDED, TABLE_ROW_DELETED), 0u);
    EXPECT_EQ(Merged(TABLE_ROW_MODIFIED, TABLE_ROW_MODIFIED), static_cast<ULONG>(TABLE_ROW_MODIFIED));
    EXPECT_EQ(Merged(TABLE_ROW_MODIFIED, TABLE_ROW_DELETED), static_cast<ULONG>(TABLE_ROW_DELETED));
    EXPECT_EQ(Merged(TABLE_ROW_DELETED, TABLE_ROW_ADDED), static_cast<ULONG>(TABLE_ROW_MODIFIED));
}

TEST(TableEventsTest, ARowThatCameWentAndCameIsAdded)
{
    PendingEvents events;
    events.Add(TABLE_ROW_ADDED, 1);
    events.Add(TABLE_ROW_DELETED, 1);
    events.Add(TABLE_ROW_ADDED, 1);

    EXPECT_EQ(events.Rows()[0].event, static_cast<ULONG>(TABLE_ROW_ADDED));
}

TEST(TableEventsTest, EventsKeepTheOrderInWhichRowsWereFirstTouched)
{
    PendingEvents events;
    events.Add(TABLE_ROW_DELETED, 7);
    events.Add(TABLE_ROW_ADDED, 9);
    events.Add(TABLE_ROW_ADDED, 7);

    ASSERT_EQ(events.Rows().size(), 2u);
    EXPECT_EQ(events.Rows()[0].id, 7);
    EXPECT_EQ(events.Rows()[1].id, 9);
}

TEST(TableEventsTest, MoreRowsThanTheLimitBecomeOneChange)
{
    PendingEvents events;
    for (std::size_t i = 0; i < kMostRowEvents; ++i)
        events.Add(TABLE_ROW_MODIFIED, static_cast<std::int64_t>(i));
    EXPECT_FALSE(events.IsChanged());

    events.Add(TABLE_ROW_MODIFIED, static_cast<std::int64_t>(kMostRowEvents));

    EXPECT_TRUE(events.IsChanged());
    EXPECT_TRUE(events.Rows().empty());
    EXPECT_FALSE(events.empty());
}

}  // namespace
}  // namespace quorvane
