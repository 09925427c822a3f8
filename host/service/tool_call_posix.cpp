#include "host/service/tool_call.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <string_view>

#include "host/service/user_places.h"

extern char** environ;

namespace quorvane::host {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kMostOutput = 64 * 1024;

int MillisecondsUntil(Clock::time_point deadline)
{
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    return static_cast<int>(std::max<std::int64_t>(left.count(), 0));
}

// The environment without what stands for the mailbox that this process works on.
std::vector<std::string> OwnEnvironment()
{
    std::vector<std::string> variables;
    for (char** at = environ; *at; ++at) {
        const std::string_view variable = *at;
        const std::string name(variable.substr(0, variable.find('=')));
        if (const auto own = UserVariable(name); own && name.find("QUORVANE_USER_") != 0)
            variables.push_back(name + "=" + *own);
    }
    return variables;
}

std::vector<char*> Pointers(std::vector<std::string>& texts)
{
    std::vector<char*> pointers;
    for (std::string& text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

// A child that is started and awaited; killed when this goes earlier.
class Child {
public:
    Child(std::vector<std::string> words, int output)
    {
        std::vector<std::string> variables = OwnEnvironment();
        posix_spawn_file_actions_t files;
        posix_spawn_file_actions_init(&files);
        posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_adddup2(&files, output, STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&files, output, STDERR_FILENO);
        posix_spawnattr_t attributes;  // signals that this process waits for are none of the child's
        posix_spawnattr_init(&attributes);
        sigset_t none;
        sigemptyset(&none);
        posix_spawnattr_setsigmask(&attributes, &none);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
        if (posix_spawnp(&process_, words[0].c_str(), &files, &attributes, Pointers(words).data(),
                         Pointers(variables).data()) != 0)
            process_ = -1;
        posix_spawnattr_destroy(&attributes);
        posix_spawn_file_actions_destroy(&files);
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    ~Child()
    {
        if (process_ < 0)
            return;
        kill(process_, SIGKILL);
        Reap();
    }

    bool IsThere() const noexcept { return process_ >= 0; }
    // Its exit code; nothing where it goes on until then, or was killed.
    std::optional<int> Await(Clock::time_point deadline)
    {
        const int handle = static_cast<int>(syscall(SYS_pidfd_open, process_, 0));
        pollfd ended{handle, POLLIN, 0};
        const bool isOver = handle >= 0 && poll(&ended, 1, MillisecondsUntil(deadline)) > 0;
        if (handle >= 0)
            close(handle);
        if (!isOver)
            return std::nullopt;
        const int status = Reap();
        return WIFEXITED(status) ? std::optional(WEXITSTATUS(status)) : std::nullopt;
    }

private:
    int Reap()
    {
        int status = 0;
        while (waitpid(process_, &status, 0) < 0 && errno == EINTR) {
        }
        process_ = -1;
        return status;
    }

    pid_t process_ = -1;
};

// Until the other end is closed, or the time is over.
std::string ReadUntil(int input, Clock::time_point deadline)
{
    std::string text;
    char piece[4096];
    pollfd readable{input, POLLIN, 0};
    while (poll(&readable, 1, MillisecondsUntil(deadline)) > 0) {
        const ssize_t size = read(input, piece, sizeof piece);
        if (size <= 0)
            break;
        text.append(piece, std::min(static_cast<std::size_t>(size), kMostOutput - text.size()));
    }
    return text;
}

}  // namespace

std::optional<ToolAnswer> CallTool(const std::vector<std::string>& words, std::chrono::milliseconds limit)
{
    const auto deadline = Clock::now() + limit;
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return std::nullopt;
    Child child(words, ends[1]);
    close(ends[1]);
    ToolAnswer answer;
    if (child.IsThere())
        answer.output = ReadUntil(ends[0], deadline);
    close(ends[0]);
    if (!child.IsThere())
        return std::nullopt;
    const auto code = child.Await(deadline);
    if (!code)
        return std::nullopt;
    answer.exitCode = *code;
    return answer;
}

}  // namespace quorvane::host
