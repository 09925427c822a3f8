// A received package of which one step fails: a call of the host, a change of a disk, or the session ends in
// the middle. Each time the package comes once more, and both sides are alike.
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <mutex>
#include <optional>

#include "tests/fault/disk.h"
#include "tests/fault/sqlite_file.h"
#include "tests/support/packages.h"

namespace quorvane::test {
namespace {

constexpr char kFolderId[] = "{0D9C6A1E-7C0B-4C27-93F1-5E6E61A9B7D4}";

// Two members with a folder of two mails, and the package that tells the second one of three changes: "one"
// was changed, "two" deleted, "three" added; the folder is announced in it as well.
class ReceiveTest : public testing::Test {
protected:
    ReceiveTest()
    {
        {
            TestLogon from(sender);
            const ComPtr<IFolder> shared = from.Share(sent, kFolderId);
            Begin();
            const std::string one = sent.Add("one", "first");
            const std::string two = sent.Add("two", "second");
            Check(from.Host().Heard("added", 2) ? S_OK : E_FAIL, "hear of two mails");
            Process(*logon, TakePackage(from, sent.EntryId(), 2, receiver), "tag");
            sent.SetSubject(one, "one, changed");
            sent.Delete(two);
            sent.Add("three", "third");
            Check(
                from.Host().Heard("changed") && from.Host().Heard("deleted") && from.Host().Heard("added", 3)
                    ? S_OK
                    : E_FAIL,
                "hear of three changes");
            Check(shared->Send(Variant::Text(FromUtf8(sent.EntryId())).Raw()), "announce the folder");
            End();
            std::filesystem::rename(TakePackage(from, sent.EntryId(), 3, receiver), original);
        }
        receiver.LogOff();
        std::filesystem::copy(receiver.Directory(), kept.Path(), std::filesystem::copy_options::recursive);
        receiver.LogOn();
        Begin();
    }
    ~ReceiveTest() override { End(); }

    void Begin()
    {
        received.emplace(receivedId.empty() ? receiver.MakeFolder("Received")
                                            : receiver.OpenFolder(receivedId));
        receivedId = received->EntryId();
        logon.emplace(receiver);
        logon->Share(*received, kFolderId);
    }
    void End()
    {
        if (logon)
            logon->EndWithLateCalls();
        logon.reset();
        received.reset();
    }

    // The calls about a package; of them one fails. A call may come back late: the host shares the record.
    class FailingCalls {
    public:
        explicit FailingCalls(unsigned at) : at_(at) {}

        HRESULT Hear(const HostEvent& event)
        {
            if (event.what != "folder" && event.what != "received" && event.what != "postprocess")
                return S_OK;
            const std::lock_guard lock(mutex_);
            if (++count_ != at_)
                return S_OK;
            failed_ = event;
            return E_FAIL;
        }
        unsigned Count() const
        {
            const std::lock_guard lock(mutex_);
            return count_;
        }
        std::optional<HostEvent> Failed() const
        {
            const std::lock_guard lock(mutex_);
            return failed_;
        }

    private:
        const unsigned at_;
        mutable std::mutex mutex_;
        unsigned count_ = 0;
        std::optional<HostEvent> failed_;
    };
    std::shared_ptr<FailingCalls> FailCall(unsigned at)
    {
        const auto calls = std::make_shared<FailingCalls>(at);
        logon->Host().AnswerWith([calls](const HostEvent& event, bool&) { return calls->Hear(event); });
        return calls;
    }

    // The receiver as it was before the package came.
    void Restore()
    {
        End();
        receiver.LogOff();
        for (const char* name : {"store.sqlite", "share.mdb", "qvdata"}) {
            for (const char* suffix : {"", "-wal", "-shm"})
                std::filesystem::remove_all(receiver.Directory() / (std::string(name) + suffix));
            std::filesystem::copy(kept.Path() / name, receiver.Directory() / name,
                                  std::filesystem::copy_options::recursive);
        }
        receiver.LogOn();
        Begin();
    }

    // The package under a name of its own in the receiver's inbox.
    std::filesystem::path Deliver(const std::string& name)
    {
        const auto path = receiver.InboxPath() / name;
        std::filesystem::copy_file(original, path, std::filesystem::copy_options::overwrite_existing);
        return path;
    }

