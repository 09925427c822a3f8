// A message store that is killed, whose disk is full, or whose power fails at random moments of its long
// works: it opens, what was acknowledged is there whole, and the work, begun once more, comes to its end.
//
// QUORVANE_STORE_CUTS  how many moments of each work; QUORVANE_SEED  other ones.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdlib>
#include <memory>
#include <new>
#include <optional>
#include <random>

#include "msgstore/store/earlier_versions.h"
#include "quorvane3/commit_groups.h"
#include "quorvane3/message_store.h"
#include "tests/fault/disk.h"
#include "tests/fault/sqlite_file.h"
#include "tests/fault/whole_mail.h"
#include "tests/support/test_mailbox.h"

namespace quorvane::test {
namespace {

constexpr char kStoreFile[] = "store.sqlite";
constexpr unsigned kNever = UINT_MAX;
constexpr unsigned kChildSeconds = 60;

unsigned NumberOf(const char* variable, unsigned otherwise)
{
    const char* const text = std::getenv(variable);
    return text ? static_cast<unsigned>(std::stoul(text)) : otherwise;
}

// What a process was told before it was killed.
struct Told {
    std::atomic<unsigned> saved{0};   // mails, each by its save
    std::atomic<bool> isDone{false};  // the work
};

class SharedTold {
public:
    SharedTold()
        : place_(mmap(nullptr, sizeof(Told), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)),
          told_(new (place_) Told)
    {}
    SharedTold(const SharedTold&) = delete;
    SharedTold& operator=(const SharedTold&) = delete;
    ~SharedTold() { munmap(place_, sizeof(Told)); }
    Told* operator->() const { return told_; }
    void Reset() { new (place_) Told; }

private:
    void* const place_;
    Told* const told_;
};

class StoreCutsTest : public ::testing::TestWithParam<DiskTrouble> {
protected:
    StoreCutsTest()
    {
        firstId_ = mailbox.MakeFolder("first").EntryId();
        secondId_ = mailbox.MakeFolder("second").EntryId();
    }

    // A folder while somebody is logged on.
    TestFolder First() { return mailbox.OpenFolder(firstId_); }
    TestFolder Second() { return mailbox.OpenFolder(secondId_); }

    static HRESULT Add(IMAPIFolder& folder, char letter, ULONG flags = 0)
    {
        ComPtr<IMessage> message;
        HRESULT hr = folder.CreateMessage(nullptr, 0, message.Put());
        if (FAILED(hr))
            return hr;
        FillWhole(*message.Get(), letter);
        return message->SaveChanges(flags);
    }
    static void AddAll(IMAPIFolder& folder, const std::string& letters)
    {
        for (const char letter : letters)
            Check(Add(folder, letter, MAPI_DEFERRED_ERRORS), "save a mail");
    }

    // Cuts the work short at random moments. The store is as it is now before each.
    //
    // work   is done while somebody is logged on.
    // check  looks at what is left, while somebody is logged on, and is told whether the work was
    // acknowledged.
    template <class Work, class CheckLeft>
    void CutShort(Work work, CheckLeft check)
    {
        mailbox.LogOff();
        kept_ = mailbox.Directory() / "kept";
        std::filesystem::copy_file(mailbox.StorePath(), kept_);
        const unsigned changes = CountChanges(work);
        ASSERT_GT(changes, 20u);
        std::mt19937 random(NumberOf("QUORVANE_SEED", 20261123));
        const unsigned cuts = NumberOf("QUORVANE_STORE_CUTS", 6);
        unsigned struck = 0;
        for (unsigned i = 0; i < cuts && !HasFailure(); ++i) {
            const unsigned at = 1 + random() % changes;
            const unsigned seed = i % 3 == 0 ? 0 : 1 + random() % 1000;
            SCOPED_TRACE("change " + std::to_string(at) + " of " + std::to_string(changes) + ", seed " +
                         std::to_string(seed));
            struck += CutOnce(work, at, seed) ? 1 : 0;
            ExpectSound();
            ASSERT_NO_THROW(mailbox.LogOn());
            check(told->isDone.load());
            mailbox.LogOff();
        }
        EXPECT_GT(struck, cuts / 2);
        mailbox.LogOn();
    }

