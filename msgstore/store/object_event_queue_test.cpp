#include "msgstore/store/object_event_queue.h"

#include <gtest/gtest.h>

#include <tuple>

namespace quorvane {
namespace {

// An event, an object, where it is and where it was.
using Told = std::tuple<ULONG, std::int64_t, std::int64_t, std::int64_t>;

Change Of(ULONG event, std::int64_t object, std::int64_t parent = 3, std::int64_t oldParent = 0)
{
    Change change;
    change.event = event;
    change.kind = MAPI_MESSAGE;
    change.objectId = object;
    change.parentId = parent;
    change.oldParentId = oldParent;
    return change;
}

std::vector<Told> TakeAll(ObjectEventQueue& queue)
{
    std::vector<Told> all;
    while (!queue.empty()) {
        const Change& front = queue.Front();
        all.emplace_back(front.event, front.objectId, front.parentId, front.oldParentId);
        queue.PopFront();
    }
    return all;
}

// What a queue says that keeps one entry an object from the second change on.
std::vector<Told> Merged(std::initializer_list<Change> changes)
{
    ObjectEventQueue queue(1);
    for (const Change& change : changes)
        queue.Add(change);
    return TakeAll(queue);
}

TEST(ObjectEventQueueTest, AShortQueueKeepsEveryChange)
{
    ObjectEventQueue queue(3);
    queue.Add(Of(fnevObjectCreated, 1));
    queue.Add(Of(fnevObjectModified, 1));
    queue.Add(Of(fnevObjectDeleted, 1));

    EXPECT_EQ(TakeAll(queue), (std::vector<Told>{{fnevObjectCreated, 1, 3, 0},
                                                 {fnevObjectModified, 1, 3, 0},
                                                 {fnevObjectDeleted, 1, 3, 0}}));
}

TEST(ObjectEventQueueTest, ALongQueueHasOneEntryAnObjectAtItsFirstPlace)
{
    EXPECT_EQ(Merged({Of(fnevObjectModified, 1), Of(fnevObjectModified, 2), Of(fnevObjectModified, 1)}),
              (std::vector<Told>{{fnevObjectModified, 1, 3, 0}, {fnevObjectModified, 2, 3, 0}}));
}

TEST(ObjectEventQueueTest, WhatCameAndWentIsNotTold)
{
    EXPECT_EQ(Merged({Of(fnevObjectCreated, 1), Of(fnevObjectModified, 1), Of(fnevObjectDeleted, 1)}),
              std::vector<Told>{});
    EXPECT_EQ(Merged({Of(fnevObjectModified, 1), Of(fnevObjectDeleted, 1)}),
              (std::vector<Told>{{fnevObjectDeleted, 1, 3, 0}}));
}

TEST(ObjectEventQueueTest, ANewObjectIsToldWhereItIsNow)
{
    EXPECT_EQ(Merged({Of(fnevObjectCreated, 1), Of(fnevObjectMoved, 1, 4, 3)}),
              (std::vector<Told>{{fnevObjectCreated, 1, 4, 0}}));
    EXPECT_EQ(Merged({Of(fnevObjectCopied, 1, 3, 5), Of(fnevObjectMoved, 1, 4, 3)}),
              (std::vector<Told>{{fnevObjectCopied, 1, 4, 5}}));
}

TEST(ObjectEventQueueTest, MovesGoFromTheFirstFolderToTheLast)
{
    EXPECT_EQ(Merged({Of(fnevObjectMoved, 1, 4, 3), Of(fnevObjectMoved, 1, 5, 4)}),
              (std::vector<Told>{{fnevObjectMoved, 1, 5, 3}}));
    EXPECT_EQ(Merged({Of(fnevObjectMoved, 1, 4, 3), Of(fnevObjectMoved, 1, 3, 4)}),
              (std::vector<Told>{{fnevObjectModified, 1, 3, 0}}));
    EXPECT_EQ(Merged({Of(fnevObjectModified, 1), Of(fnevObjectMoved, 1, 4, 3)}),
              (std::vector<Told>{{fnevObjectModified | fnevObjectMoved, 1, 4, 3}}));
}

TEST(ObjectEventQueueTest, AFolderAndAMessageOfOneNumberAreTwoObjects)
{
    Change folder = Of(fnevObjectDeleted, 1);
    folder.kind = MAPI_FOLDER;
    EXPECT_EQ(Merged({Of(fnevObjectModified, 1), folder}).size(), 2u);
}

TEST(ObjectEventQueueTest, AnEmptiedQueueKeepsEveryChangeAgain)
{
    ObjectEventQueue queue(2);
    for (int i = 0; i < 3; ++i)
        queue.Add(Of(fnevObjectModified, 1));
    EXPECT_EQ(TakeAll(queue).size(), 1u);

    queue.Add(Of(fnevObjectModified, 1));
    queue.Add(Of(fnevObjectModified, 1));

    EXPECT_EQ(TakeAll(queue).size(), 2u);
}

TEST(ObjectEventQueueTest, EntriesTakenMeanwhileAreNotAddedToAgain)
{
    ObjectEventQueue queue(1);
    queue.Add(Of(fnevObjectModified, 1));
    queue.Add(Of(fnevObjectModified, 2));
    ASSERT_FALSE(queue.empty());
    queue.PopFront();

    queue.Add(Of(fnevObjectModified, 1));
    for (int i = 0; i < 5; ++i) {  // so that what has come to nothing is thrown out
        queue.Add(Of(fnevObjectCreated, 10 + i));
        queue.Add(Of(fnevObjectDeleted, 10 + i));
    }
    queue.Add(Of(fnevObjectDeleted, 2));

    EXPECT_EQ(TakeAll(queue),
              (std::vector<Told>{{fnevObjectDeleted, 2, 3, 0}, {fnevObjectModified, 1, 3, 0}}));
}

}  // namespace
}  // namespace quorvane