    void HandOver(const std::filesystem::path& package)
    {
        Check(logon->Session().ProcessStorageFile(Text(package.string()).Get(), Text("tag").Get()),
              "hand a package over");
    }

    // The job ends with its file, and with its row right after that. One of the two may be beyond it.
    void AwaitEnd(const std::filesystem::path& package, bool mayKeepFile = false)
    {
        ASSERT_TRUE(
            Eventually([&] { return mayKeepFile ? Jobs() == 0 : !std::filesystem::exists(package); }));
    }
    long Jobs() { return receiver.Query("SELECT count(*) FROM tblUnfinishedReceiveJob"); }

    // Each mail once, like the sender's, and each with its row; and no more rows than so many.
    void ExpectAlike(long moreRows = 0)
    {
        EXPECT_EQ(received->Subjects(), sent.Subjects());
        for (const std::string& subject : sent.Subjects()) {
            const auto mine = received->Find(subject);
            ASSERT_TRUE(mine);
            EXPECT_EQ(ContentsOf(*received->Open(*mine).Get()),
                      ContentsOf(*sent.Open(*sent.Find(subject)).Get()));
            EXPECT_EQ(receiver.Query("SELECT count(*) FROM tblItem WHERE EntryID='" + *mine + "'"), 1)
                << subject;
        }
        EXPECT_EQ(receiver.Query("SELECT count(*) FROM tblItem"), static_cast<long>(sent.Count()) + moreRows);
    }

    void ExpectSound()
    {
        EXPECT_EQ(AskSqlite(receiver.StorePath().string(), "PRAGMA integrity_check"), "ok");
        EXPECT_EQ(AskSqlite(receiver.DatabasePath().string(), "PRAGMA integrity_check"), "ok");
    }

    // The mail whose row isn't there, if there is one: nobody knows it for the sender's item.
    std::optional<std::string> UnknownMail()
    {
        for (const std::string& subject : received->Subjects()) {
            const auto id = received->Find(subject);
            if (receiver.Query("SELECT count(*) FROM tblItem WHERE EntryID='" + *id + "'") == 0)
                return id;
        }
        return std::nullopt;
    }

