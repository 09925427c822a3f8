#include "host/mirror/plan.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quorvane::host {

namespace {

using Kind = MirrorStep::Kind;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

MailFile File(const std::string& base, const std::string& digest, std::uint64_t inode, Marks marks = 0)
{
    return {"cur", base + ":2,", base, marks, {inode, 5, 7}, digest, {}};
}

MailPair Pair(std::int64_t mirror, const std::string& name, std::uint64_t inode)
{
    MailPair pair;
    pair.number = static_cast<std::int64_t>(inode);
    pair.mirror = mirror;
    pair.item = "item " + name;
    pair.base = name;
    pair.look = {inode, 5, 7};
    pair.digest = "bytes of " + name;
    pair.modified = 100;
    return pair;
}

// Two mirrors; a mail that both sides of the first have.
class MirrorPlanTest : public ::testing::Test {
protected:
    MirrorPlanTest()
    {
        for (const std::int64_t number : {1, 2}) {
            views[static_cast<std::size_t>(number - 1)].number = number;
            views[static_cast<std::size_t>(number - 1)].isSettled = true;
        }
        AddMail("m", 11);
    }
    void AddMail(const std::string& name, std::uint64_t inode)
    {
        a.files.push_back(File(name, "bytes of " + name, inode));
        a.items.push_back({"item " + name, 0, 100});
        a.pairs.push_back(Pair(1, name, inode));
    }
    std::vector<Kind> Kinds()
    {
        plan = PlanMirrors(views);
        std::vector<Kind> kinds;
        for (const MirrorStep& step : plan.steps)
            kinds.push_back(step.kind);
        return kinds;
    }

