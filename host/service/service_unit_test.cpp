#include "host/service/service_unit.h"

#include <gtest/gtest.h>

#include "host/base/path_text.h"

namespace quorvane::host {

namespace {

constexpr char kSetUp[] = "quorvane setup m";

Finding Judge(const UnitState& state)
{
    return JudgeUnit("quorvane@m.service", state, kSetUp);
}

UnitState InOrder()
{
    return {true, true, "/u", "active", "running", "success"};
}

TEST(ServiceUnitTest, AMailboxIsNamedAsSystemdEscapesItsPath)
{
    EXPECT_EQ(UnitNameOf("/home/alice/mail"), "quorvane@home-alice-mail.service");
    EXPECT_EQ(UnitNameOf("/home/alice/mail/"), "quorvane@home-alice-mail.service");
    EXPECT_EQ(UnitNameOf("/home/a b/o'x-y/.m/$z%"),
              "quorvane@home-a\\x20b-o\\x27x\\x2dy-.m-\\x24z\\x25.service");
    EXPECT_EQ(UnitNameOf(PathOf("/.x/\xC3\xBC")), "quorvane@\\x2ex-\\xc3\\xbc.service");
    EXPECT_EQ(UnitNameOf("/"), "quorvane@-.service");
}

TEST(ServiceUnitTest, AUnitBeginsTheProgramWhereverItIs)
{
    const std::string text = UnitText("/opt/my \"own\" 100%/quorvane");
    EXPECT_NE(text.find("\nExecStart=\"/opt/my \\\"own\\\" 100%%/quorvane\" run %f\n"), std::string::npos);
    EXPECT_NE(text.find("\nType=notify\n"), std::string::npos);
    EXPECT_NE(text.find("\nWantedBy=default.target\n"), std::string::npos);
}

TEST(ServiceUnitTest, WhatSystemctlShowsIsRead)
{
    const UnitState state = ReadUnitState(
        "Result=exit-code\nLoadState=loaded\nActiveState=activating\nSubState=auto-restart\n"
        "FragmentPath=/a=b\nUnitFileState=enabled\nnonsense\n=\n");
    EXPECT_TRUE(state.isInstalled);
    EXPECT_TRUE(state.isEnabled);
    EXPECT_EQ(state.file, "/a=b");
    EXPECT_TRUE(state.IsRestarting());
    EXPECT_FALSE(state.IsUp());
    EXPECT_EQ(state.result, "exit-code");
    EXPECT_FALSE(ReadUnitState("LoadState=not-found\nActiveState=inactive").isInstalled);
    EXPECT_FALSE(ReadUnitState("").isInstalled);
}

TEST(ServiceUnitTest, AUnitThatFailsNeedsAPerson)
{
    UnitState state = InOrder();
    state.active = state.sub = "failed";
    state.result = "watchdog";
    EXPECT_EQ(Judge(state).state, Finding::State::kAct);
    EXPECT_EQ(Judge(state).what, "quorvane@m.service has failed (watchdog)");
    EXPECT_EQ(Judge(state).todo, "see why: journalctl --user -u quorvane@m.service");
    state.active = "activating";
    state.sub = "auto-restart";
    EXPECT_EQ(Judge(state).what, "quorvane@m.service ends again and again (watchdog)");
}

TEST(ServiceUnitTest, OneThatIsntThereOrStoppedIsWorthKnowing)
{
    EXPECT_EQ(Judge(InOrder()).state, Finding::State::kGood);
    EXPECT_EQ(JudgeUnit("u", std::nullopt, kSetUp).state, Finding::State::kGood);
    EXPECT_EQ(Judge({}).todo, "have one: quorvane setup m");
    UnitState state = InOrder();
    state.isEnabled = false;
    EXPECT_EQ(Judge(state).todo, "systemctl --user enable quorvane@m.service");
    state = InOrder();
    state.active = "inactive";
    EXPECT_EQ(Judge(state).todo, "systemctl --user start quorvane@m.service");
    EXPECT_EQ(Judge(state).state, Finding::State::kNote);
}

}  // namespace

}  // namespace quorvane::host
