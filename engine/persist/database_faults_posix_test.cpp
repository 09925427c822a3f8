// A sharing database in a process that dies, or whose user lacks rights, and one that can't be read off
// Windows.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "engine/persist/testing/database_fault_fixture.h"

namespace quorvane {
namespace {

using testing::DatabaseFaultTest;
using testing::DatabaseTest;
using testing::DiskFault;
using testing::Operation;
using testing::ReadFile;
using testing::Rows;

// Runs the operations in a process that dies at a change. Counts those that have succeeded.
TEST_F(DatabaseFaultTest, AKillAtAnyChangeKeepsEveryAcknowledgedOperationWhole)
{
    auto* const acknowledged = static_cast<volatile unsigned*>(
        mmap(nullptr, sizeof(unsigned), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    unsigned kills = 0;
    for (unsigned at = 1;; ++at) {
        MakeAnew();
        *acknowledged = 0;
        const pid_t child = fork();
        if (child == 0) {
            vfs.Arm(DiskFault::Kill, at);
            bool good = Open() == S_OK && source.OpenSession(session) == S_OK;
            for (const Operation& operation : Operations()) {
                good = good && operation.run(session) == S_OK;
                *acknowledged = *acknowledged + (good ? 1 : 0);
            }
            _exit(good ? 0 : 1);
        }
        int status = 0;
        waitpid(child, &status, 0);
        ASSERT_TRUE(WIFEXITED(status) && (WEXITSTATUS(status) == 0 || WEXITSTATUS(status) == 9)) << at;
        Rows before;
        Rows after;
        for (unsigned i = 0; i <= *acknowledged && i < Operations().size(); ++i) {
            before = after;
            Operations()[i].effect(after);
        }
        if (*acknowledged == Operations().size())
            before = after;
        const Rows found = RowsOfFile();
        EXPECT_TRUE(found == before || found == after) << "killed at " << at;
        if (WEXITSTATUS(status) == 0)
            break;
        ++kills;
    }
    munmap(const_cast<unsigned*>(acknowledged), sizeof(unsigned));
    EXPECT_GT(kills, 20u);
}

TEST_F(DatabaseFaultTest, AcknowledgedRowsOutliveTheProcess)
{
    MakeDatabase();
    const pid_t child = fork();
    if (child == 0) {
        bool good = Open() == S_OK && source.OpenSession(session) == S_OK;
        for (int i = 0; good && i < 20; ++i)
            good = Append("{" + std::to_string(i) + "}", "E" + std::to_string(i)) == S_OK;
        good = good && session.StartTransaction() == S_OK && Append("{open}", "EO") == S_OK;
        _exit(good ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    ASSERT_EQ(Open(), S_OK);
    ASSERT_EQ(source.OpenSession(session), S_OK);
    EXPECT_EQ(Item("E19"), "{19}/S1/1.5/3");
    EXPECT_EQ(Item("EO"), "none");
}

TEST_F(DatabaseFaultTest, AnAccessDatabaseIsToldAsOneThatCannotBeReadHereAndStaysAsItIs)
{
    const std::string bytes =
        std::string("\0\1\0\0Standard Jet DB\0\1\0\0\0", 24) + std::string(4096 - 24, '\7');
    std::ofstream(path, std::ios::binary) << bytes;
    EXPECT_EQ(Open(), STG_E_OLDFORMAT);
    ASSERT_EQ(DatabaseErrorRecords().size(), 1u);
    EXPECT_EQ(DatabaseErrorRecords()[0], "file is not a database");
    EXPECT_EQ(ReadFile(path), bytes);
}

// Rights. A process of root's loses them first.

class DatabaseRightsTest : public DatabaseTest {
protected:
    // What opening and one insertion give to a user who owns nothing here.
    HRESULT OpenAsStranger()
    {
        const pid_t child = fork();
        if (child == 0) {
            constexpr uid_t kNobody = 65534;
            if (geteuid() == 0 && (setegid(kNobody) != 0 || seteuid(kNobody) != 0))
                _exit(99);
            HRESULT hr = Open();
            if (SUCCEEDED(hr) && SUCCEEDED(source.OpenSession(session)))
                hr = Append("{1}", "E1");
            _exit(hr == S_OK ? 0 : hr == STG_E_ACCESSDENIED ? 1 : hr == kDatabasePermission ? 2 : 3);
        }
        int status = 0;
        waitpid(child, &status, 0);
        constexpr HRESULT kResults[] = {S_OK, STG_E_ACCESSDENIED, kDatabasePermission, E_FAIL};
        return WIFEXITED(status) && WEXITSTATUS(status) < 4 ? kResults[WEXITSTATUS(status)] : E_UNEXPECTED;
    }
};

TEST_F(DatabaseRightsTest, AReadOnlyFileFailsTheOpen)
{
    MakeDatabase();
    ASSERT_EQ(chmod(directory.c_str(), 0777), 0);
    ASSERT_EQ(chmod(path.c_str(), 0444), 0);
    const std::string before = ReadFile(path);
    EXPECT_EQ(OpenAsStranger(), STG_E_ACCESSDENIED);
    EXPECT_EQ(ReadFile(path), before);
}

TEST_F(DatabaseRightsTest, AFileThatMayNotBeReadFailsTheOpen)
{
    MakeDatabase();
    ASSERT_EQ(chmod(directory.c_str(), 0777), 0);
    ASSERT_EQ(chmod(path.c_str(), 0), 0);
    EXPECT_EQ(OpenAsStranger(), STG_E_ACCESSDENIED);
}

TEST_F(DatabaseRightsTest, ADirectoryThatTakesNoJournalFailsTheOpen)
{
    MakeDatabase();
    ASSERT_EQ(chmod(path.c_str(), 0666), 0);
    ASSERT_EQ(chmod(directory.c_str(), 0555), 0);
    EXPECT_EQ(OpenAsStranger(), STG_E_ACCESSDENIED);
    ASSERT_EQ(chmod(directory.c_str(), 0777), 0);
    EXPECT_EQ(OpenAsStranger(), S_OK);
}

}  // namespace
}  // namespace quorvane
