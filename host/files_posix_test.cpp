// A copy and a kill: the other process is a fork of the test's.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>

#include "host/files.h"
#include "platform/testing/test_directory.h"

namespace quorvane::host {

namespace {

TEST(FilesKillTest, ACopyThatIsKilledLeavesNoTarget)
{
    const test::TestDirectory directory;
    std::ofstream(directory / "a", std::ios::binary) << std::string(64'000'000, 'x');
    int kills = 0;
    for (std::uintmax_t reached = 0; reached < 60'000'000; reached += 5'000'000) {
        const pid_t child = fork();
        if (child == 0) {
            CopyDurably(directory / "a", directory / "b.part", directory / "b");
            _exit(0);
        }
        std::error_code error;
        int status = 0;
        while (waitpid(child, &status, WNOHANG) == 0) {
            const auto size = std::filesystem::file_size(directory / "b.part", error);
            if (!error && size > reached)
                kill(child, SIGKILL);
        }
        kills += WIFSIGNALED(status) ? 1 : 0;
        if (std::filesystem::exists(directory / "b")) {
            EXPECT_EQ(std::filesystem::file_size(directory / "b"), 64'000'000U);
            std::filesystem::remove(directory / "b");
        }
    }
    EXPECT_GT(kills, 0);
}

}  // namespace

}  // namespace quorvane::host
