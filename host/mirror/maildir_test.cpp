#include "host/mirror/maildir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "host/base/errors.h"
#include "host/mirror/mirrored_mailbox_for_test.h"

namespace quorvane::host {

namespace {

using ::testing::SizeIs;

class MaildirTest : public ::testing::Test {
protected:
    MaildirTest()
    {
        Maildir::Make(root.Path());
        maildir.Open();
    }
    // As if the look began later: all that was done lies back then.
    Maildir::Listing List() { return maildir.List(Maildir::Now() + 10'000'000'000); }
    fs::path Cur(const std::string& name) const { return root / "cur" / name; }

    test::TestDirectory root;
    Maildir maildir{root.Path(), {std::chrono::milliseconds(50), std::chrono::milliseconds(0)}};
};

TEST_F(MaildirTest, ADirectoryInWhichNamesChangedJustNowIsNotSettled)
{
    WriteFile(Cur("1:2,S"), MailText("1", "one"));
    EXPECT_FALSE(maildir.List(Maildir::Now()).isSettled);
    EXPECT_TRUE(List().isSettled);
}

TEST_F(MaildirTest, WhatWasChangedInTheLastMinuteMayNotBeOnTheDisk)
{
    WriteFile(Cur("1:2,S"), MailText("1", "one"));
    MailFile file = List().files.at(0);
    for (const std::int64_t time : {std::int64_t{0}, Maildir::Now(), Maildir::Now() - 50'000'000'000}) {
        file.look.time = time;
        EXPECT_TRUE(maildir.SyncNew(file)) << time;
    }
    file.look.time = Maildir::Now() - 70'000'000'000;
    EXPECT_FALSE(maildir.SyncNew(file));
}

// mbsync puts what nobody has read yet into new/, and its other flags into the name.
TEST_F(MaildirTest, WhatIsNewHasTheMarksOfItsName)
{
    WriteFile(root / "new" / "1,U=5:2,F", MailText("1", "one"));
    const auto files = List().files;
    ASSERT_THAT(files, SizeIs(1));
    EXPECT_EQ(files[0].base, "1,U=5");
    EXPECT_EQ(files[0].marks, kMarkFlagged);
}

TEST_F(MaildirTest, NoNameIsTaken)
{
    WriteFile(Cur("1:2,S"), "there before");
    Maildir::NewFile file = maildir.Begin("1");
    file.Stream() << "another";
    file.Finish();
    EXPECT_FALSE(maildir.Deliver(file, "cur", "1:2,S"));
    EXPECT_EQ(BytesOf(Cur("1:2,S")), "there before");
    EXPECT_TRUE(maildir.Deliver(file, "cur", "2:2,S"));
    EXPECT_EQ(BytesOf(Cur("2:2,S")), "another");
}

TEST_F(MaildirTest, WhatIsNotDeliveredGoes)
{
    maildir.Begin("1").Stream() << "half";
    EXPECT_TRUE(fs::is_empty(root / "tmp"));
}

TEST_F(MaildirTest, AFileThatIsAnotherByNowIsNeitherReadNorRemoved)
{
    WriteFile(Cur("1:2,S"), MailText("1", "one"));
    const MailFile listed = List().files.at(0);
    WriteFile(Cur("1:2,S"), MailText("1", "another one"));

    MailBytes bytes;
    EXPECT_FALSE(maildir.Read(listed, bytes));
    EXPECT_FALSE(maildir.Remove(listed));
    EXPECT_EQ(BytesOf(Cur("1:2,S")), MailText("1", "another one"));
    EXPECT_TRUE(maildir.Remove(List().files.at(0)));
    EXPECT_FALSE(fs::exists(Cur("1:2,S")));
    EXPECT_TRUE(fs::is_empty(root / "tmp"));
}

TEST_F(MaildirTest, WhatAKillLeftAsideIsPutBack)
{
    WriteFile(root / "tmp" / "quorvane-removed:cur:1:2,S", MailText("1", "one"));
    WriteFile(root / "tmp" / "1.R0.quorvane", "being written");
    maildir.TidyUp();
    EXPECT_TRUE(fs::exists(Cur("1:2,S")));
    EXPECT_TRUE(fs::exists(root / "tmp" / "1.R0.quorvane"));  // it may be somebody's yet
}

TEST_F(MaildirTest, LinksAreNotFollowed)
{
    test::TestDirectory other;
    WriteFile(other / "mail", MailText("1", "one"));
    fs::create_symlink(other / "mail", Cur("1:2,S"));
    const auto listed = List().files;
    ASSERT_THAT(listed, SizeIs(1));
    EXPECT_EQ(listed[0].problem, "it is a link");
    MailFile asAFile = listed[0];
    asAFile.digest.clear();
    MailBytes bytes;
    EXPECT_FALSE(maildir.Read(asAFile, bytes));

    fs::remove_all(root / "new");
    fs::create_directory_symlink(other.Path(), root / "new");
    EXPECT_THROW(maildir.Open(), HostError);
}

}  // namespace

}  // namespace quorvane::host
