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

    void SetUp() override { Rest(); }

    static bool Yes() { return true; }
    // As if the databases hadn't been written to for a while.
    void Rest() const
    {
        const auto before = std::filesystem::file_time_type::clock::now() - std::chrono::seconds(3);
        for (const auto& database : Databases())
            if (std::filesystem::exists(database))
                std::filesystem::last_write_time(database, before);
    }
    bool Holds() const { return SettledNote(mailbox).Holds(); }
    // As if the note had been made long behind any change.
    bool LateNoteHolds() const
    {
        const std::filesystem::path note = mailbox.Directory() / "settled";
        if (std::filesystem::exists(note))
            std::filesystem::last_write_time(
                note, std::filesystem::file_time_type::clock::now() + std::chrono::seconds(10));
        return Holds();
    }
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
        Rest();
        SettledNote(mailbox).Write(Yes);
        ASSERT_TRUE(Holds()) << database;
        Change(database);
        EXPECT_FALSE(LateNoteHolds()) << database;
    }
}

// What was committed stands beside the database until somebody brings it in.
TEST_F(SettledNoteTest, WhoHasWrittenAndHasTheDatabaseOpenEndsIt)
{
    for (const auto& database : Databases()) {
        Rest();
        SettledNote(mailbox).Write(Yes);
        ASSERT_TRUE(Holds()) << database;
        Database open(database.string(), Database::Mode::kOpen);
        open.Execute("CREATE TABLE another (it)");
        EXPECT_FALSE(LateNoteHolds()) << database;
    }
}

TEST_F(SettledNoteTest, WhatIsWrittenWhileItIsAskedForKeepsItFromBeingNoted)
{
    for (const auto& database : Databases()) {
        Rest();
        SettledNote(mailbox).Write([&] {
            Change(database);
            return true;
        });
        EXPECT_FALSE(LateNoteHolds()) << database;
    }
}

// A file's time may be the same after another change.
TEST_F(SettledNoteTest, ANoteMadeRightBehindAChangeDoesNotHoldUntilItIsMadeAnew)
{
    SettledNote(mailbox).Write(Yes);
    ASSERT_TRUE(Holds());
    const std::filesystem::path note = mailbox.Directory() / "settled";
    const auto changed = std::filesystem::last_write_time(mailbox.HostDatabasePath());
    std::filesystem::last_write_time(note, changed + std::chrono::seconds(2));
    EXPECT_FALSE(Holds());
    SettledNote(mailbox).Write(Yes);
    EXPECT_TRUE(Holds());
}

TEST_F(SettledNoteTest, WhatIsNotSettledIsNotNoted)
{
    SettledNote(mailbox).Write([] { return false; });
    EXPECT_FALSE(LateNoteHolds());
}

TEST_F(SettledNoteTest, WhoReadsWhatWasThereBeforeALastCommitKeepsItFromBeingNoted)
{
    Database reader(mailbox.HostDatabasePath().string(), Database::Mode::kReadOnly);
    reader.FreezeReading();
    Database writer(mailbox.HostDatabasePath().string(), Database::Mode::kOpen);
    writer.Execute("CREATE TABLE another (it)");
    SettledNote(mailbox).Write(Yes);
    EXPECT_FALSE(LateNoteHolds());
}

TEST_F(SettledNoteTest, ANoteThatWasCutShortDoesNotHold)
{
    SettledNote(mailbox).Write(Yes);
    ASSERT_TRUE(Holds());
    std::ofstream(mailbox.Directory() / "settled", std::ios::trunc) << "records";
    EXPECT_FALSE(LateNoteHolds());
}

}  // namespace
}  // namespace quorvane::host
