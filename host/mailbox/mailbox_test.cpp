#include "host/mailbox/mailbox.h"

#include <gtest/gtest.h>

#include "platform/testing/test_directory.h"

namespace quorvane::host {
namespace {

// Members tell a mailbox that was made anew under an old name by it.
TEST(MailboxTest, AnOpenedMailboxIsTheOneThatWasMadeAndNoOther)
{
    const test::TestDirectory files;
    const Mailbox made = Mailbox::Create(files.File("one"), "alice");
    const Mailbox other = Mailbox::Create(files.File("other"), "alice");

    const Mailbox opened = Mailbox::Open(files.File("one"));

    EXPECT_EQ(opened.Name(), "alice");
    EXPECT_FALSE(opened.Instance().empty());
    EXPECT_EQ(opened.Instance(), made.Instance());
    EXPECT_NE(opened.Instance(), other.Instance());
}

}  // namespace
}  // namespace quorvane::host
