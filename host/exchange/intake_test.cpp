#include "host/exchange/intake.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <stdexcept>

namespace quorvane::host::exchange {

namespace {

using std::chrono::seconds;

PackageLabel Label(unsigned char epoch, std::uint64_t sequence)
{
    PackageLabel label;
    label.epoch = Epoch{epoch};
    label.sequence = sequence;
    return label;
}

TEST(IntakeTest, PackagesAreAppliedInTheirOrderAndOnce)
{
    SenderState sender;
    EXPECT_EQ(JudgeOrder(sender, Label(1, 2)), Intake::kTooEarly);
    EXPECT_EQ(JudgeOrder(sender, Label(1, 1)), Intake::kNewEpoch);
    NoteApplied(sender, Label(1, 1));

    EXPECT_EQ(JudgeOrder(sender, Label(1, 1)), Intake::kApplied);
    EXPECT_EQ(JudgeOrder(sender, Label(1, 3)), Intake::kTooEarly);
    EXPECT_EQ(JudgeOrder(sender, Label(1, 2)), Intake::kApply);
    EXPECT_THROW(NoteApplied(sender, Label(1, 3)), std::logic_error);
    EXPECT_THROW(NoteApplied(sender, Label(1, 1)), std::logic_error);
    NoteApplied(sender, Label(1, 2));
    EXPECT_EQ(JudgeOrder(sender, Label(1, 2)), Intake::kApplied);
    EXPECT_EQ(sender.applied, 2U);
}

TEST(IntakeTest, WhatWasSentInAnEpochThatIsOverIsRefused)
{
    SenderState sender;
    NoteApplied(sender, Label(1, 1));
    NoteApplied(sender, Label(1, 2));
    EXPECT_EQ(JudgeOrder(sender, Label(2, 3)), Intake::kTooEarly);
    EXPECT_EQ(JudgeOrder(sender, Label(2, 1)), Intake::kNewEpoch);
    NoteApplied(sender, Label(2, 1));

    EXPECT_EQ(JudgeOrder(sender, Label(1, 1)), Intake::kOver);
    EXPECT_EQ(JudgeOrder(sender, Label(1, 3)), Intake::kOver);
    EXPECT_EQ(JudgeOrder(sender, Label(2, 2)), Intake::kApply);
    NoteApplied(sender, Label(3, 1));
    EXPECT_EQ(JudgeOrder(sender, Label(1, 1)), Intake::kOver);
    EXPECT_EQ(JudgeOrder(sender, Label(2, 1)), Intake::kOver);
}

// An epoch of zeros is one as any other.
TEST(IntakeTest, TheFirstEpochOfASenderEndsNone)
{
    SenderState sender;
    NoteApplied(sender, Label(1, 1));
    EXPECT_TRUE(sender.overEpochs.empty());
}

TEST(IntakeTest, AGapIsWhatIsMissingBeforeTheFirstThatLiesThere)
{
    SenderState sender;
    sender.applied = 5;
    EXPECT_EQ(GapBefore(sender, {}), std::nullopt);
    EXPECT_EQ(GapBefore(sender, {3, 4, 5}), std::nullopt);
    EXPECT_EQ(GapBefore(sender, {5, 6, 9}), std::nullopt);
    EXPECT_EQ(GapBefore(sender, {4, 7, 9}), (SequenceRange{6, 6}));
    EXPECT_EQ(GapBefore(sender, {10}), (SequenceRange{6, 9}));
}

TEST(IntakeTest, AGapIsAskedForWhenItHasStoodForAMinute)
{
    GapWatch watch;
    const GapWatch::Time start{};
    const SequenceRange gap{6, 9}, smaller{6, 7}, later{8, 9};

    EXPECT_EQ(watch.Ask(gap, start), std::nullopt);
    EXPECT_EQ(watch.Ask(gap, start + seconds(59)), std::nullopt);
    EXPECT_EQ(watch.Ask(gap, start + seconds(60)), gap);
    EXPECT_EQ(watch.Ask(smaller, start + seconds(61)), smaller);
    EXPECT_EQ(watch.Ask(later, start + seconds(62)), std::nullopt);
    EXPECT_EQ(watch.Ask(std::nullopt, start + seconds(200)), std::nullopt);
    EXPECT_EQ(watch.Ask(later, start + seconds(201)), std::nullopt);
    EXPECT_EQ(watch.Ask(later, start + seconds(261)), later);
}

// Whatever comes when and however often: applied is 1, 2, 3 ..., all of it, once.
TEST(IntakeTest, EveryOrderOfArrivalEndsInTheOrderOfSending)
{
    for (unsigned seed = 0; seed < 50; ++seed) {
        std::mt19937 random(seed);
        SenderState sender;
        std::vector<std::uint64_t> arriving, lying, applied;
        for (std::uint64_t sequence = 1; sequence <= 20; ++sequence)
            arriving.insert(arriving.end(), 1 + random() % 3, sequence);
        std::shuffle(arriving.begin(), arriving.end(), random);
        for (const std::uint64_t arrived : arriving) {
            if (!std::binary_search(lying.begin(), lying.end(), arrived))
                lying.insert(std::upper_bound(lying.begin(), lying.end(), arrived), arrived);
            for (const std::uint64_t sequence : lying) {
                const Intake order = JudgeOrder(sender, Label(1, sequence));
                if (order != Intake::kApply && order != Intake::kNewEpoch)
                    continue;
                NoteApplied(sender, Label(1, sequence));
                applied.push_back(sequence);
            }
            const auto gap = GapBefore(sender, lying);
            ASSERT_EQ(gap.has_value(), lying.back() > sender.applied) << seed;
        }
        ASSERT_EQ(applied.size(), 20U) << seed;
        EXPECT_TRUE(std::is_sorted(applied.begin(), applied.end())) << seed;
    }
}

}  // namespace

}  // namespace quorvane::host::exchange
