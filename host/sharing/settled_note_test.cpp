#include "host/sharing/settled_note.h"

#include <gtest/gtest.h>

#include <fstream>

#include "host/base/sqlite.h"
#include "platform/testing/test_directory.h"

namespace quorvane::host {
namespace {

class SettledNoteTest : public ::testing::Test {
protected:
    const test::TestDirectory files;
    const Mailbox mailbox = Mailbox::Create(files.File("box"), "ann");

    static bool Yes() { return true; }
    bool Holds() const { return SettledNote(mailbox).Holds(); }
    static void Change(const std::filesystem::path& database)
    {
        Database(database.string(), Database::Mode::kOpen).Execute("CREATE TABLE another (it)");
    }
    std::vector<std::filesystem::path> Databases() const
    {
        return {mailbox.StorePath(), mailbox.SharingDatabasePath(), mailbox.HostDatabasePath()};
    }
};

TEST_F(SettledNoteTest, ItHoldsForAsLongAsNobodyWrites)
{
    EXPECT_FALSE(Holds());
    SettledNote(mailbox).Write(Yes);
    EXPECT_TRUE(Holds());
    Database(mailbox.HostDatabasePath().string(), Database::Mode::kOpen).Execute("SELECT * FROM item");
    EXPECT_TRUE(Holds());
}

TEST_F(SettledNoteTest, WhoeverWritesToADatabaseEndsIt)
{
    for (const auto& database : Databases()) {
        SettledNote(mailbox).Write(Yes);
        ASSERT_TRUE(Holds()) << database;
        Change(database);
        EXPECT_FALSE(Holds()) << database;
    }
}

// What was committed stands beside the database until somebody brings it in.
TEST_F(SettledNoteTest, WhoHasWrittenAndHasTheDatabaseOpenEndsIt)
{
    for (const auto& database : Databases()) {
        SettledNote(mailbox).Write(Yes);
        Database open(database.string(), Database::Mode::kOpen);
        open.Execute("CREATE TABLE another (it)");
        EXPECT_FALSE(Holds()) << database;
    }
}

TEST_F(SettledNoteTest, WhatIsWrittenWhileItIsAskedForKeepsItFromBeingNoted)
{
    for (const auto& database : Databases()) {
        SettledNote(mailbox).Write([&] {
            Change(database);
            return true;
        });
        EXPECT_FALSE(Holds()) << database;
    }
}

TEST_F(SettledNoteTest, WhatIsNotSettledIsNotNoted)
{
    SettledNote(mailbox).Write([] { return false; });
    EXPECT_FALSE(Holds());
}

TEST_F(SettledNoteTest, WhoReadsWhatWasThereBeforeALastCommitKeepsItFromBeingNoted)
{
    Database reader(mailbox.HostDatabasePath().string(), Database::Mode::kReadOnly);
    reader.FreezeReading();
    Database writer(mailbox.HostDatabasePath().string(), Database::Mode::kOpen);
    writer.Execute("CREATE TABLE another (it)");
    SettledNote(mailbox).Write(Yes);
    EXPECT_FALSE(Holds());
}

TEST_F(SettledNoteTest, ANoteThatWasCutShortDoesNotHold)
{
    SettledNote(mailbox).Write(Yes);
    ASSERT_TRUE(Holds());
    std::ofstream(mailbox.Directory() / "settled", std::ios::trunc) << "records";
    EXPECT_FALSE(Holds());
}

}  // namespace
}  // namespace quorvane::host
