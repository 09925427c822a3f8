#include <sys/epoll.h>
#include <sys/signalfd.h>
#include <termios.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstring>

#include "host/base/screen.h"

namespace quorvane::host {

struct Screen::System {
    int events = epoll_create1(EPOLL_CLOEXEC);
    int sizes = -1;  // tells of SIGWINCH
    bool hasKeys = false;
    termios before{};  // of standard input, if that has keys

    void Await(int descriptor) const
    {
        epoll_event event{};
        event.events = EPOLLIN;
        (void)epoll_ctl(events, EPOLL_CTL_ADD, descriptor, &event);
    }
    void BeginKeys()
    {
        // In the background the terminal isn't ours to change.
        hasKeys = tcgetattr(STDIN_FILENO, &before) == 0 && tcgetpgrp(STDIN_FILENO) == getpgrp();
        if (!hasKeys)
            return;
        termios single = before;
        single.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
        single.c_cc[VMIN] = 0;
        single.c_cc[VTIME] = 0;
        tcsetattr(STDIN_FILENO, TCSANOW, &single);
        Await(STDIN_FILENO);
    }
};

Screen::Screen() : system_(std::make_unique<System>())
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGWINCH);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    system_->sizes = signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
    system_->Await(system_->sizes);
    system_->BeginKeys();
    std::fputs(kBegin, stdout);
}

Screen::~Screen()
{
    std::fputs(kEnd, stdout);
    std::fflush(stdout);
    if (system_->hasKeys)
        tcsetattr(STDIN_FILENO, TCSANOW, &system_->before);
    close(system_->sizes);
    close(system_->events);
}

std::intptr_t Screen::Handle() const noexcept
{
    return system_->events;
}

bool Screen::TakeKeys()
{
    signalfd_siginfo resized;
    while (read(system_->sizes, &resized, sizeof resized) > 0) {
    }
    char keys[64];
    const ssize_t size = system_->hasKeys ? read(STDIN_FILENO, keys, sizeof keys) : 0;
    return size > 0 && (std::memchr(keys, 'q', static_cast<std::size_t>(size)) ||
                        std::memchr(keys, 'Q', static_cast<std::size_t>(size)));
}

}  // namespace quorvane::host