    // The file by itself: sound, and without rows that belong to nothing.
    void ExpectSound()
    {
        for (const char* sql :
             {"SELECT integrity_check FROM pragma_integrity_check WHERE integrity_check<>'ok'",
              "SELECT \"table\" FROM pragma_foreign_key_check"})
            EXPECT_EQ(Ask(sql), "") << sql;
    }
    std::string Ask(const char* sql) { return AskSqlite(mailbox.StorePath().string(), sql); }

    TestMailbox mailbox;
    SharedTold told;

private:
    void Restore()
    {
        for (const char* suffix : {"-wal", "-shm"})
            std::filesystem::remove(mailbox.StorePath().string() + suffix);
        std::filesystem::copy_file(kept_, mailbox.StorePath(),
                                   std::filesystem::copy_options::overwrite_existing);
        told.Reset();
    }

    // What is acknowledged comes too late where logging off fails.
    template <class Work>
    void Do(Work work)
    {
        try {
            mailbox.LogOn();
            told->isDone = SUCCEEDED(work());
        } catch (const std::runtime_error&) {
            // Somebody couldn't log on, or open his folder.
        }
        mailbox.LogOff();
    }

    template <class Work>
    unsigned CountChanges(Work work)
    {
        Restore();
        Disk::Break(DiskTrouble::kHiccup, kNever, kStoreFile);
        Do(work);
        EXPECT_TRUE(told->isDone);
        return Disk::Repair();
    }

    // Whether the work came that far.
    template <class Work>
    bool CutOnce(Work work, unsigned at, unsigned seed)
    {
        Restore();
        if (GetParam() != DiskTrouble::kKill) {
            Disk::Break(GetParam(), at, kStoreFile, seed);
            Do(work);
            return Disk::Repair() >= at;
        }
        const pid_t child = fork();
        if (child == 0) {
            alarm(kChildSeconds);
            Disk::Break(DiskTrouble::kKill, at, kStoreFile);
            Do(work);
            _exit(0);
        }
        int status = 0;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status));
        return WEXITSTATUS(status) == Disk::kKilled;
    }

    std::string firstId_;
    std::string secondId_;
    std::filesystem::path kept_;
};

TEST_P(StoreCutsTest, AnImportLeavesWholeMailsAndAllThatItAcknowledged)
{
    const std::string mails = "bcdefghi";
    Check(Add(First().Folder(), 'a'), "save a mail");
    const auto import = [&] {
        const TestFolder first = First();
        for (const char letter : mails) {
            const HRESULT hr = Add(first.Folder(), letter, MAPI_DEFERRED_ERRORS);
            if (FAILED(hr))
                return hr;
            ++told->saved;
        }
        return mailbox.Store().SaveChanges(0);
    };

    CutShort(import, [&](bool isDone) {
        const std::string there = LettersOf(First().Folder());
        EXPECT_EQ(there, ("a" + mails).substr(0, there.size()));
        // A power failure takes back what isn't on the disk yet.
        if (isDone || GetParam() != DiskTrouble::kPowerCut) {
            EXPECT_GE(there.size(), 1 + told->saved);
        }
        AddAll(First().Folder(), mails.substr(there.size() - 1));
        EXPECT_EQ(LettersOf(First().Folder()), "a" + mails);
    });
}

// As the program imports: what wasn't committed yet is taken back by a kill as well.
TEST_P(StoreCutsTest, AnImportWhoseSavesAreGatheredLeavesTheFirstOfItsMails)
{
    const std::string mails = "bcdefghi";
    Check(Add(First().Folder(), 'a'), "save a mail");
    const auto import = [&] {
        const TestFolder first = First();
        ComPtr<IGatheredSaves> saves;
        HRESULT hr = mailbox.Store().QueryInterface(IID_IGatheredSaves, saves.PutVoid());
        if (SUCCEEDED(hr))
            hr = saves->Gather(TRUE);
        for (std::size_t i = 0; SUCCEEDED(hr) && i < mails.size(); ++i)
            hr = Add(first.Folder(), mails[i], MAPI_DEFERRED_ERRORS);
        return SUCCEEDED(hr) ? mailbox.Store().SaveChanges(0) : hr;
    };

    CutShort(import, [&](bool isDone) {
        const std::string there = LettersOf(First().Folder());
        EXPECT_EQ(there, ("a" + mails).substr(0, there.size()));
        EXPECT_GE(there.size(), isDone ? 1 + mails.size() : 1);
        AddAll(First().Folder(), mails.substr(there.size() - 1));
        EXPECT_EQ(LettersOf(First().Folder()), "a" + mails);
    });
}

