#include "tests/sdk/command.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <iterator>
#include <thread>

namespace quorvane::test {

namespace {

[[noreturn]] void Execute(const char* line, const char* directory, const char* output)
{
    setpgid(0, 0);
    const int file = open(output, O_WRONLY | O_CREAT | O_TRUNC, 0666);
    dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
    dup2(file, STDOUT_FILENO);
    dup2(file, STDERR_FILENO);
    if (chdir(directory) == 0)
        execl("/bin/sh", "sh", "-c", line, nullptr);
    _exit(127);
}

size_t CountOf(const std::string& text, const std::string& part)
{
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size()))
        ++count;
    return count;
}

int CodeOf(int status)
{
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

std::string ReadFile(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

Command::Command(const std::string& line, const std::filesystem::path& directory,
                 std::filesystem::path output)
    : output_(std::move(output)), process_(fork())
{
    if (process_ == 0)
        Execute(line.c_str(), directory.c_str(), output_.c_str());
}

Command::~Command()
{
    if (process_ <= 0)
        return;
    kill(-process_, SIGKILL);
    waitpid(process_, nullptr, 0);
}

bool Command::HasEnded()
{
    int status = 0;
    if (process_ > 0 && waitpid(process_, &status, WNOHANG) == process_) {
        exitCode_ = CodeOf(status);
        process_ = -1;
    }
    return process_ <= 0;
}

bool Command::Says(const std::string& text, size_t times)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (std::chrono::steady_clock::now() < deadline) {
        const bool ended = HasEnded();
        if (CountOf(Output(), text) >= times)
            return true;
        if (ended)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
}

void Command::Terminate() const
{
    if (process_ > 0)
        kill(process_, SIGTERM);
}

int Command::Wait()
{
    int status = 0;
    if (process_ > 0 && waitpid(process_, &status, 0) == process_) {
        exitCode_ = CodeOf(status);
        process_ = -1;
    }
    return exitCode_;
}

}  // namespace quorvane::test
