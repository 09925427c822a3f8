// A damaged row of the message store costs its message and nothing else; what a mailbox's files tell
// differently is found, and mended without a loss.
#include <sqlite3.h>

#include <algorithm>
#include <fstream>

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

// Another program of the user's may make such.
TEST_F(CheckTest, AFolderThatSearchesIsNoFolderOfTheProgram)
{
    MakeMailboxes({"a", "b"});
    MustRun({"folder", "make", Mailbox("a"), "Found"});
    Execute(Path("a") / "store.sqlite", "UPDATE folder SET search=x'' WHERE name='Found'");

    for (const Json& folder : MustRun({"list", Mailbox("a"), "--json"}).Value())
        EXPECT_NE(folder.at("folder"), "Found");
    const Outcome shared = Run({"share", Mailbox("a"), "Found", "--with", "b"});
    EXPECT_EQ(shared.exitCode, 1);
    EXPECT_NE(shared.errors.find("no such folder"), std::string::npos) << shared.errors;
    EXPECT_EQ(Run({"import", Mailbox("a"), "Found", Sample("01-plain").string()}).exitCode, 1);
    EXPECT_EQ(MustRun({"check", Mailbox("a"), "--json"}).Value()["sound"], true);
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

// Two mailboxes that share a folder with all samples.
class RepairTest : public CheckTest {
protected:
    void SetUp() override
    {
        CheckTest::SetUp();
        MakeMailboxes({"alice", "bob"});
        MustRun({"import", Mailbox("alice"), "Shared", Samples().string()});
        MustRun({"share", Mailbox("alice"), "Shared", "--with", "bob"});
        RunUntilIdle({"alice", "bob"});
        ASSERT_EQ(Items("bob", "Shared").size(), 40U);
    }

    Json Check() const
    {
        const Outcome checked = Run({"check", Mailbox("bob"), "--json"});
        EXPECT_EQ(checked.exitCode, checked.Value()["sound"] == true ? 0 : 1);
        return checked.Value();
    }
    Json Repair() const { return MustRun({"check", Mailbox("bob"), "--repair", "--json"}).Value(); }

    // What was found is found no more, and a run brings both to the same, with everything there.
    void ExpectWhole() const
    {
        EXPECT_EQ(Check()["sound"], true);
        RunUntilIdle({"alice", "bob"});
        EXPECT_EQ(Items("alice", "Shared").size(), 40U);
        ExpectSame("alice", "Shared", "bob", "Shared");
        EXPECT_EQ(Check()["sound"], true);
    }
    static std::vector<std::string> Kinds(const Json& checked)
    {
        std::vector<std::string> kinds;
        for (const Json& one : checked["disagreements"])
            kinds.push_back(one["kind"]);
        return kinds;
    }

    void LoseMessage() const
    {
        Execute(Path("bob") / "store.sqlite",
                "DELETE FROM part WHERE message_id=3; DELETE FROM message WHERE id=3");
    }
    std::filesystem::path HashFile() const
    {
        for (const auto& entry : std::filesystem::directory_iterator(Path("bob") / "qvdata" / "sharing"))
            if (entry.path().extension() == ".dat")
                return entry.path();
        return {};
    }
    void AppendToHashes(const std::string& bytes) const
    {
        std::ofstream(HashFile(), std::ios::binary | std::ios::app) << bytes;
    }

    // An index whose entries are those of other rows.
    void DamageIndex(const std::string& file, const std::string& index, const std::string& table,
                     const std::string& columns) const
    {
        const std::filesystem::path path = Path("bob") / file;
        const std::string whole = "CREATE INDEX " + index + " ON " + table + " (" + columns + ")";
        const auto define = [&](const std::string& sql) {
            Execute(path, ("PRAGMA writable_schema=ON; UPDATE sqlite_schema SET sql='" + sql +
                           "' WHERE name='" + index + "'")
                              .c_str());
        };
        define(whole + " WHERE " + columns + " IS NULL");
        Execute(path, ("UPDATE " + table + " SET rowid=rowid+1000").c_str());
        define(whole);
    }
};

TEST_F(RepairTest, IndexesAreMadeAnew)
{
    DamageIndex("sharing.db", "idxItemEntryID", "tblItem", "EntryID");
    DamageIndex("host.db", "item_folder", "item", "folder_id");
    EXPECT_GE(Check()["databases"].size(), 2U);

    const Json mended = Repair();
    ASSERT_EQ(mended["mended"].size(), 2U) << mended.dump();
    EXPECT_TRUE(std::filesystem::exists(std::filesystem::path(mended["kept"]) / "sharing.db"));
    EXPECT_TRUE(std::filesystem::exists(std::filesystem::path(mended["kept"]) / "host.db"));
    ExpectWhole();
}

TEST_F(RepairTest, AMessageThatWasLostIsNoDeletionAndComesAgain)
{
    LoseMessage();
    EXPECT_EQ(Kinds(Check()), std::vector<std::string>{"lost-message"});

    const Json mended = Repair();
    EXPECT_EQ(mended["mended"][0]["file"], "sharing.db") << mended.dump();
    EXPECT_EQ(mended["deletionsToTell"], 0U);
    ExpectWhole();
}

TEST_F(RepairTest, ARowThatWasLostComesBackToItsMessage)
{
    Execute(Path("bob") / "sharing.db", "DELETE FROM tblItem WHERE rowid=(SELECT min(rowid) FROM tblItem)");
    const Json found = Check();
    EXPECT_EQ(Kinds(found), std::vector<std::string>{"lost-row"});

    const Json mended = Repair();
    ASSERT_EQ(mended["mended"].size(), 1U) << mended.dump();
    EXPECT_EQ(mended["mended"][0]["file"], "sharing.db");
    EXPECT_EQ(mended["mended"][0]["item"], found["disagreements"][0]["item"]);
    EXPECT_EQ(Check()["sound"], true);
    EXPECT_EQ(RunUntilIdle({"alice", "bob"})[1]["itemsSent"], 0);
    ExpectWhole();
}

TEST_F(RepairTest, AnItemWithNeitherRowNorMessageIsAskedFor)
{
    const std::string store = (Path("bob") / "store.sqlite").string();
    Execute(Path("bob") / "sharing.db", ("ATTACH '" + store +
                                         "' AS store; DELETE FROM tblItem WHERE EntryID "
                                         "LIKE '%' || (SELECT hex(guid) FROM store.message WHERE id=3)")
                                            .c_str());
    LoseMessage();
    EXPECT_EQ(Kinds(Check()), (std::vector<std::string>{"lost-row", "hash"}));
    EXPECT_EQ(Repair()["mended"][0]["file"], "host.db");
    ExpectWhole();
}

TEST_F(RepairTest, WhatIsNoItemsLeavesTheHashFile)
{
    const std::string key(80, 'A');
    std::string record{static_cast<char>(2 * key.size() + 2), 0, 0, 0};
    for (const char c : key)
        record += {c, 0};
    record += std::string(2, '\0') + std::string(4, '\0');  // its end, and no value
    AppendToHashes(record + "torn");
    EXPECT_EQ(Kinds(Check()), (std::vector<std::string>{"hash", "hash"}));

    const Json mended = Repair();
    EXPECT_EQ(mended["mended"].size(), 1U) << mended.dump();
    EXPECT_TRUE(std::filesystem::exists(std::filesystem::path(mended["kept"]) / HashFile().filename()));
    EXPECT_EQ(Check()["sound"], true);
    EXPECT_EQ(RunUntilIdle({"alice", "bob"})[1]["itemsSent"], 0);
    ExpectWhole();
}

TEST_F(RepairTest, AHashFileOfOtherBytesCostsNothing)
{
    std::ofstream(HashFile(), std::ios::binary) << std::string(10'000, 'x');
    EXPECT_EQ(Kinds(Check()), std::vector<std::string>{"hash"});
    Repair();
    EXPECT_EQ(Check()["sound"], true);
    EXPECT_EQ(RunUntilIdle({"alice", "bob"})[1]["itemsSent"], 0);
    ExpectWhole();
}

TEST_F(RepairTest, WhatWasDeletedHereIsNoDamage)
{
    MustRun({"delete", Mailbox("bob"), "Shared", "1"});
    const Json checked = Check();
    EXPECT_EQ(checked["sound"], true) << checked.dump();
    EXPECT_EQ(checked["deletionsToTell"], 1U);
    EXPECT_EQ(Repair()["mended"].size(), 0U);
    RunUntilIdle({"alice", "bob"});
    EXPECT_EQ(Items("alice", "Shared").size(), 39U);
}

TEST_F(RepairTest, WhatCantBeMendedIsLeftAsItIs)
{
    DamageOne("bob");
    const Outcome mended = Run({"check", Mailbox("bob"), "--repair", "--json"});
    EXPECT_EQ(mended.exitCode, 1);
    EXPECT_EQ(mended.Value()["items"].size(), 1U);
    EXPECT_EQ(mended.Value()["kept"], "");
}

TEST_F(RepairTest, NothingIsMendedDuringARun)
{
    LoseMessage();
    Process run = Start(RunOf("bob"));
    ASSERT_TRUE(Eventually([&] {
        return MustRun({"status", Mailbox("bob"), "--json"}).output.find("\"running\":true") !=
               std::string::npos;
    }));
    const Outcome refused = Run({"check", Mailbox("bob"), "--repair"});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_NE(refused.errors.find("another run"), std::string::npos) << refused.errors;
    EXPECT_FALSE(std::filesystem::exists(Path("bob") / "before-repair"));
    run.AskToEnd();
    run.Wait();
}

}  // namespace

}  // namespace quorvane::test
