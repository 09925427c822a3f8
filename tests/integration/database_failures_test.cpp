// What a statement of the sharing database that fails looks like from outside: what is returned, what the log
// says, and what goes on.
#include <gtest/gtest.h>

#include "tests/support/packages.h"

namespace quorvane::test {
namespace {

constexpr HRESULT kNoTable = static_cast<HRESULT>(0x80040E37u);

class DatabaseFailuresTest : public testing::Test {
protected:
    // Every statement on the table fails from now on.
    void Hide(const char* table) const
    {
        mailbox.Execute(std::string("ALTER TABLE ") + table + " RENAME TO hidden");
    }
    // How often a line of the log begins its message after "name(line) " with a text.
    size_t Logged(const std::string& name, const std::string& message) const
    {
        const std::string log = mailbox.Log();
        size_t count = 0;
        for (size_t at = log.find(name + "("); at != std::string::npos; at = log.find(name + "(", at + 1)) {
            const size_t text = log.find(") ", at) + 2;
            count += log.compare(text, message.size(), message) == 0 ? 1 : 0;
        }
        return count;
    }
    // A failure under a name, with the database's description right behind.
    size_t Described(const std::string& name) const
    {
        EXPECT_EQ(Logged("TraceOLEDBError", "Description: no such table"), Logged(name, "0x80040E37"))
            << mailbox.Log();
        return Logged(name, "0x80040E37");
    }
    ISession2& Session() { return logon.Session(); }

    TestMailbox mailbox;
    TestLogon logon{mailbox};
};

TEST_F(DatabaseFailuresTest, AWriterTracesDescribesAndReturnsTheFailure)
{
    Hide("tblItem");
    EXPECT_EQ(Session().ImportItem(Text("{a}").Get(), Text("AA").Get(), Text("CD").Get()), kNoTable);
    EXPECT_EQ(Described("CSession2::ImportItem"), 1u);
}

TEST_F(DatabaseFailuresTest, ADeletionTracesDescribesAndReturnsTheFailure)
{
    Hide("tblItem");
    EXPECT_EQ(Session().DeleteItem(Text("{a}").Get()), kNoTable);
    EXPECT_EQ(Described("CSession2::DeleteItem"), 1u);
}

TEST_F(DatabaseFailuresTest, TheEndOfAllResendsTracesDescribesAndReturnsTheFailure)
{
    Hide("tblUnfinishedResendJob");
    EXPECT_EQ(Session().CancelResend(Variant::Text(OLESTR("1")).Raw()), kNoTable);
    EXPECT_EQ(Described("CSession2::CancelResend"), 1u);
}

TEST_F(DatabaseFailuresTest, ReadingAnItemTracesNothingOfItsOwn)
{
    Hide("tblItem");
    ComPtr<IItem> item;
    const Variant nothing = Variant::Missing();
    EXPECT_TRUE(FAILED(Session().GetItemFromID(Variant::Text(OLESTR("{a}")).Raw(), nothing.Raw(),
                                               nothing.Raw(), item.Put())));
    EXPECT_TRUE(FAILED(Session().GetItemFromID(nothing.Raw(), Variant::Text(OLESTR("AA")).Raw(),
                                               nothing.Raw(), item.Put())));
    EXPECT_EQ(mailbox.Log().find("CItem::DBRead"), std::string::npos) << mailbox.Log();
    EXPECT_EQ(mailbox.Log().find("Description:"), std::string::npos) << mailbox.Log();
}

TEST_F(DatabaseFailuresTest, ALockThatCannotBeNotedChangesTheFieldAndIsNotTraced)
{
    ComPtr<IStorageFile> file;
    ASSERT_EQ(logon.StorageFiles()->Add(Text("ann").Get(), file.Put()), S_OK);
    Hide("tblStorageFiles");

    EXPECT_EQ(file->put_isLocked(VARIANT_TRUE), S_OK);

    VARIANT_BOOL locked = VARIANT_FALSE;
    EXPECT_EQ(file->get_isLocked(&locked), S_OK);
    EXPECT_EQ(locked, VARIANT_TRUE);
    EXPECT_EQ(mailbox.Log().find("CStorageFile::put_isLocked"), std::string::npos) << mailbox.Log();
    EXPECT_EQ(mailbox.Log().find("Description:"), std::string::npos) << mailbox.Log();
}

TEST_F(DatabaseFailuresTest, APackageWithoutARowFailsAndIsDescribed)
{
    const ComPtr<IStorageFiles> files = logon.StorageFiles();
    Hide("tblStorageFiles");
    ComPtr<IStorageFile> file;
    EXPECT_EQ(files->Add(Text("ann").Get(), file.Put()), kNoTable);
    EXPECT_EQ(Described("CStorageFiles::Add"), 1u);
}

class ReceivedFileTest : public DatabaseFailuresTest {
protected:
    // A package that announces one folder.
    std::filesystem::path MakePackage()
    {
        const TestFolder folder = sender.MakeFolder("folder");
        const auto shared = from.Share(folder, "folder");
        Check(shared->Send(Variant::Text(OLESTR("folder")).Raw()), "announce a folder");
        return TakePackage(from, "folder", 0, mailbox);
    }

    TestMailbox sender;
    TestLogon from{sender};
};

TEST_F(ReceivedFileTest, AFileThatCannotBeNotedIsTracedTwiceAndQueuedAllTheSame)
{
    const auto package = MakePackage();
    Hide("tblUnfinishedReceiveJob");
    EXPECT_EQ(Session().ProcessStorageFile(Text(package.string()).Get(), Text("tag").Get()), S_OK);
    EXPECT_TRUE(logon.Host().Heard("folder"));
    // The job's own row can't be deleted either; its description is the last line.
    EXPECT_TRUE(Eventually([&] { return Logged("TraceOLEDBError", "Description: no such table") == 3; }));
    EXPECT_EQ(Logged("CSession2::ProcessStorageFile", "0x80040E37"), 2u);
    EXPECT_EQ(Logged("CStorageProcessor::ThreadProc", "0x80040E37"), 1u);
}

TEST_F(ReceivedFileTest, AJobWhoseRowCannotBeDeletedEndsAndComesBackAtTheNextResume)
{
    const auto package = MakePackage();
    logon.Host().AnswerWith([this](const HostEvent&, bool&) {
        Hide("tblUnfinishedReceiveJob");
        return S_OK;
    });
    ASSERT_EQ(Session().ProcessStorageFile(Text(package.string()).Get(), Text("tag").Get()), S_OK);
    ASSERT_TRUE(Eventually([&] { return Logged("CStorageProcessor::ThreadProc", "0x80040E37") == 1; }));
    EXPECT_FALSE(std::filesystem::exists(package));
    EXPECT_EQ(mailbox.Query("SELECT count(*) FROM hidden"), 1);

    mailbox.Execute("ALTER TABLE hidden RENAME TO tblUnfinishedReceiveJob");
    EXPECT_EQ(Session().ResumeJobs(qv_rs_Both), S_OK);
    EXPECT_TRUE(
        Eventually([&] { return mailbox.Query("SELECT count(*) FROM tblUnfinishedReceiveJob") == 0; }));
}

}  // namespace
}  // namespace quorvane::test
