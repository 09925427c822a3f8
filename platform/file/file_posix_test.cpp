// Files between processes (what Windows' own share modes do there), and who may read them.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/file/file.h"
#include "platform/file/path.h"
#include "platform/file/temp_directory_for_test.h"

namespace quorvane {
namespace {

TEST(FileShareTest, AnotherProcessIsKeptOutTooAndLetInAfterwards)
{
    const TempDirectoryForTest directory;
    const std::string path = JoinPath(directory.Path(), "file");
    File first;
    ASSERT_EQ(first.Open(path, FileAccess::ReadWrite, FileMode::CreateNew, FileShare::None), S_OK);
    const auto openInChild = [&path] {
        const pid_t child = fork();
        if (child == 0) {
            File second;
            const HRESULT hr = second.Open(path, FileAccess::Read, FileMode::OpenExisting, FileShare::All);
            _exit(hr == S_OK ? 0 : HRESULT_CODE(hr));
        }
        int status = 0;
        waitpid(child, &status, 0);
        return WEXITSTATUS(status);
    };

    EXPECT_EQ(openInChild(), ERROR_SHARING_VIOLATION);
    first.Close();
    EXPECT_EQ(openInChild(), 0);
}

// Under an umask that takes nothing away.
class PrivacyTest : public ::testing::Test {
protected:
    static mode_t ModeOf(const std::string& path)
    {
        struct stat status {};
        EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
        return status.st_mode & 0777;
    }

    const TempDirectoryForTest directory;
    const std::string path = JoinPath(directory.Path(), "new");

private:
    struct Umask {
        ~Umask() { umask(before); }
        const mode_t before = umask(0);
    };
    const Umask umask_;
};

TEST_F(PrivacyTest, ANewFileIsItsUsersAlone)
{
    File file;
    ASSERT_EQ(file.Open(path, FileAccess::Write, FileMode::CreateNew, FileShare::None), S_OK);
    EXPECT_EQ(ModeOf(path), 0600U);
}

TEST_F(PrivacyTest, AFileThatIsThereStaysAsItsUserMadeIt)
{
    close(creat(path.c_str(), 0644));
    File file;
    ASSERT_EQ(file.Open(path, FileAccess::ReadWrite, FileMode::OpenExisting, FileShare::All), S_OK);
    EXPECT_EQ(ModeOf(path), 0644U);
}

TEST_F(PrivacyTest, NewDirectoriesAreTheirUsersAlone)
{
    const std::string below = JoinPath(path, "below");
    ASSERT_EQ(MakeDirectories(below), S_OK);
    EXPECT_EQ(ModeOf(path), 0700U);
    EXPECT_EQ(ModeOf(below), 0700U);
}

}  // namespace
}  // namespace quorvane
