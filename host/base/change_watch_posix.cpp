#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include "host/base/change_watch.h"

namespace quorvane::host {

namespace {

constexpr std::uint32_t kChanges = IN_CREATE | IN_MODIFY | IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM |
                                   IN_DELETE | IN_DELETE_SELF | IN_MOVE_SELF | IN_ATTRIB | IN_ONLYDIR;

int MakeQueue() noexcept
{
    return inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
}

}  // namespace

ChangeWatch::ChangeWatch() : queue_(MakeQueue()) {}

ChangeWatch::~ChangeWatch()
{
    if (queue_ >= 0)
        close(static_cast<int>(queue_));
}

void ChangeWatch::End()
{
    if (queue_ >= 0)
        close(static_cast<int>(queue_));
    queue_ = MakeQueue();
}

void ChangeWatch::Watch(const std::filesystem::path& directory)
{
    // What can't be watched is looked at once in a while, as all the rest.
    if (queue_ >= 0)
        (void)inotify_add_watch(static_cast<int>(queue_), directory.c_str(), kChanges);
}

void ChangeWatch::Forget()
{
    char events[4096];
    while (queue_ >= 0 && read(static_cast<int>(queue_), events, sizeof events) > 0) {
    }
}

ChangeWatch::Woken ChangeWatch::Wait(const StopSignals& signals, std::chrono::milliseconds time)
{
    pollfd events[] = {{static_cast<int>(signals.Handle()), POLLIN, 0},
                       {static_cast<int>(queue_), POLLIN, 0},
                       {static_cast<int>(other_), POLLIN, 0}};
    if (poll(events, 3, static_cast<int>(time.count())) <= 0)
        return Woken::kTime;
    if (events[0].revents != 0)
        return Woken::kStop;
    if (events[2].revents != 0)
        return Woken::kOther;
    Forget();
    return Woken::kChange;
}

}  // namespace quorvane::host