    TestMailbox sender;
    TestMailbox receiver;
    TestDirectory kept;
    const std::filesystem::path original = receiver.Directory() / "original.qvt";
    TestFolder sent = sender.MakeFolder("Sent");
    std::string receivedId;
    std::optional<TestFolder> received;
    std::optional<TestLogon> logon;
};

// The calls are onFolderReceived, onItemReceived for each item, and onPostprocess for those that have a
// message.
TEST_F(ReceiveTest, ACallOfTheHostThatFailsLeavesItsElementAloneUndone)
{
    for (unsigned at = 1;; ++at) {
        SCOPED_TRACE("call " + std::to_string(at));
        Restore();
        const auto calls = FailCall(at);
        const auto package = Deliver("first.qvt");
        HandOver(package);
        AwaitEnd(package);
        ASSERT_TRUE(Eventually([&] { return Jobs() == 0; }));
        EXPECT_FALSE(std::filesystem::exists(package));
        const std::optional<HostEvent> failed = calls->Failed();
        if (!failed) {
            EXPECT_EQ(calls->Count(), 6u);
            ExpectAlike();
            return;
        }
        if (failed->what == "received") {
            EXPECT_NE(received->Subjects(), sent.Subjects());
            EXPECT_EQ(logon->Host().Events("received").size(), 3u);
        } else {
            ExpectAlike();
        }
        EXPECT_NE(receiver.Log().find(failed->what == "folder"        ? "CStorageProcessor::DoFolders("
                                      : failed->what == "postprocess" ? "CItem::PostprocessThreadProc("
                                                                      : "CStorageProcessor::DoItems("),
                  std::string::npos);
        Process(*logon, Deliver("second.qvt"), "tag");
        ASSERT_TRUE(Eventually([&] { return Jobs() == 0; }));
        ExpectAlike();
        if (HasFailure())
            return;
    }
}

struct Trouble {
    DiskTrouble trouble;
    const char* file;  // part of its path
    const char* name;
};

class ReceiveDiskTest : public ReceiveTest, public testing::WithParamInterface<Trouble> {};

// The job ends, and the session goes on: the package comes again.
TEST_P(ReceiveDiskTest, WhatADiskRefusedIsThereOnceThePackageCameAgain)
{
    const bool isDatabase = std::string(GetParam().file) == "share.mdb";
    const bool isPackage = std::string(GetParam().file) == "inbox/first.qvt";
    for (unsigned at = 1;; ++at) {
        SCOPED_TRACE("change " + std::to_string(at));
        Restore();
        const std::string two = *received->Find("two");
        const auto package = Deliver("first.qvt");
        Disk::Break(GetParam().trouble, at, (receiver.Directory() / GetParam().file).string());
        HandOver(package);
        AwaitEnd(package, isPackage);
        End();  // waits for the job
        const unsigned changes = Disk::Repair();
        ExpectSound();
        Begin();
        // A message that was saved and whose row wasn't is no item: the next package brings the item anew.
        const auto unknown = UnknownMail();
        // A row that couldn't be deleted outlives its message, and the deletion that comes again finds none.
        const long rowsOfTwo =
            received->Find("two")
                ? 0
                : receiver.Query("SELECT count(*) FROM tblItem WHERE EntryID='" + two + "'");
        EXPECT_TRUE(isDatabase || (!unknown && rowsOfTwo == 0));
        ASSERT_EQ(logon->Session().ResumeJobs(qv_rs_Both), S_OK);
        Process(*logon, Deliver("second.qvt"), "tag");
        ASSERT_TRUE(Eventually([&] { return Jobs() == 0; }));
        if (unknown)
            received->Delete(*unknown);
        ExpectAlike(rowsOfTwo);
        if (HasFailure() || changes < at) {
            EXPECT_GT(at, 3u);
            return;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Disk, ReceiveDiskTest,
                         testing::Values(Trouble{DiskTrouble::kHiccup, "store.sqlite", "StoreHiccup"},
                                         Trouble{DiskTrouble::kBroken, "store.sqlite", "StoreBroken"},
                                         Trouble{DiskTrouble::kFull, "store.sqlite", "StoreFull"},
                                         Trouble{DiskTrouble::kHiccup, "share.mdb", "DatabaseHiccup"},
                                         Trouble{DiskTrouble::kBroken, "share.mdb", "DatabaseBroken"},
                                         Trouble{DiskTrouble::kFull, "share.mdb", "DatabaseFull"},
                                         Trouble{DiskTrouble::kHiccup, "inbox/first.qvt", "PackageHiccup"},
                                         Trouble{DiskTrouble::kBroken, "inbox/first.qvt", "PackageBroken"},
                                         Trouble{DiskTrouble::kHiccup, "qvdata", "HashesHiccup"},
                                         Trouble{DiskTrouble::kFull, "qvdata", "HashesFull"}),
                         [](const auto& trouble) { return trouble.param.name; });

// The session ends while the host has an item. The last of them goes with the package, unapplied.
TEST_F(ReceiveTest, AStopWhileTheHostHasAnItemLeavesTheRestToTheNextStart)
{
    for (size_t at = 1; at <= 3; ++at) {
        SCOPED_TRACE("item " + std::to_string(at));
        Restore();
        std::promise<void> asked;
        std::promise<void> answer;
        std::atomic<size_t> items = 0;
        const std::shared_future<void> answered = answer.get_future().share();
        logon->Host().AnswerWith([&](const HostEvent& event, bool&) {
            if (event.what == "received" && ++items == at) {
                asked.set_value();
                answered.wait();
            }
            return S_OK;
        });
        const auto package = Deliver("first.qvt");
        HandOver(package);
        ASSERT_EQ(asked.get_future().wait_for(kDeadline), std::future_status::ready);
        logon->EndSession();
        answer.set_value();
        End();
        EXPECT_EQ(Jobs(), at < 3 ? 1 : 0);
        EXPECT_EQ(std::filesystem::exists(package), at < 3);
        Begin();
        ASSERT_EQ(logon->Session().ResumeJobs(qv_rs_Both), S_OK);
        ASSERT_TRUE(Eventually([&] { return Jobs() == 0; }));
        if (at == 3) {
            EXPECT_NE(received->Subjects(), sent.Subjects());
            Process(*logon, Deliver("second.qvt"), "tag");
            ASSERT_TRUE(Eventually([&] { return Jobs() == 0; }));
        }
        ExpectAlike();
        if (HasFailure())
            return;
    }
}

}  // namespace
}  // namespace quorvane::test
