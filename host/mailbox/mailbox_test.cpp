#include "host/mailbox/mailbox.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
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

// As a kill leaves them.
void LeaveHalfMade(const std::filesystem::path& directory)
{
    std::filesystem::create_directories(directory / "packages");
    std::ofstream(directory / "being-made");
    std::ofstream(directory / "sharing.db") << "half";
    std::ofstream(directory / "host.db");
}

TEST(MailboxTest, OneThatWasCutShortIsNoneAndIsMadeAgain)
{
    const test::TestDirectory files;
    LeaveHalfMade(files.File("one"));
    EXPECT_FALSE(Mailbox::IsThere(files.File("one")));
    EXPECT_THROW(Mailbox::Open(files.File("one")), HostError);
    Mailbox::Create(files.File("one"), "alice");
    EXPECT_TRUE(Mailbox::IsThere(files.File("one")));
    EXPECT_EQ(Mailbox::Open(files.File("one")).Name(), "alice");
    EXPECT_FALSE(std::filesystem::exists(std::filesystem::path(files.File("one")) / "being-made"));
}

TEST(MailboxTest, OneThatWasMadeToTheEndIsntMadeAgainWhateverLiesBesideIt)
{
    const test::TestDirectory files;
    Mailbox::Create(files.File("one"), "alice");
    std::ofstream(std::filesystem::path(files.File("one")) / "being-made");
    EXPECT_TRUE(Mailbox::IsThere(files.File("one")));
    EXPECT_THROW(Mailbox::Create(files.File("one"), "bob"), HostError);
    EXPECT_EQ(Mailbox::Open(files.File("one")).Name(), "alice");
}

TEST(MailboxTest, WhatIsBeingMadeByAnotherIsLeftToIt)
{
    const test::TestDirectory files;
    LeaveHalfMade(files.File("one"));
    const auto other = FileLock::Take(std::filesystem::path(files.File("one")) / "being-made", "make", "it");
    EXPECT_THROW(Mailbox::Create(files.File("one"), "alice"), HostError);
    EXPECT_TRUE(std::filesystem::exists(std::filesystem::path(files.File("one")) / "sharing.db"));
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
