// The tests of whole roads run on mailboxes whose sharing databases are files of Access's.
#include <gtest/gtest.h>

#include "tests/oledb_provider/access_file.h"
#include "tests/oledb_provider/registered_provider.h"
#include "tests/support/packages.h"

namespace quorvane::test {
namespace {

[[maybe_unused]] const bool isSet = [] {
    sharingDatabaseVfs = kAccessFileVfs;
    return true;
}();

TEST(AccessMailboxTest, ALogonOpensTheDatabaseThroughTheProvider)
{
    const ProviderNotes before = LastProviderNotes();
    const TestMailbox mailbox;
    {
        const TestLogon logon(mailbox);
        const ProviderNotes notes = LastProviderNotes();
        EXPECT_EQ(notes.initialized, before.initialized + 1);
        EXPECT_EQ(Narrow(notes.dataSource), mailbox.DatabasePath().string());
        EXPECT_EQ(notes.released, before.released);
    }
    EXPECT_EQ(LastProviderNotes().released, before.released + 1) << "the session's data source goes with it";
}

}  // namespace
}  // namespace quorvane::test
