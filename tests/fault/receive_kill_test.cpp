// A process that is killed while it takes a package of fifty items apart, at any write to the package: the
// next one goes on with what is left, and each item is applied once.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <memory>
#include <optional>
#include <set>

#include "tests/fault/disk.h"
#include "tests/support/packages.h"

namespace quorvane::test {
namespace {

constexpr char kFolderId[] = "{5B0E7C1D-93F2-4A68-8C5E-2F4D7A9B1E36}";
constexpr unsigned kChanged = 5;
constexpr unsigned kDeleted = 5;
constexpr unsigned kAdded = 40;
constexpr unsigned kItems = kChanged + kDeleted + kAdded;
constexpr unsigned kChildSeconds = 120;

// QUORVANE_EVERY_KILL: at every write, which takes minutes; else at some of them.
constexpr unsigned kKills = 8;

class ReceiveKillTest : public testing::Test {
protected:
    ReceiveKillTest()
    {
        receiver.LogOff();
        MakePackages();
        std::filesystem::copy(receiver.Directory(), kept.Path(), std::filesystem::copy_options::recursive);
    }

    // The receiver gets ten mails, and then a package of five that were changed, five that are gone, and
    // forty more.
    void MakePackages()
    {
        TestLogon from(sender);
        const ComPtr<IFolder> shared = from.Share(sent, kFolderId);
        std::vector<std::string> ids;
        for (unsigned i = 0; i < kChanged + kDeleted; ++i)
            ids.push_back(sent.Add("old " + std::to_string(i), "body " + std::to_string(i)));
        const auto first = TakePackage(from, sent.EntryId(), ids.size(), receiver);
        {
            Logon to(*this);
            Process(*to.logon, first, "tag");
        }
        for (unsigned i = 0; i < kChanged; ++i)
            sent.SetSubject(ids[i], "changed " + std::to_string(i));
        sent.Delete(std::vector<std::string>(ids.begin() + kChanged, ids.end()));
        for (unsigned i = 0; i < kAdded; ++i)
            sent.Add("new " + std::to_string(i), "body of " + std::to_string(i));
        EXPECT_TRUE(from.Host().Heard("changed", kChanged) && from.Host().Heard("deleted", kDeleted));
        std::filesystem::rename(TakePackage(from, sent.EntryId(), kItems, receiver), original);
        from.EndWithLateCalls();
    }

    // The receiver's engine, which nothing of outlives this.
    struct Logon {
        explicit Logon(ReceiveKillTest& test) : test_(test)
        {
            test.receiver.Select();
            test.receiver.LogOn();
            received.emplace(test.receivedId.empty() ? test.receiver.MakeFolder("Received")
                                                     : test.receiver.OpenFolder(test.receivedId));
            test.receivedId = received->EntryId();
            logon.emplace(test.receiver);
            logon->Share(*received, kFolderId);
        }
        Logon(const Logon&) = delete;
        Logon& operator=(const Logon&) = delete;
        ~Logon()
        {
            logon->EndWithLateCalls();
            logon.reset();
            received.reset();
            test_.receiver.LogOff();
        }

        std::optional<TestFolder> received;
        std::optional<TestLogon> logon;

    private:
        ReceiveKillTest& test_;
    };

    // The receiver as it was before the package came, and the package.
    void Restore()
    {
        for (const char* name : {"store.sqlite", "share.mdb", "qvdata"}) {
            for (const char* suffix : {"", "-wal", "-shm"})
                std::filesystem::remove_all(receiver.Directory() / (std::string(name) + suffix));
            std::filesystem::copy(kept.Path() / name, receiver.Directory() / name,
                                  std::filesystem::copy_options::recursive);
        }
        std::filesystem::copy_file(original, package, std::filesystem::copy_options::overwrite_existing);
    }

    bool IsDone() const
    {
        return !std::filesystem::exists(package) &&
               receiver.Query("SELECT count(*) FROM tblUnfinishedReceiveJob") == 0;
    }

