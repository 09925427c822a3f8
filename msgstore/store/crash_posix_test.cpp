// A process that is killed in the middle of saves: everything that it was told is saved is there afterwards.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <map>
#include <random>

#include "msgstore/store/store_core.h"
#include "msgstore/store/test_mailbox.h"

namespace quorvane {
namespace {

using namespace quorvane::testing;

constexpr std::size_t kAttachmentSize = 100 * 1000;

// What the child reports after each step that was acknowledged.
struct Acknowledged {
    char kind;  // 'a' added, 'c' changed, 'd' deleted
    int number;
};

class CrashTest : public ::testing::Test {
protected:
    static OleString SubjectOf(int number, bool changed)
    {
        OleString subject = changed ? OLESTR("changed ") : OLESTR("added ");
        for (const char digit : std::to_string(number))
            subject.push_back(static_cast<OLECHAR>(digit));
        return subject;
    }

    static BinaryValue AddWithAttachment(TestMailbox& mailbox, int number)
    {
        ComPtr<IMessage> message;
        (void)mailbox.Inbox().CreateMessage(nullptr, 0, message.Put());
        (void)SetText(*message, PR_SUBJECT_W, SubjectOf(number, false));
        ComPtr<IAttach> attachment;
        ULONG attachmentNumber = 0;
        (void)message->CreateAttach(nullptr, 0, &attachmentNumber, attachment.Put());
        (void)SetBinary(*attachment, PR_ATTACH_DATA_BIN,
                        BinaryValue(kAttachmentSize, static_cast<BYTE>(number)));
        (void)attachment->SaveChanges(0);
        // Every other save doesn't wait for the disk: a killed process loses those as little.
        const ULONG deferred = number % 2 == 0 ? MAPI_DEFERRED_ERRORS : 0;
        return SUCCEEDED(message->SaveChanges(KEEP_OPEN_READWRITE | deferred))
                   ? BinaryOf(*message, PR_ENTRYID)
                   : BinaryValue();
    }

    [[noreturn]] void WorkUntilKilled(int report)
    {
        mailbox.LogOn();
        for (int number = 0;; ++number) {
            const BinaryValue id = AddWithAttachment(mailbox, number);
            Report(report, {id.empty() ? 'f' : 'a', number});
            if (number % 3 == 1) {
                mailbox.ChangeSubject(id, SubjectOf(number, true));
                Report(report, {'c', number});
            } else if (number % 3 == 2) {
                (void)TestMailbox::Delete(mailbox.Inbox(), id);
                Report(report, {'d', number});
            }
        }
    }
    static void Report(int report, const Acknowledged& step)
    {
        if (write(report, &step, sizeof(step)) != sizeof(step))
            _exit(1);
    }

    // Empties the Inbox, and reports that it has begun and that it is done.
    [[noreturn]] void EmptyUntilKilled(int report)
    {
        mailbox.LogOn();
        Report(report, {'b', 0});
        Report(report, {mailbox.Inbox().EmptyFolder(0, nullptr, 0) == S_OK ? 'e' : 'f', 0});
        pause();
        _exit(0);
    }

    // Kills the child once it has acknowledged so many steps and a little later; gives all that it
    // acknowledged.
    std::vector<Acknowledged> RunAndKill(std::size_t steps, unsigned moreMicroseconds, bool empties = false)
    {
        int pipes[2];
        EXPECT_EQ(pipe(pipes), 0);
        const pid_t child = fork();
        if (child == 0) {
            close(pipes[0]);
            if (empties)
                EmptyUntilKilled(pipes[1]);
            WorkUntilKilled(pipes[1]);
        }
        close(pipes[1]);
        std::vector<Acknowledged> done;
        Acknowledged step{};
        while (done.size() < steps && read(pipes[0], &step, sizeof(step)) == sizeof(step))
            done.push_back(step);
        usleep(moreMicroseconds);
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        while (read(pipes[0], &step, sizeof(step)) == sizeof(step))
            done.push_back(step);
        close(pipes[0]);
        return done;
    }

    void ExpectAllThere(const std::vector<Acknowledged>& done)
    {
        std::map<OleString, bool> present;
        for (const OleString& subject : SubjectsOf(*ContentsOf(mailbox.Inbox())))
            present[subject] = true;
        std::map<int, char> last;
        for (const Acknowledged& step : done)
            last[step.number] = step.kind;
        const int newest = last.empty() ? -1 : last.rbegin()->first;
        for (const auto& [number, kind] : last) {
            ASSERT_NE(kind, 'f');
            const bool isThere =
                present.count(SubjectOf(number, false)) + present.count(SubjectOf(number, true)) > 0;
            // The newest may have come one step further than was acknowledged.
            if (number != newest || kind == 'c') {
                EXPECT_EQ(isThere, kind != 'd') << number;
            }
            if (kind == 'c') {
                EXPECT_TRUE(present.count(SubjectOf(number, true))) << number;
            }
        }
    }

