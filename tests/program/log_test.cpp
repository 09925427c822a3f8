// What the engine has traced, as a user reads it.
#include <fstream>

#include "tests/program/program.h"

namespace quorvane::test {

namespace {

class LogTest : public ProgramTest {
protected:
    void SetUp() override
    {
        ProgramTest::SetUp();
        MakeMailboxes({"alice", "bob"});
    }
    std::filesystem::path LogOfAlice() const { return Path("alice") / "logs" / "quorvane3.log"; }
    void Trace(const std::string& lines) const { std::ofstream(LogOfAlice(), std::ios::app) << lines; }
    Json Log(const std::vector<std::string>& more = {}) const
    {
        std::vector<std::string> arguments{"log", Mailbox("alice"), "--json"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return MustRun(arguments).Value();
    }
};

TEST_F(LogTest, AMailboxThatNeverRanHasNothingToTell)
{
    EXPECT_EQ(Log(), Json::array());
}

TEST_F(LogTest, ARunIsTold)
{
    MustRun({"run", Mailbox("alice"), "--until-idle", "--idle-seconds", "0.1"});
    const Json log = Log();
    ASSERT_FALSE(log.empty());
    EXPECT_EQ(log[0].at("operation"), "CLibrary::Logon");
    EXPECT_EQ(log[0].at("result"), "Startup");
    EXPECT_EQ(log[0].at("time").get<std::string>().size(), 20U);
}

TEST_F(LogTest, AnItemThatALineNamesIsToldByItsSubject)
{
    MustRun({"import", Mailbox("alice"), "Shared", Sample("01-plain").string()});
    MustRun({"share", Mailbox("alice"), "Shared", "--with", "bob"});
    RunUntilIdle({"alice", "bob"}, "0.5");
    const Json item = Items("alice", "Shared").at(0);
    for (const char* const name : {"id", "entryId"})
        Trace("11/23/26 07:55:14 NotifyThreadProc(58) Processing Item: " + item.at(name).get<std::string>() +
              "\r\n");
    for (const Json& line : Log({"--lines", "2"}))
        EXPECT_EQ(line.at("subject"), item.at("subject")) << line;
}

TEST_F(LogTest, OnlyWhatIsAskedForIsShown)
{
    Trace(
        "11/23/26 07:55:14 CSession2::Logon(1) 0x80040111\r\n"
        "11/23/26 07:55:15 CSession2::Logon(2) Startup\r\n"
        "11/24/26 07:55:14 CFolder::Resend(3) 0x80004005\r\n"
        "11/24/26 07:55:15 CSession2::Logon(4) Startup\r\n");
    EXPECT_EQ(Log().size(), 4U);
    const Json failures = Log({"--failures"});
    ASSERT_EQ(failures.size(), 2U);
    EXPECT_EQ(failures[0].at("code"), "0x80040111");
    EXPECT_EQ(failures[0].at("result"), "the logon failed (0x80040111)");
    EXPECT_EQ(Log({"--since", "2026-11-24"}).size(), 2U);
    EXPECT_EQ(Log({"--lines", "1"}).at(0).at("line"), 4);
    EXPECT_EQ(Log({"--lines", "0"}).size(), 4U);
    EXPECT_EQ(Run({"log", Mailbox("alice"), "--since", "yesterday"}).exitCode, 2);
}

}  // namespace

}  // namespace quorvane::test
