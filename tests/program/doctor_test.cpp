// What a mailbox lacks is found, with what to do about it.
#include <sqlite3.h>

#include <algorithm>
#include <fstream>

#include "tests/program/program.h"

namespace quorvane::test {

namespace {

namespace fs = std::filesystem;

class DoctorTest : public ProgramTest {
protected:
    void SetUp() override
    {
        ProgramTest::SetUp();
        MakeMailboxes({"alice", "bob"});
    }
    static void Execute(const fs::path& database, const char* sql)
    {
        sqlite3* opened = nullptr;
        ASSERT_EQ(sqlite3_open(database.string().c_str(), &opened), SQLITE_OK);
        EXPECT_EQ(sqlite3_exec(opened, sql, nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(opened);
        sqlite3_close(opened);
    }
    void ShareWithBob() const
    {
        MustRun({"import", Mailbox("alice"), "Shared", Sample("01-plain").string()});
        MustRun({"share", Mailbox("alice"), "Shared", "--with", "bob"});
    }
    Json Findings(const std::string& mailbox = "alice") const
    {
        const Outcome outcome = Run({"doctor", Mailbox(mailbox), "--json"});
        const Json value = outcome.Value();
        EXPECT_EQ(outcome.exitCode, value.at("well") == true ? 0 : 1);
        for (const Json& finding : value.at("findings"))
            if (finding.at("state") == "act") {
                EXPECT_EQ(value.at("well"), false);
                EXPECT_NE(finding.at("todo"), "") << finding;
            }
        return value.at("findings");
    }
    // What was found of an area in a state.
    std::string Found(const std::string& area, const std::string& state,
                      const std::string& mailbox = "alice") const
    {
        const Json findings = Findings(mailbox);
        const auto found = std::find_if(findings.begin(), findings.end(), [&](const Json& finding) {
            return finding.at("area") == area && finding.at("state") == state;
        });
        return found == findings.end() ? "nothing was found" : found->at("what").get<std::string>();
    }
};

TEST_F(DoctorTest, AMailboxThatLacksNothingNeedsNobody)
{
    ShareWithBob();
    RunUntilIdle({"alice", "bob"}, "0.5");
    const Json findings = Findings();
    for (const char* const area : {"permissions", "databases", "store", "hash files", "keys", "exchange",
                                   "clock", "disk space", "sharing", "log"})
        EXPECT_TRUE(std::any_of(
            findings.begin(), findings.end(),
            [&](const Json& finding) { return finding.at("area") == area && finding.at("state") == "good"; }))
            << area << findings;
    for (const Json& finding : findings)
        EXPECT_NE(finding.at("state"), "act") << finding;
    // Nothing of it is left.
    EXPECT_EQ(std::distance(fs::directory_iterator(Path("alice") / "packages"), {}), 0);
    for (const auto& entry : fs::recursive_directory_iterator(Exchange()))
        EXPECT_NE(entry.path().filename(), "probe");
}

TEST_F(DoctorTest, WhatOthersMayReadIsFound)
{
    fs::permissions(Path("alice") / "device.key", fs::perms::others_read, fs::perm_options::add);
    EXPECT_NE(Found("permissions", "act").find("device.key is open"), std::string::npos);
    fs::permissions(Path("bob"), fs::perms::group_exec, fs::perm_options::add);
    EXPECT_NE(Found("permissions", "act", "bob").find("bob is open"), std::string::npos);
}

TEST_F(DoctorTest, WhatCheckFindsIsFound)
{
    ShareWithBob();
    RunUntilIdle({"alice", "bob"}, "0.5");
    std::ofstream(fs::directory_iterator(Path("alice") / "qvdata" / "sharing")->path(), std::ios::app) << "x";
    EXPECT_NE(Found("hash files", "act").find("Shared"), std::string::npos);
    Execute(Path("alice") / "store.sqlite",
            "UPDATE part SET properties=x'1F001A00FFFFFFFF00' WHERE parent_id=0");
    EXPECT_NE(Found("store", "act").find("is damaged"), std::string::npos);
    Execute(Path("alice") / "host.db",
            "CREATE TABLE x(a); CREATE INDEX y ON x(a); INSERT INTO x VALUES(1);"
            "PRAGMA writable_schema=ON;"
            "UPDATE sqlite_schema SET sql='CREATE INDEX y ON x(a) WHERE a=2' WHERE name='y'");
    EXPECT_NE(Found("databases", "act").find("host.db"), std::string::npos);
}

TEST_F(DoctorTest, AMailboxThatDoesNotOpenIsFound)
{
    fs::remove(Path("alice") / "store.sqlite");
    EXPECT_NE(Found("mailbox", "act").find("its message store is missing"), std::string::npos);
}

TEST_F(DoctorTest, KeysThatAreGoneAreFound)
{
    fs::remove(Path("alice") / "device.key");
    EXPECT_NE(Found("keys", "act").find("device.key"), std::string::npos);
}

TEST_F(DoctorTest, AnExchangeThatIsNotThereIsFound)
{
    MustRun({"init", Mailbox("carol"), "--name", "carol"});
    EXPECT_EQ(Found("exchange", "act", "carol"), "none is known");
    fs::rename(Exchange(), Path("elsewhere"));
    EXPECT_NE(Found("exchange", "act").find("is gone"), std::string::npos);
}

TEST_F(DoctorTest, AnExchangeThatTakesNothingIsFound)
{
    const std::string device = MustRun({"members", Mailbox("alice"), "--json"}).Value().at("device");
    fs::remove_all(Path("exchange") / device);
    EXPECT_NE(Found("exchange", "note").find("card"), std::string::npos);
    std::ofstream(Path("exchange") / device) << "no directory";
    EXPECT_NE(Found("exchange", "act").find(device), std::string::npos);
}

TEST_F(DoctorTest, AClockThatIsBehindWhatWasHeardIsFound)
{
    Execute(Path("alice") / "host.db", "UPDATE device SET heard = 150000000000000000");
    EXPECT_NE(Found("clock", "act").find("ahead"), std::string::npos);
}

TEST_F(DoctorTest, WhatWaitsForAPersonIsFound)
{
    ShareWithBob();
    MustRun({"share", Mailbox("alice"), "Shared", "--with", "dave"});
    EXPECT_NE(Found("members", "act").find("dave"), std::string::npos);
    MustRun({"run", Mailbox("alice"), "--until-idle", "--idle-seconds", "0.5"});
    MustRun({"run", Mailbox("bob"), "--until-idle", "--idle-seconds", "0.5"});
    EXPECT_EQ(Found("invitations", "act", "bob"), "alice shares Shared");
}

TEST_F(DoctorTest, AMirrorThatIsStoppedIsFound)
{
    MustRun({"mirror", Mailbox("alice"), "In", Path("Maildir").string()});
    EXPECT_NE(Found("mirrors", "good").find("are kept in step"), std::string::npos);
    MustRun({"run", Mailbox("alice"), "--until-idle", "--idle-seconds", "0.5"});
    fs::remove_all(Path("Maildir"));
    Process run = Start({"run", Mailbox("alice")});
    EXPECT_TRUE(Eventually([&] { return Found("mirrors", "act").find("Maildir") != std::string::npos; }));
    EXPECT_EQ(Found("run", "good"), "one is under way");
    run.AskToEnd();
    run.Wait();
}

TEST_F(DoctorTest, FailuresOfTheLastDayAreNamed)
{
    char now[32];
    const std::time_t time = std::time(nullptr);
    std::strftime(now, sizeof now, "%m/%d/%y %H:%M:%S", std::gmtime(&time));
    std::ofstream(Path("alice") / "logs" / "quorvane3.log")
        << "11/20/25 07:55:14 CFolder::Resend(3) 0x80004005\r\n"
        << now << " CSession2::Logon(4) 0x80040111\r\n";
    EXPECT_EQ(Found("log", "note"),
              "1 failure was traced in the last day, at last CSession2::Logon: the logon "
              "failed (0x80040111)");
}

}  // namespace

}  // namespace quorvane::test
