#include "host/mailbox/mailbox.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "host/base/errors.h"
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

TEST(MailboxTest, HasOneRunAtATime)
{
    const test::TestDirectory files;
    const Mailbox mailbox = Mailbox::Create(files.File("one"), "alice");
    EXPECT_FALSE(mailbox.IsInRun());
    auto run = mailbox.LockForRun();
    EXPECT_TRUE(mailbox.IsInRun());
    EXPECT_THROW(Mailbox::Open(files.File("one")).LockForRun(), HostError);
    run.reset();
    EXPECT_FALSE(mailbox.IsInRun());
}

TEST(MailboxTest, WhoLooksForARunKeepsNoneFromBeginning)
{
    const test::TestDirectory files;
    const Mailbox mailbox = Mailbox::Create(files.File("one"), "alice");
    std::atomic<bool> isOver = false;
    std::thread looking([&] {
        while (!isOver)
            static_cast<void>(mailbox.IsInRun());
    });
    for (int i = 0; i < 100; ++i)
        EXPECT_NO_THROW(static_cast<void>(mailbox.LockForRun())) << i;
    isOver = true;
    looking.join();
}

}  // namespace
}  // namespace quorvane::host
