#include "host/service/findings.h"

#include <gtest/gtest.h>

namespace quorvane::host {

namespace {

using namespace std::chrono_literals;

constexpr std::chrono::system_clock::time_point kNow{std::chrono::hours(500'000)};

TEST(FindingsTest, APersonIsNeededWhereSomethingIsToBeDone)
{
    Findings findings;
    findings.Good("keys", "they are there");
    findings.Note("run", "none is under way");
    EXPECT_FALSE(findings.NeedsAPerson());
    findings.Act("exchange", "it is gone", "mount it");
    EXPECT_TRUE(findings.NeedsAPerson());
}

TEST(FindingsTest, EachIsALineWithWhatToDoBelow)
{
    Findings findings;
    findings.Good("keys", "they are there");
    findings.Act("exchange", "it is \x1b gone", "mount it");
    EXPECT_EQ(findings.Text({}),
              "good  keys      they are there\n"
              "ACT   exchange  it is   gone\n"
              "                -> mount it\n");
    EXPECT_NE(findings.Text({0, true}).find("\033[31mACT"), std::string::npos);
}

TEST(FindingsTest, ADiskWithoutRoomForARunNeedsAPerson)
{
    EXPECT_EQ(JudgeRoom("the mailbox", kLeastRoom).state, Finding::State::kGood);
    const Finding full = JudgeRoom("the mailbox", kLeastRoom - 1);
    EXPECT_EQ(full.state, Finding::State::kAct);
    EXPECT_EQ(full.what, "511 MB are left on the disk of the mailbox, and a run may need 512");
}

TEST(FindingsTest, AClockThatIsOffNeedsAPerson)
{
    EXPECT_EQ(JudgeClock(kNow, kNow + 5min, kNow + 5min).state, Finding::State::kGood);
    EXPECT_EQ(JudgeClock(kNow, kNow + 301s, kNow).what,
              "this machine's clock is 301 seconds behind that of the exchange");
    EXPECT_EQ(JudgeClock(kNow, kNow - 301s, kNow).what,
              "this machine's clock is 301 seconds ahead of that of the exchange");
    EXPECT_EQ(JudgeClock(kNow, kNow, kNow + 301s).state, Finding::State::kAct);
}

}  // namespace

}  // namespace quorvane::host
