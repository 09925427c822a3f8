#include "host/service/setup_plan.h"

#include <gtest/gtest.h>

#include "host/base/errors.h"

namespace quorvane::host {

namespace {

using Kind = SetupStep::Kind;
using State = SetupStep::State;

constexpr char kText[] = "[Unit]";

SetupAnswers Wanted()
{
    return {"/m", "alice", "/x", {{"Inbox", "/home/Maildir"}}, true};
}

// What there is once all of it was done.
SetupState AllDone()
{
    SetupState state;
    state.hasMailbox = state.hasCard = true;
    state.name = "alice";
    state.exchange = "/x";
    state.ties = {{"Inbox", "/home/Maildir"}};
    state.unitFile = "/units/u";
    state.unitText = kText;
    state.isRunning = true;
    state.unit = UnitState{true, true, "/units/u", "active", "running", "success"};
    return state;
}

SetupState Nothing()
{
    SetupState state;
    state.unitFile = "/units/u";
    state.unit = UnitState{};
    return state;
}

// "mailbox exchange! unit?": what is to be done, what is done already (!), and what is left out (?).
std::string Told(const SetupAnswers& answers, const SetupState& state)
{
    std::string text;
    for (const SetupStep& step : PlanSetup(answers, state, kText))
        text += (text.empty() ? "" : " ") + std::string(SetupStepName(step.kind)) +
                (step.state == State::kToDo   ? ""
                 : step.state == State::kDone ? "!"
                                              : "?");
    return text;
}

TEST(SetupPlanTest, WhereNothingIsAllIsMade)
{
    EXPECT_EQ(Told(Wanted(), Nothing()), "mailbox exchange mirror unit enable start");
}

TEST(SetupPlanTest, WhatIsThereIsntMadeAgain)
{
    EXPECT_EQ(Told(Wanted(), AllDone()), "mailbox! exchange! mirror! unit! enable! start!");
}

TEST(SetupPlanTest, OneThatWasCutShortGoesOn)
{
    SetupState state = AllDone();
    state.hasCard = false;
    EXPECT_EQ(Told(Wanted(), state), "mailbox! exchange mirror! unit! enable! start!");
    state = AllDone();
    state.ties.clear();
    EXPECT_EQ(Told(Wanted(), state), "mailbox! exchange! mirror unit! enable! start!");
    state = AllDone();
    state.unit = UnitState{true, false, "/units/u", "inactive", "dead", "success"};
    state.isRunning = false;
    EXPECT_EQ(Told(Wanted(), state), "mailbox! exchange! mirror! unit! enable start");
}

TEST(SetupPlanTest, AServiceNeedsAnExchangeAndAManagerAndSomebodyWhoWantsIt)
{
    SetupAnswers answers = Wanted();
    answers.exchange.clear();
    EXPECT_EQ(Told(answers, Nothing()), "mailbox exchange? mirror unit?");
    SetupState state = Nothing();
    state.unit.reset();
    EXPECT_EQ(Told(Wanted(), state), "mailbox exchange mirror unit?");
    answers = Wanted();
    answers.wantsService = false;
    EXPECT_EQ(Told(answers, Nothing()), "mailbox exchange mirror unit?");
}

TEST(SetupPlanTest, AUnitOfAPackageStaysAndTheUsersOwnIsKeptUpToDate)
{
    SetupState state = AllDone();
    state.unit->file = "/usr/lib/systemd/user/quorvane@.service";
    state.unitText.clear();
    EXPECT_EQ(Told(Wanted(), state), "mailbox! exchange! mirror! unit! enable! start!");
    state = AllDone();
    state.unitText = "that of a program elsewhere";
    EXPECT_EQ(Told(Wanted(), state), "mailbox! exchange! mirror! unit enable! start!");
}

TEST(SetupPlanTest, ASecondRunIsntBegun)
{
    SetupState state = AllDone();
    state.unit->active = "inactive";
    EXPECT_EQ(Told(Wanted(), state), "mailbox! exchange! mirror! unit! enable! start?");
    state.isRunning = false;
    EXPECT_EQ(Told(Wanted(), state), "mailbox! exchange! mirror! unit! enable! start");
}

TEST(SetupPlanTest, WhatIsSomethingElseIsRefused)
{
    SetupAnswers answers = Wanted();
    answers.name = "bob";
    EXPECT_THROW(Told(answers, AllDone()), HostError);
    answers = Wanted();
    answers.ties = {{"Inbox", "/elsewhere"}};
    EXPECT_THROW(Told(answers, AllDone()), HostError);
    answers.ties = {{"Other", "/home/Maildir"}};
    EXPECT_THROW(Told(answers, AllDone()), HostError);
}

TEST(SetupPlanTest, AUsersNameBecomesAMembers)
{
    EXPECT_EQ(MemberNameLike("alice"), "alice");
    EXPECT_EQ(MemberNameLike(".A li$ce.b"), "Alice.b");
    EXPECT_EQ(MemberNameLike("\xC3\xBC"), "me");
    EXPECT_EQ(MemberNameLike(std::string(100, 'a')).size(), 64U);
}

}  // namespace

}  // namespace quorvane::host
