// The road of one change between two mailboxes, end to end.
#include <gtest/gtest.h>

#include "tests/support/packages.h"

namespace quorvane::test {
namespace {

constexpr char kRoadFolderId[] = "{5B5E7A2C-0C55-4C26-9F0D-0A5F6D3B8A11}";

class RoadTest : public testing::Test {
protected:
    // Carries what waits for the members of a folder from one side to the other.
    void Carry(TestLogon& from, const TestFolder& folder, size_t items, TestLogon& to,
               const TestMailbox& mailbox)
    {
        Process(to, TakePackage(from, folder.EntryId(), items, mailbox), "tag");
    }

    static MailContents Read(const TestFolder& folder, const std::string& subject)
    {
        const auto id = folder.Find(subject);
        return id ? ContentsOf(*folder.Open(*id).Get()) : MailContents();
    }

    TestMailbox mailboxA;
    TestMailbox mailboxB;
    TestFolder folderA = mailboxA.MakeFolder("Shared");
    TestFolder folderB = mailboxB.MakeFolder("Shared too");
    TestLogon a{mailboxA};
    TestLogon b{mailboxB};
    ComPtr<IFolder> sharedA = a.Share(folderA, kRoadFolderId);
    ComPtr<IFolder> sharedB = b.Share(folderB, kRoadFolderId);
};

TEST_F(RoadTest, ANewMailIsOfferedAndArrivesEqual)
{
    const std::string id = folderA.Add("Hello", "How are you?");
    ASSERT_TRUE(a.Host().Heard("added"));
    const HostEvent added = a.Host().Events("added").front();
    EXPECT_EQ(added.entryId, id);
    EXPECT_EQ(added.action, qv_ac_Added);

    Carry(a, folderA, 1, b, mailboxB);

    ASSERT_TRUE(b.Host().Heard("received"));
    EXPECT_EQ(b.Host().Events("received").front().id, added.id);
    EXPECT_EQ(b.Host().Events("received").front().tag, "tag");
    EXPECT_TRUE(b.Host().Heard("postprocess"));
    EXPECT_EQ(folderB.Count(), 1u);
    EXPECT_EQ(Read(folderB, "Hello"), Read(folderA, "Hello"));
    EXPECT_EQ(Read(folderB, "Hello").attachments,
              std::vector<std::string>{"notes.txt:How are you? (attached)"});
}

TEST_F(RoadTest, WhatIsAppliedIsNotOfferedBack)
{
    folderA.Add("Hello", "How are you?");
    ASSERT_TRUE(a.Host().Heard("added"));
    Carry(a, folderA, 1, b, mailboxB);
    b.Host().Forget();

    folderB.Add("fence", "the last one");
    ASSERT_TRUE(b.Host().Heard("added"));
    Carry(b, folderB, 1, a, mailboxA);

    EXPECT_EQ(b.Host().Events("added").size(), 1u);
    EXPECT_TRUE(b.Host().Events("changed").empty());
    EXPECT_EQ(folderA.Subjects(), (std::vector<std::string>{"Hello", "fence"}));
}

TEST_F(RoadTest, ChangesAndDeletionsFollowInBothDirections)
{
    const std::string inA = folderA.Add("Hello", "How are you?");
    ASSERT_TRUE(a.Host().Heard("added"));
    Carry(a, folderA, 1, b, mailboxB);
    ASSERT_EQ(folderB.Subjects(), std::vector<std::string>{"Hello"});
    const std::string inB = *folderB.Find("Hello");

    folderA.SetSubject(inA, "Hello again");
    ASSERT_TRUE(a.Host().Heard("changed"));
    EXPECT_EQ(a.Host().Events("changed").front().id, a.Host().Events("added").front().id);
    Carry(a, folderA, 1, b, mailboxB);
    EXPECT_EQ(folderB.Subjects(), std::vector<std::string>{"Hello again"});
    EXPECT_EQ(folderB.Find("Hello again"), inB);

    folderB.SetSubject(inB, "Hello back");
    ASSERT_TRUE(b.Host().Heard("changed"));
    EXPECT_EQ(b.Host().Events("changed").front().id, a.Host().Events("added").front().id);
    Carry(b, folderB, 1, a, mailboxA);
    EXPECT_EQ(folderA.Subjects(), std::vector<std::string>{"Hello back"});
    EXPECT_EQ(folderA.Find("Hello back"), inA);

    folderB.Delete(inB);
    ASSERT_TRUE(b.Host().Heard("deleted"));
    EXPECT_EQ(b.Host().Events("deleted").front().action, qv_ac_Deleted);
    Carry(b, folderB, 1, a, mailboxA);
    EXPECT_EQ(folderA.Count(), 0u);
    EXPECT_EQ(mailboxA.Query("SELECT count(*) FROM tblItem"), 0);
    EXPECT_EQ(mailboxB.Query("SELECT count(*) FROM tblItem"), 0);

    EXPECT_EQ(a.Host().Events("added").size(), 1u);
    EXPECT_EQ(a.Host().Events("changed").size(), 1u);
    EXPECT_EQ(b.Host().Events("changed").size(), 1u);
    EXPECT_TRUE(a.Host().Events("deleted").empty());
    EXPECT_FALSE(FindPackage(a, folderA.EntryId()));
    EXPECT_FALSE(FindPackage(b, folderB.EntryId()));
}

TEST_F(RoadTest, ADeletionOnTheFirstSideFollowsToo)
{
    const std::string id = folderA.Add("Hello", "How are you?");
    ASSERT_TRUE(a.Host().Heard("added"));
    Carry(a, folderA, 1, b, mailboxB);
    folderA.Delete(id);
    ASSERT_TRUE(a.Host().Heard("deleted"));
    Carry(a, folderA, 1, b, mailboxB);

    EXPECT_EQ(folderB.Count(), 0u);
    EXPECT_EQ(mailboxB.Query("SELECT count(*) FROM tblItem"), 0);
}

TEST_F(RoadTest, ManyMailsTravelInOnePackage)
{
    constexpr size_t kMails = 25;
    for (size_t i = 0; i < kMails; ++i)
        folderA.Add("Mail " + std::to_string(i), "Number " + std::to_string(i));
    ASSERT_TRUE(a.Host().Heard("added", kMails));
    Carry(a, folderA, kMails, b, mailboxB);

    EXPECT_EQ(folderB.Subjects(), folderA.Subjects());
    EXPECT_EQ(mailboxB.Query("SELECT count(*) FROM tblItem"), static_cast<long>(kMails));
}

TEST_F(RoadTest, APackageThatComesTwiceChangesNothing)
{
    folderA.Add("Hello", "How are you?");
    ASSERT_TRUE(a.Host().Heard("added"));
    const auto package = TakePackage(a, folderA.EntryId(), 1, mailboxB);
    const auto copy = mailboxB.InboxPath() / "again.qvt";
    std::filesystem::copy_file(package, copy);
    Process(b, package, "first");
    const MailContents once = Read(folderB, "Hello");
    Process(b, copy, "second");

    EXPECT_EQ(folderB.Count(), 1u);
    EXPECT_EQ(Read(folderB, "Hello"), once);
    EXPECT_EQ(mailboxB.Query("SELECT count(*) FROM tblItem"), 1);
    EXPECT_TRUE(b.Host().Events("added").empty());
}

TEST_F(RoadTest, AnItemOfAFolderThatIsntSharedHereIsDropped)
{
    ComPtr<IFolders> folders;
    ASSERT_EQ(b.Session().get_Folders(folders.Put()), S_OK);
    sharedB.Reset();
    ASSERT_EQ(folders->Remove(Variant::Long(1).Raw()), S_OK);
    folders.Reset();
    folderA.Add("Hello", "How are you?");
    ASSERT_TRUE(a.Host().Heard("added"));
    Carry(a, folderA, 1, b, mailboxB);

    EXPECT_TRUE(b.Host().Events("received").empty());
    EXPECT_EQ(folderB.Count(), 0u);
}

TEST_F(RoadTest, AnAnnouncedFolderIsShownToTheOtherSide)
{
    ASSERT_EQ(sharedA->Send(Variant::Text(OLESTR("someone")).Raw()), S_OK);
    Process(b, TakePackage(a, "someone", 0, mailboxB), "hello");

    ASSERT_TRUE(b.Host().Heard("folder"));
    EXPECT_EQ(b.Host().Events("folder").front().id, kRoadFolderId);
    EXPECT_EQ(b.Host().Events("folder").front().tag, "hello");
}

TEST_F(RoadTest, AFileThatIsNoPackageIsDoneAwayWith)
{
    const auto path = mailboxB.InboxPath() / "nonsense.qvt";
    std::filesystem::copy_file(mailboxB.DatabasePath(), path);
    Process(b, path, "tag");

    EXPECT_TRUE(
        Eventually([&] { return mailboxB.Query("SELECT count(*) FROM tblUnfinishedReceiveJob") == 0; }));
    EXPECT_TRUE(b.Host().Events().empty());
}

TEST_F(RoadTest, AnInterruptedRunIsResumed)
{
    folderA.Add("Hello", "How are you?");
    ASSERT_TRUE(a.Host().Heard("added"));
    const auto package = TakePackage(a, folderA.EntryId(), 1, mailboxB);
    mailboxB.Execute("INSERT INTO tblUnfinishedReceiveJob VALUES ('" + package.string() + "', 'earlier')");
    ASSERT_EQ(b.Session().ResumeJobs(qv_rs_Receive), S_OK);
    ASSERT_EQ(b.Session().ResumeJobs(qv_rs_Resend), S_OK);
    EXPECT_TRUE(b.Host().Events().empty());

    ASSERT_EQ(b.Session().ResumeJobs(qv_rs_Both), S_OK);
    ASSERT_TRUE(Eventually([&] { return !std::filesystem::exists(package); }));
    EXPECT_EQ(b.Host().Events("received").front().tag, "earlier");
    EXPECT_EQ(folderB.Subjects(), std::vector<std::string>{"Hello"});
}

}  // namespace
}  // namespace quorvane::test
