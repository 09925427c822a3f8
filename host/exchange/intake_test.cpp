#include "host/exchange/intake.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <stdexcept>
#include <vector>

namespace quorvane::host::exchange {

namespace {

ForUs Package(unsigned char epoch, std::uint64_t sequence, std::uint64_t previous)
{
    return {Epoch{epoch}, sequence, previous};
}

TEST(IntakeTest, PackagesAreAppliedInTheirOrderAndOnce)
{
    SenderState sender;
    EXPECT_EQ(JudgeOrder(sender, Package(1, 5, 3)), Intake::kTooEarly);
    EXPECT_EQ(JudgeOrder(sender, Package(1, 3, 0)), Intake::kNewEpoch);
    NoteApplied(sender, Package(1, 3, 0));

    EXPECT_EQ(JudgeOrder(sender, Package(1, 3, 0)), Intake::kApplied);
    EXPECT_EQ(JudgeOrder(sender, Package(1, 9, 5)), Intake::kTooEarly);
    EXPECT_EQ(JudgeOrder(sender, Package(1, 5, 3)), Intake::kApply);
    EXPECT_THROW(NoteApplied(sender, Package(1, 9, 5)), std::logic_error);
    EXPECT_THROW(NoteApplied(sender, Package(1, 3, 0)), std::logic_error);
    NoteApplied(sender, Package(1, 5, 3));
    EXPECT_EQ(JudgeOrder(sender, Package(1, 5, 3)), Intake::kApplied);
    EXPECT_EQ(sender.applied, 5U);
}

// Made again for one who had acknowledged 3, while 5 reached him after all.
TEST(IntakeTest, WhatIsMadeAgainFollowsWhateverWasAppliedMeanwhile)
{
    SenderState sender;
    NoteApplied(sender, Package(1, 3, 0));
    EXPECT_EQ(JudgeOrder(sender, Package(1, 12, 3)), Intake::kApply);
    NoteApplied(sender, Package(1, 5, 3));
    EXPECT_EQ(JudgeOrder(sender, Package(1, 12, 3)), Intake::kApply);
    NoteApplied(sender, Package(1, 12, 3));
    EXPECT_EQ(JudgeOrder(sender, Package(1, 9, 7)), Intake::kApplied);
    EXPECT_EQ(JudgeOrder(sender, Package(1, 13, 12)), Intake::kApply);
}

TEST(IntakeTest, WhatWasSentInAnEpochThatIsOverIsRefused)
{
    SenderState sender;
    NoteApplied(sender, Package(1, 1, 0));
    NoteApplied(sender, Package(1, 2, 1));
    EXPECT_EQ(JudgeOrder(sender, Package(2, 4, 3)), Intake::kTooEarly);
    EXPECT_EQ(JudgeOrder(sender, Package(2, 3, 0)), Intake::kNewEpoch);
    NoteApplied(sender, Package(2, 3, 0));

    EXPECT_EQ(JudgeOrder(sender, Package(1, 1, 0)), Intake::kOver);
    EXPECT_EQ(JudgeOrder(sender, Package(1, 4, 3)), Intake::kOver);
    EXPECT_EQ(JudgeOrder(sender, Package(2, 4, 3)), Intake::kApply);
    NoteApplied(sender, Package(3, 4, 0));
    EXPECT_EQ(JudgeOrder(sender, Package(1, 5, 0)), Intake::kOver);
    EXPECT_EQ(JudgeOrder(sender, Package(2, 5, 3)), Intake::kOver);
}

// The first packages of an epoch came to nobody, then the next epoch began, and the place brings the old
// ones.
TEST(IntakeTest, AnEpochThatWasOverBeforeItWasHeardOfDoesntEndTheOneThatIs)
{
    SenderState sender;
    NoteApplied(sender, Package(1, 4, 0));
    NoteApplied(sender, Package(3, 9, 0));

    EXPECT_EQ(JudgeOrder(sender, Package(2, 5, 0)), Intake::kOver);
    EXPECT_EQ(JudgeOrder(sender, Package(2, 9, 5)), Intake::kOver);
    EXPECT_EQ(GapBefore(sender, Package(2, 9, 5)), std::nullopt);
    EXPECT_EQ(JudgeOrder(sender, Package(3, 10, 9)), Intake::kApply);
}

// An epoch of zeros is one as any other.
TEST(IntakeTest, TheFirstEpochOfASenderEndsNone)
{
    SenderState sender;
    NoteApplied(sender, Package(0, 1, 0));
    EXPECT_TRUE(sender.overEpochs.empty());
    EXPECT_EQ(JudgeOrder(SenderState{}, Package(0, 2, 1)), Intake::kTooEarly);
}

TEST(IntakeTest, AGapIsWhatIsMissingBeforeAPackageThatCameTooEarly)
{
    SenderState sender;
    EXPECT_EQ(GapBefore(sender, Package(1, 9, 7)), (SequenceRange{1, 7}));
    NoteApplied(sender, Package(1, 5, 0));
    EXPECT_EQ(GapBefore(sender, Package(1, 5, 0)), std::nullopt);
    EXPECT_EQ(GapBefore(sender, Package(1, 9, 5)), std::nullopt);
    EXPECT_EQ(GapBefore(sender, Package(1, 9, 6)), (SequenceRange{6, 6}));
    EXPECT_EQ(GapBefore(sender, Package(1, 12, 9)), (SequenceRange{6, 9}));
    EXPECT_EQ(GapBefore(sender, Package(2, 12, 9)), (SequenceRange{6, 9}));
    EXPECT_EQ(GapBefore(sender, Package(2, 12, 5)), std::nullopt);
}

// The beginning of a new epoch is late: what was applied is of the one before.
TEST(IntakeTest, AnEpochsBeginningCanBeAskedFor)
{
    SenderState sender;
    NoteApplied(sender, Package(1, 8, 0));
    const auto gap = GapBefore(sender, Package(2, 10, 9));
    ASSERT_TRUE(gap);

    const DeviceKeys receiver;
    const Acks acks{1, {{DeviceKeys().Id(), {sender.epoch, sender.applied, {*gap}}}}};
    EXPECT_EQ(ReadAcks(WriteAcks(receiver, acks), receiver.Signing()), acks);
}

TEST(IntakeTest, AGapIsAskedForWhenItHasStoodForItsTime)
{
    GapWatch watch;
    const SequenceRange gap{6, 9}, smaller{6, 7}, later{8, 9};

    EXPECT_FALSE(watch.IsDue(gap, 1000));
    EXPECT_FALSE(watch.IsDue(gap, 1059));
    EXPECT_TRUE(watch.IsDue(gap, 1060));
    EXPECT_TRUE(watch.IsDue(smaller, 1061));
    EXPECT_FALSE(watch.IsDue(later, 1062));
    EXPECT_FALSE(watch.IsDue(std::nullopt, 1200));
    EXPECT_FALSE(watch.IsDue(later, 1201));
    EXPECT_TRUE(watch.IsDue(later, 1261));
    EXPECT_TRUE(watch.IsDue(later, 1262, 0));
    // A clock that was put back begins anew.
    EXPECT_FALSE(watch.IsDue(later, 500));
    EXPECT_TRUE(watch.IsDue(later, 560));
}

TEST(IntakeTest, OfManyEpochsAFewAreRememberedAndNoneComesBack)
{
    constexpr unsigned kEpochs = SenderState::kMostEpochs + 50;
    static_assert(kEpochs < 256);
    SenderState sender;
    for (unsigned i = 1; i <= kEpochs; ++i)
        NoteApplied(sender, Package(static_cast<unsigned char>(i), i, 0));
    EXPECT_EQ(sender.overEpochs.size(), SenderState::kMostEpochs);
    for (unsigned i = 1; i < kEpochs; ++i)
        EXPECT_EQ(JudgeOrder(sender, Package(static_cast<unsigned char>(i), i, 0)), Intake::kOver) << i;
}

// Whatever comes when and however often: applied is what is for us, in its order, all of it, once.
TEST(IntakeTest, EveryOrderOfArrivalEndsInTheOrderOfSending)
{
    for (unsigned seed = 0; seed < 50; ++seed) {
        std::mt19937 random(seed);
        SenderState sender;
        std::vector<ForUs> sent, arriving;
        std::uint64_t previous = 0;
        for (std::uint64_t sequence = 1; sequence <= 40; ++sequence)
            if (random() % 2 == 0) {
                sent.push_back(Package(1, sequence, previous));
                arriving.insert(arriving.end(), 1 + random() % 3, sent.back());
                previous = sequence;
            }
        std::shuffle(arriving.begin(), arriving.end(), random);
        std::map<std::uint64_t, ForUs> lying;
        std::vector<ForUs> applied;
        for (const ForUs& arrived : arriving) {
            lying.emplace(arrived.sequence, arrived);
            bool hasGap = false;
            for (const auto& [sequence, package] : lying) {
                const Intake order = JudgeOrder(sender, package);
                hasGap = hasGap || GapBefore(sender, package).has_value();
                if (order != Intake::kApply && order != Intake::kNewEpoch)
                    continue;
                NoteApplied(sender, package);
                applied.push_back(package);
            }
            ASSERT_EQ(hasGap, lying.rbegin()->first > sender.applied) << seed;
        }
        EXPECT_EQ(applied, sent) << seed;
    }
}

}  // namespace

}  // namespace quorvane::host::exchange