TEST_P(StoreCutsTest, AFolderThatIsEmptiedHasWholeMailsAndTheOthersAll)
{
    {
        const TestFolder first = First();
        const TestFolder second = Second();
        AddAll(first.Folder(), "abcdef");
        AddAll(second.Folder(), "xy");
        ComPtr<IMAPIFolder> below;
        Check(first.Folder().CreateFolder(FOLDER_GENERIC, const_cast<LPTSTR>("Below"), nullptr, nullptr, 0,
                                          below.Put()),
              "make a folder");
        AddAll(*below.Get(), "gh");
    }
    const auto empty = [&] {
        Check(mailbox.StoreSwitches()->HurrySteps(TRUE), "hurry");
        return First().Folder().EmptyFolder(0, nullptr, 0);
    };

    CutShort(empty, [&](bool isDone) {
        const std::string there = LettersOf(First().Folder());
        EXPECT_EQ(there, isDone ? "" : std::string("abcdef").substr(6 - there.size()));
        EXPECT_EQ(LettersOf(Second().Folder()), "xy");
        EXPECT_EQ(First().Folder().EmptyFolder(0, nullptr, 0), S_OK);
        EXPECT_EQ(LettersOf(First().Folder()), "");
        EXPECT_EQ(Ask("SELECT count(*) FROM message"), "2");
    });
}

// There is more that is free than the file may keep.
TEST_P(StoreCutsTest, AFileThatGivesSpaceBackKeepsAllMails)
{
    {
        const TestFolder first = First();
        AddAll(first.Folder(), "abcdefghijklmnopqrstuvwxyz");
        for (const char letter : std::string("abcdefghijklmnopqrstuvw"))
            first.Delete({*first.Find(std::string(1, letter))});
    }
    const auto giveBack = [&] {
        Check(mailbox.StoreSwitches()->HurrySteps(TRUE), "hurry");
        return Second().Folder().EmptyFolder(0, nullptr, 0);
    };
    ASSERT_GT(std::stoul(Ask("PRAGMA freelist_count")), 400u);

    CutShort(giveBack, [&](bool) {
        EXPECT_EQ(LettersOf(First().Folder()), "xyz");
        EXPECT_EQ(Second().Folder().EmptyFolder(0, nullptr, 0), S_OK);
        EXPECT_LE(std::stoul(Ask("PRAGMA freelist_count")), 256u);
        EXPECT_EQ(LettersOf(First().Folder()), "xyz");
    });
}

constexpr char kManyMessages[] =
    "WITH RECURSIVE n (i) AS (SELECT 10 UNION ALL SELECT i + 1 FROM n WHERE i < 1009)"
    " INSERT INTO message (id, guid, folder_id, associated, version, created, modified, flags, size, subject)"
    " SELECT i, CAST(printf('%016d', i) AS BLOB), 3, 0, 1, 1, 1, 1, 1, 'Subject ' || i FROM n";

TEST_P(StoreCutsTest, AStoreOfAnEarlierVersionIsOfThatOneOrOfThisOne)
{
    const std::string now = Ask("PRAGMA user_version");
    // The profile knows it by this.
    const std::string guid = "; UPDATE store SET guid=x'" + Ask("SELECT hex(guid) FROM store") + "'";
    mailbox.LogOff();
    ASSERT_NO_FATAL_FAILURE(
        quorvane::testing::MakeStoreOfVersion1(mailbox.StorePath().string(), (kManyMessages + guid).c_str()));
    const auto ask = [&](const char* sql) { return Ask(sql); };

    CutShort([] { return S_OK; },
             [&](bool) {
                 EXPECT_EQ(ask("PRAGMA user_version"), now);
                 EXPECT_EQ(ask("SELECT count(*) FROM message"), "1003");
                 EXPECT_EQ(ask("SELECT count(*) FROM message WHERE id>9 AND subject_key='subject ' || id"),
                           "1000");
                 EXPECT_EQ(ask("SELECT count(*) FROM part"), "3");
             });
}

INSTANTIATE_TEST_SUITE_P(Disk, StoreCutsTest,
                         ::testing::Values(DiskTrouble::kKill, DiskTrouble::kFull, DiskTrouble::kPowerCut),
                         [](const auto& trouble) { return NameOf(trouble.param); });

}  // namespace
}  // namespace quorvane::test
