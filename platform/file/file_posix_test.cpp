// Files between processes: what Windows' own share modes do there.
#include <gtest/gtest.h>
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

}  // namespace
}  // namespace quorvane