    std::vector<MirrorView> views{2};
    MirrorView& a = views[0];
    MirrorView& b = views[1];
    MirrorPlan plan;
};

TEST_F(MirrorPlanTest, NothingIsToBeDoneWhereBothAgree)
{
    EXPECT_THAT(Kinds(), IsEmpty());
}

TEST_F(MirrorPlanTest, ChangesGoToTheOtherSide)
{
    a.files[0].digest = "others";
    EXPECT_THAT(Kinds(), ElementsAre(Kind::kUpdateItem));
    a.items[0].modified = 101;
    EXPECT_THAT(Kinds(), ElementsAre(Kind::kCompare));
    a.files[0].digest = "bytes of m";
    EXPECT_THAT(Kinds(), ElementsAre(Kind::kUpdateFile));
    a.items[0].modified = 100;
    a.items[0].marks = kMarkRead;
    EXPECT_THAT(Kinds(), ElementsAre(Kind::kMark));
    EXPECT_EQ(plan.steps[0].marks, kMarkRead);
}

TEST_F(MirrorPlanTest, EachMarkIsAsTheSideThatChangedItHasIt)
{
    EXPECT_EQ(AgreeOnMarks(kMarkRead, 0, kMarkRead | kMarkFlagged), kMarkFlagged);
    EXPECT_EQ(AgreeOnMarks(0, kMarkRead, kMarkFlagged), kMarkRead | kMarkFlagged);
    EXPECT_EQ(AgreeOnMarks(kMarkRead, kMarkRead, 0), 0);
}

TEST_F(MirrorPlanTest, WhatIsMissingInADirectoryThatIsNotSettledIsNotDeleted)
{
    AddMail("n", 12);
    AddMail("o", 13);
    a.files.erase(a.files.begin());
    a.isSettled = false;
    EXPECT_THAT(Kinds(), IsEmpty());
    EXPECT_TRUE(plan.isUnknown);
    a.isSettled = true;
    EXPECT_THAT(Kinds(), ElementsAre(Kind::kDeleteItem));
}

TEST_F(MirrorPlanTest, AChangeOutlivesADeletion)
{
    a.files.clear();
    a.items[0].modified = 101;
    EXPECT_THAT(Kinds(), ElementsAre(Kind::kForget));
    a.files.push_back(File("m", "others", 11));
    a.items.clear();
    EXPECT_THAT(Kinds(), ElementsAre(Kind::kForget));
}

TEST_F(MirrorPlanTest, AFileThatMovedTakesItsItemAlong)
{
    b.files.push_back(a.files[0]);
    a.files.clear();
    EXPECT_THAT(Kinds(), ElementsAre(Kind::kMoveItem));
    EXPECT_EQ(plan.steps[0].mirror, 2);
    EXPECT_EQ(plan.steps[0].from, 1);
    // A copy under another name as well, once what was there before is known to be gone.
    b.files[0] = File("other", "bytes of m", 99);
    EXPECT_THAT(Kinds(), ElementsAre(Kind::kMoveItem));
    a.isSettled = false;
    EXPECT_THAT(Kinds(), ElementsAre(Kind::kImport));
}

TEST_F(MirrorPlanTest, AnItemThatMovedTakesItsFileAlong)
{
    b.items.push_back(a.items[0]);
    a.items.clear();
    EXPECT_THAT(Kinds(), ElementsAre(Kind::kMoveFile));
    // The file has come there meanwhile: that is all there is to note.
    b.files.push_back(a.files[0]);
    a.files.clear();
    EXPECT_THAT(Kinds(), ElementsAre(Kind::kNote));
    EXPECT_EQ(plan.steps[0].Pair().mirror, 2);
}

TEST_F(MirrorPlanTest, AMailThatWasBegunIsWrittenUnderItsName)
{
    a.pairs[0].isArriving = true;
    EXPECT_THAT(Kinds(), ElementsAre(Kind::kNote));
    EXPECT_FALSE(plan.steps[0].Pair().isArriving);
    a.files.clear();
    EXPECT_THAT(Kinds(), ElementsAre(Kind::kDeliver));
    EXPECT_EQ(plan.steps[0].Pair().base, "m");
}

// mbsync gives a file a number as soon as it sees it, at times before the mirror has noted that it is there.
TEST_F(MirrorPlanTest, AMailThatWasBegunIsFoundWithANumberInItsName)
{
    a.pairs[0].isArriving = true;
    a.files[0] = File("m,U=7", "bytes of m", 11, kMarkRead);
    EXPECT_THAT(Kinds(), ElementsAre(Kind::kNote));
    EXPECT_FALSE(plan.steps[0].Pair().isArriving);
    EXPECT_EQ(plan.steps[0].Pair().base, "m,U=7");
    EXPECT_EQ(plan.steps[0].Pair().marks, 0);

    a.pairs[0].isArriving = false;
    a.pairs[0].next = "n";
    a.files[0] = File("m", "bytes of m", 11);
    a.files.push_back(File("n,U=8", "bytes of n", 12));
    EXPECT_THAT(Kinds(), ElementsAre(Kind::kFinishNext));
    EXPECT_EQ(plan.steps[0].File().base, "n,U=8");
}

TEST_F(MirrorPlanTest, AFileThatIsLeftAloneKeepsItsItem)
{
    a.files[0].problem = "it can't be read";
    a.files[0].digest.clear();
    EXPECT_THAT(Kinds(), IsEmpty());
}

TEST_F(MirrorPlanTest, AStoppedMirrorKeepsWhatItHas)
{
    a.files.clear();
    a.isStopped = true;
    EXPECT_THAT(Kinds(), IsEmpty());
    // An item of it that was moved to another one waits.
    b.items.push_back(a.items[0]);
    a.items.clear();
    EXPECT_THAT(Kinds(), IsEmpty());
}

TEST_F(MirrorPlanTest, ManyDeletionsAreHeld)
{
    for (int i = 0; i < 8; ++i)
        AddMail("n" + std::to_string(i), 20 + static_cast<std::uint64_t>(i));
    a.files.erase(a.files.begin(), a.files.begin() + 4);
    EXPECT_EQ(Kinds().size(), 4U);
    a.files.erase(a.files.begin());
    EXPECT_THAT(Kinds(), IsEmpty());
    ASSERT_EQ(plan.held.size(), 1U);
    EXPECT_EQ(plan.held[0].count, 5);
    a.confirmed = 5;
    EXPECT_EQ(Kinds().size(), 5U);
}

TEST_F(MirrorPlanTest, AHundredDeletionsAreTheMost)
{
    for (std::uint64_t i = 0; i < 999; ++i)
        AddMail("n" + std::to_string(i), 100 + i);
    a.items.erase(a.items.begin(), a.items.begin() + 100);
    EXPECT_EQ(Kinds().size(), 100U);
    a.items.erase(a.items.begin());
    EXPECT_THAT(Kinds(), IsEmpty());
}

}  // namespace

}  // namespace quorvane::host
