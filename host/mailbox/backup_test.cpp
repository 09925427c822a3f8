#include "host/mailbox/backup.h"

#include <gtest/gtest.h>

#include "host/base/errors.h"
#include "host/base/files.h"
#include "host/mailbox/peers.h"
#include "host/mailbox/records.h"
#include "platform/testing/test_directory.h"

namespace quorvane::host {
namespace {

const BackupProgress kQuietly = [](const std::string&, unsigned long long, unsigned long long) {};

std::int64_t CountIn(const std::filesystem::path& database, const char* table)
{
    Database opened(database.string(), Database::Mode::kOpen);
    Statement count(opened, (std::string("SELECT count(*) FROM ") + table).c_str());
    count.Step();
    return count.Number(0);
}

class MailboxBackupTest : public ::testing::Test {
protected:
    test::TestDirectory files;
    const Mailbox made = Mailbox::Create(files.File("one"), "alice");
};

TEST_F(MailboxBackupTest, WhatWasOnItsWayIsntInIt)
{
    const std::string package = files.File("a package that the original would send");
    Records(made.HostDatabasePath().string()).AddOutgoing(package, "somebody");
    Database sharing = made.OpenSharingDatabase();
    Statement(sharing, "INSERT INTO tblStorageFiles (Recipients, Path) VALUES ('somebody', ?)")
        .Bind(1, package)
        .Run();

    BackUp(made, files.File("backup"), kQuietly);
    EXPECT_EQ(RestoreBackup(files.File("backup"), files.File("two"), kQuietly), "alice");

    const Mailbox restored = Mailbox::Open(files.File("two"));
    EXPECT_EQ(CountIn(restored.HostDatabasePath(), "outgoing"), 0);
    EXPECT_EQ(CountIn(restored.SharingDatabasePath(), "tblStorageFiles"), 0);
    EXPECT_EQ(CountIn(made.HostDatabasePath(), "outgoing"), 1);
    EXPECT_EQ(CountIn(made.SharingDatabasePath(), "tblStorageFiles"), 1);
}

TEST_F(MailboxBackupTest, AMailboxThatIsMadeOfItIsTheSameDeviceInAnotherEpoch)
{
    const exchange::Epoch epoch = Peers(made.HostDatabasePath().string()).OwnEpoch();
    BackUp(made, files.File("backup"), kQuietly);
    RestoreBackup(files.File("backup"), files.File("two"), kQuietly);

    const Mailbox restored = Mailbox::Open(files.File("two"));
    EXPECT_EQ(restored.Device(), made.Device());
    EXPECT_NE(Peers(restored.HostDatabasePath().string()).OwnEpoch(), epoch);
    EXPECT_EQ(ReadWhole(restored.KeyPath(), 100), ReadWhole(made.KeyPath(), 100));
}

// What somebody writes after the moment that was chosen isn't in the copy, though the copy is made later.
TEST_F(MailboxBackupTest, ADatabaseIsCopiedAsItWasWhenReadingWasFrozen)
{
    Records records(made.HostDatabasePath().string());
    records.AddOutgoing("before", "somebody");
    Database frozen(made.HostDatabasePath().string(), Database::Mode::kOpen);
    frozen.FreezeReading();
    records.AddOutgoing("after", "somebody");

    frozen.CopyTo(files.File("copy.db"), [](int, int) {});

    EXPECT_EQ(CountIn(files.File("copy.db"), "outgoing"), 1);
    EXPECT_EQ(CountIn(made.HostDatabasePath(), "outgoing"), 2);
}

// A writer that doesn't end is waited for, and then named.
TEST_F(MailboxBackupTest, WhatIsLockedIsWaitedForOnlySoLong)
{
    Database other(made.HostDatabasePath().string(), Database::Mode::kOpen);
    const Transaction held(other);
    Database second(made.HostDatabasePath().string(), Database::Mode::kOpen);
    second.SetPatience(1);

    EXPECT_THROW(Transaction{second}, HostError);
}

}  // namespace
}  // namespace quorvane::host