    // In a process of its own: takes the package apart, and is killed at its `at`th change. Without it tells
    // how many there were.
    [[noreturn]] void Receive(unsigned at)
    {
        alarm(kChildSeconds);
        bool done = false;
        try {
            Logon here(*this);
            Disk::Break(DiskTrouble::kKill, at, package.string());
            Check(here.logon->Session().ProcessStorageFile(Text(package.string()).Get(), Text("tag").Get()),
                  "hand a package over");
            done = Eventually([this] { return IsDone(); });
            std::ofstream(changesPath) << Disk::Repair();
        } catch (...) {
            done = false;
        }
        _exit(done ? 0 : 1);
    }

    // True when the process was killed before it had received all.
    bool ReceiveAndDie(unsigned at)
    {
        const pid_t child = fork();
        if (child == 0)
            Receive(at);
        int status = 0;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status) && (WEXITSTATUS(status) == 0 || WEXITSTATUS(status) == Disk::kKilled))
            << status;
        return WIFEXITED(status) && WEXITSTATUS(status) == Disk::kKilled;
    }

    unsigned CountChanges()
    {
        Restore();
        EXPECT_FALSE(ReceiveAndDie(~0u));
        unsigned changes = 0;
        std::ifstream(changesPath) >> changes;
        return changes;
    }

    // What was applied so far is there once, and all the rest in the package.
    void ExpectNothingLost(const TestFolder& received)
    {
        const std::vector<std::string> wanted = sent.Subjects();
        const std::vector<std::string> have = received.Subjects();
        const std::set<std::string> once(have.begin(), have.end());
        EXPECT_EQ(have.size(), once.size());
        size_t missing = 0;
        for (const std::string& subject : wanted)
            missing += once.contains(subject) ? 0 : 1;
        const auto count = std::filesystem::exists(package) ? CountPackage(package) : PackageCount{};
        ASSERT_TRUE(count) << "the package is one";
        EXPECT_LE(missing, count->items);
        betweenItems += missing > 0 && missing < kChanged + kAdded ? 1 : 0;
    }

    void ExpectAlike(const TestFolder& received) const
    {
        ASSERT_EQ(received.Subjects(), sent.Subjects());
        for (const std::string& subject : sent.Subjects()) {
            const std::string mine = *received.Find(subject);
            EXPECT_EQ(ContentsOf(*received.Open(mine).Get()),
                      ContentsOf(*sent.Open(*sent.Find(subject)).Get()));
            EXPECT_EQ(receiver.Query("SELECT count(*) FROM tblItem WHERE EntryID='" + mine + "'"), 1)
                << subject;
        }
        EXPECT_EQ(receiver.Query("SELECT count(*) FROM tblItem"), static_cast<long>(kChanged + kAdded));
    }

    void KillAndGoOn(unsigned at)
    {
        SCOPED_TRACE("change " + std::to_string(at));
        Restore();
        EXPECT_TRUE(ReceiveAndDie(at));
        Logon here(*this);
        ExpectNothingLost(*here.received);
        ASSERT_EQ(here.logon->Session().ResumeJobs(qv_rs_Both), S_OK);
        ASSERT_TRUE(Eventually([this] { return IsDone(); }));
        ExpectAlike(*here.received);
    }

    TestMailbox sender;
    TestMailbox receiver;
    TestDirectory kept;
    const std::filesystem::path original = receiver.Directory() / "original.qvt";
    const std::filesystem::path package = receiver.InboxPath() / "package.qvt";
    const std::filesystem::path changesPath = receiver.Directory() / "changes";
    TestFolder sent = sender.MakeFolder("Sent");
    std::string receivedId;
    unsigned betweenItems = 0;  // kills that left some items applied and some not
};

TEST_F(ReceiveKillTest, AnItemIsAppliedOnceOrStillThereAtWhateverWriteTheReceiverIsKilled)
{
    const unsigned changes = CountChanges();
    RecordProperty("changes", static_cast<int>(changes));
    ASSERT_GT(changes, kItems) << "each item is taken out of the package by itself";
    const unsigned step = std::getenv("QUORVANE_EVERY_KILL") ? 1 : changes / kKills;
    for (unsigned at = 1; at <= changes && !HasFailure(); at += step)
        KillAndGoOn(at);
    if (!HasFailure())
        KillAndGoOn(changes);
    EXPECT_GE(betweenItems, kKills / 2);
}

}  // namespace
}  // namespace quorvane::test
