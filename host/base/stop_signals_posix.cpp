#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "host/base/errors.h"
#include "host/base/stop_signals.h"

namespace quorvane::host {

namespace {

sigset_t StopSet()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    return set;
}

int NewDescriptor(int descriptor)
{
    if (descriptor < 0)
        Fail("watch for", "SIGINT and SIGTERM", DescribeErrno(errno));
    return descriptor;
}

void Set(std::intptr_t event) noexcept
{
    const std::uint64_t one = 1;
    // It can't fail: nobody counts that far.
    [[maybe_unused]] const ssize_t written = write(static_cast<int>(event), &one, sizeof one);
}

}  // namespace

StopSignals::StopSignals()
{
    const sigset_t set = StopSet();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    signals_ = NewDescriptor(signalfd(-1, &set, SFD_CLOEXEC));
    asked_ = NewDescriptor(eventfd(0, EFD_CLOEXEC));
    ended_ = NewDescriptor(eventfd(0, EFD_CLOEXEC));
    watcher_ = std::thread([this] { Watch(); });
}

StopSignals::~StopSignals()
{
    {
        const std::lock_guard lock(mutex_);
        isEnding_ = true;
        changed_.notify_all();
    }
    Set(ended_);
    watcher_.join();
    for (const std::intptr_t descriptor : {signals_, asked_, ended_})
        close(static_cast<int>(descriptor));
}

void StopSignals::Watch()
{
    pollfd events[] = {{static_cast<int>(signals_), POLLIN, 0}, {static_cast<int>(ended_), POLLIN, 0}};
    while (poll(events, 2, -1) < 0) {
    }
    if (events[0].revents == 0)
        return;
    // Who has heard of the signal and then changes what becomes of the process is too late for a time that is
    // over.
    std::unique_lock lock(mutex_);
    Set(asked_);
    EndWhenOverdue(std::move(lock));
}

bool StopSignals::Wait(std::chrono::milliseconds time) const noexcept
{
    pollfd asked{static_cast<int>(asked_), POLLIN, 0};
    return poll(&asked, 1, static_cast<int>(time.count())) > 0;
}

}  // namespace quorvane::host