    void ExpectAttachmentsWhole()
    {
        RowSet rows;
        ASSERT_EQ(ContentsOf(mailbox.Inbox())->QueryRows(100000, 0, rows.Put()), S_OK);
        for (const SRow& row : rows) {
            const ComPtr<IMessage> message = mailbox.OpenMessage(BinaryOf(row, PR_ENTRYID), 0);
            ComPtr<IAttach> attachment;
            ASSERT_EQ(message->OpenAttach(0, nullptr, 0, attachment.Put()), S_OK);
            ComPtr<IStream> stream;
            ASSERT_EQ(attachment->OpenProperty(PR_ATTACH_DATA_BIN, &IID_IStream, 0, 0, stream.PutUnknown()),
                      S_OK);
            BinaryValue data(kAttachmentSize + 1);
            ULONG read = 0;
            ASSERT_EQ(stream->Read(data.data(), static_cast<ULONG>(data.size()), &read), S_OK);
            EXPECT_EQ(read, kAttachmentSize);
            EXPECT_EQ(data[0], data[kAttachmentSize - 1]);
        }
    }

    void ExpectNoLooseRows()
    {
        std::shared_ptr<StoreCore> core;
        ASSERT_EQ(StoreCore::Open(mailbox.StorePath(), false, core), S_OK);
        EXPECT_EQ(core->Read([](SqliteConnection& connection) {
            for (const char* const sql :
                 {"SELECT count(*) FROM part WHERE message_id NOT IN (SELECT id FROM message)",
                  "SELECT count(*) FROM large_value WHERE part_id NOT IN (SELECT id FROM part)",
                  "SELECT count(*) FROM chunk WHERE value_id NOT IN (SELECT id FROM "
                  "large_value)"}) {
                SqliteRows rows = connection.Query(sql);
                EXPECT_TRUE(rows.Next());
                EXPECT_EQ(rows.Int64(0), 0) << sql;
            }
            SqliteRows check = connection.Query("PRAGMA integrity_check");
            EXPECT_TRUE(check.Next());
            EXPECT_EQ(check.Text(0), "ok");
            return S_OK;
        }),
                  S_OK);
    }

    TestMailbox mailbox;
};

TEST_F(CrashTest, AStoreWhoseProcessWasKilledHasEverythingThatWasAcknowledged)
{
    std::mt19937 random(20260101);
    for (int round = 0; round < 8; ++round) {
        ASSERT_EQ(mailbox.Inbox().EmptyFolder(0, nullptr, 0), S_OK);
        mailbox.LogOff();
        const std::vector<Acknowledged> done = RunAndKill(4 + random() % 12, random() % 8000);
        mailbox.LogOn();

        ASSERT_GE(done.size(), 4u);
        ExpectAllThere(done);
        ExpectAttachmentsWhole();
        ExpectNoLooseRows();
    }
}

TEST_F(CrashTest, AStoreKilledWhileAFolderIsEmptiedHasTheOthersWholeAndOfThatOneWhatIsLeft)
{
    constexpr int kRounds = 12;
    constexpr int kMessagesThere = 40;
    std::mt19937 random(20261123);
    BinaryValue keptId;
    {
        const ComPtr<IMAPIFolder> top = mailbox.OpenFolder(BinaryOf(mailbox.Inbox(), PR_PARENT_ENTRYID));
        const ComPtr<IMAPIFolder> kept = mailbox.MakeFolder(*top, "kept");
        mailbox.AddMessage(*kept, OLESTR("stays"));
        keptId = BinaryOf(*kept, PR_ENTRYID);
    }
    int cutShort = 0;
    for (int round = 0; round < kRounds; ++round) {
        for (int i = 0; i < kMessagesThere; ++i)
            ASSERT_FALSE(AddWithAttachment(mailbox, 2 * i).empty());
        mailbox.LogOff();
        const std::vector<Acknowledged> done = RunAndKill(1, random() % 20000, true);
        mailbox.LogOn();

        ASSERT_FALSE(done.empty());
        ASSERT_NE(done.back().kind, 'f');
        if (done.back().kind == 'e')
            EXPECT_TRUE(SubjectsOf(*ContentsOf(mailbox.Inbox())).empty());
        else
            ++cutShort;
        ExpectAttachmentsWhole();
        ExpectNoLooseRows();
        EXPECT_EQ(SubjectsOf(*ContentsOf(*mailbox.OpenFolder(keptId))).size(), 1u);
        ASSERT_EQ(mailbox.Inbox().EmptyFolder(0, nullptr, 0), S_OK);
    }
    EXPECT_GT(cutShort, 0);
}

}  // namespace
}  // namespace quorvane
