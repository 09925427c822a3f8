// A damaged row of the message store costs its message and nothing else.
#include <sqlite3.h>

#include <algorithm>

#include "tests/program/program.h"

namespace quorvane::test {

namespace {

class CheckTest : public ProgramTest {
protected:
    static void Execute(const std::filesystem::path& database, const char* sql)
    {
        sqlite3* opened = nullptr;
        ASSERT_EQ(sqlite3_open(database.string().c_str(), &opened), SQLITE_OK);
        EXPECT_EQ(sqlite3_exec(opened, sql, nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(opened);
        sqlite3_close(opened);
    }
    // The third message's properties end within a value.
    void DamageOne(const std::string& mailbox) const
    {
        Execute(Path(mailbox) / "store.sqlite",
                "UPDATE part SET properties=x'1F001A00FFFFFFFF00' WHERE message_id=3 AND parent_id=0");
    }
    static std::size_t DamagedOf(const std::vector<Json>& items)
    {
        return static_cast<std::size_t>(std::count_if(
            items.begin(), items.end(), [](const Json& item) { return item.at("damaged") == true; }));
    }
};

TEST_F(CheckTest, AMailboxThatIsWholeIsSound)
{
    MakeMailboxes({"a"});
    MustRun({"import", Mailbox("a"), "In", Samples().string()});
    const Json checked = MustRun({"check", Mailbox("a"), "--json"}).Value();
    EXPECT_EQ(checked["sound"], true);
    EXPECT_EQ(checked["checked"], 40U);
}

TEST_F(CheckTest, ADamagedItemIsNamedAndTheOthersWork)
{
    MakeMailboxes({"a"});
    MustRun({"import", Mailbox("a"), "In", Samples().string()});
    DamageOne("a");

    const Outcome checked = Run({"check", Mailbox("a"), "--json"});
    EXPECT_EQ(checked.exitCode, 1);
    EXPECT_EQ(checked.Value()["items"].size(), 1U) << checked.output;
    const std::vector<Json> items = Items("a", "In");
    EXPECT_EQ(items.size(), 40U);
    EXPECT_EQ(DamagedOf(items), 1U);
    const Outcome exported =
        Run({"export", Mailbox("a"), "In", Path("out").string(), "--format", "msg", "--json"});
    EXPECT_EQ(exported.exitCode, 1);
    EXPECT_EQ(exported.Value()["files"].size(), 39U) << exported.output;
    EXPECT_EQ(exported.Value()["damaged"].size(), 1U);
}

TEST_F(CheckTest, ARunSendsTheOthersOfAFolderWithADamagedItem)
{
    MakeMailboxes({"alice", "bob"});
    MustRun({"import", Mailbox("alice"), "Shared", Samples().string()});
    DamageOne("alice");
    MustRun({"share", Mailbox("alice"), "Shared", "--with", "bob"});
    RunUntilIdle({"alice", "bob"});
    EXPECT_EQ(Items("bob", "Shared").size(), 39U);
    EXPECT_EQ(
        MustRun({"status", Mailbox("alice"), "--json"}).Value().dump().find("damaged") != std::string::npos,
        true);
}

TEST_F(CheckTest, ADatabaseThatIsDamagedIsNamed)
{
    MakeMailboxes({"a"});
    Execute(Path("a") / "host.db",
            "CREATE TABLE x(a); CREATE INDEX y ON x(a); INSERT INTO x VALUES(1);"
            "PRAGMA writable_schema=ON;"
            "UPDATE sqlite_schema SET sql='CREATE INDEX y ON x(a) WHERE a=2' WHERE name='y'");
    const Outcome checked = Run({"check", Mailbox("a"), "--json"});
    EXPECT_EQ(checked.exitCode, 1);
    ASSERT_EQ(checked.Value()["databases"].size(), 1U) << checked.output;
    EXPECT_EQ(checked.Value()["databases"][0]["file"], "host.db");
}

}  // namespace

}  // namespace quorvane::test
