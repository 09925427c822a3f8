#include "platform/desktop/desktop.h"

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <thread>
#include <vector>

#include "platform/event/event.h"

extern char** environ;

namespace quorvane {
namespace {

constexpr std::string_view kUsersOwn = "QUORVANE_USER_";

HRESULT FromSystemError(int error) noexcept
{
    switch (error) {
        case ENOENT:
            return HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
        case EACCES:
        case EPERM:
            return HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED);
        case ENOMEM:
            return E_OUTOFMEMORY;
        default:
            return E_FAIL;
    }
}

std::string_view NameIn(std::string_view entry) noexcept
{
    return entry.substr(0, entry.find('='));
}

// The environment of the user's own programs, null at its end.
class UsersEnvironment {
public:
    UsersEnvironment()
    {
        for (char** entry = environ; *entry; ++entry) {
            if (std::string_view(*entry).starts_with(kUsersOwn))
                own_.emplace_back(*entry + kUsersOwn.size());
        }
        for (char** entry = environ; *entry; ++entry) {
            if (!IsReplaced(NameIn(*entry)))
                entries_.push_back(*entry);
        }
        for (std::string& entry : own_) {
            if (entry.find('=') + 1 < entry.size())
                entries_.push_back(entry.data());
        }
        entries_.push_back(nullptr);
    }

    char** Get() noexcept { return entries_.data(); }

private:
    bool IsReplaced(std::string_view name) const noexcept
    {
        if (name.starts_with(kUsersOwn))
            return true;
        for (const std::string& entry : own_) {
            if (NameIn(entry) == name)
                return true;
        }
        return false;
    }

    std::vector<std::string> own_;
    std::vector<char*> entries_;
};

// A program begins with no signal blocked, whatever this thread blocks.
class SpawnAttributes {
public:
    SpawnAttributes() noexcept
    {
        posix_spawnattr_init(&attributes_);
        sigset_t none;
        sigemptyset(&none);
        posix_spawnattr_setsigmask(&attributes_, &none);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK);
    }
    SpawnAttributes(const SpawnAttributes&) = delete;
    SpawnAttributes& operator=(const SpawnAttributes&) = delete;
    ~SpawnAttributes() { posix_spawnattr_destroy(&attributes_); }

    const posix_spawnattr_t* Get() const noexcept { return &attributes_; }

private:
    posix_spawnattr_t attributes_;
};

HRESULT Spawn(const std::string& program, const std::string& file, pid_t& process)
{
    UsersEnvironment environment;
    const SpawnAttributes attributes;
    char* const arguments[] = {const_cast<char*>(program.c_str()), const_cast<char*>(file.c_str()), nullptr};
    const int error =
        posix_spawnp(&process, program.c_str(), nullptr, attributes.Get(), arguments, environment.Get());
    return error == 0 ? S_OK : FromSystemError(error);
}

// An ended program stays with its parent until it is asked for: a thread does that, whoever waits.
void Collect(pid_t process, const std::shared_ptr<Event>& ended) noexcept
try {
    std::thread([process, ended] {
        int status = 0;
        while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
        }
        ended->Set();
    }).detach();
} catch (...) {
    ended->Set();  // the program runs, and nobody waits for it
}

}  // namespace

ULONG_PTR ActiveWindow() noexcept
{
    return 0;
}

bool OutputIsTerminal() noexcept
{
    return isatty(STDOUT_FILENO) == 1;
}

HRESULT OpenFileWith(const std::string& program, const std::string& file, ProgramWait wait) noexcept
try {
    if (program.empty())
        return HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
    const auto ended = std::make_shared<Event>();
    HRESULT hr = ended->Create(false);
    pid_t process = 0;
    if (SUCCEEDED(hr))
        hr = Spawn(program, file, process);
    if (FAILED(hr))
        return hr;
    Collect(process, ended);
    if (wait == ProgramWait::End)
        ended->Wait(kForever, WaitMode::KeepQueueAlive);
    return S_OK;
} catch (...) {
    return E_OUTOFMEMORY;
}

}  // namespace quorvane
