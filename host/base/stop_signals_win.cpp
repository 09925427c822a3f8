#include "host/base/stop_signals.h"

#include <windows.h>

#include "host/base/errors.h"

namespace quorvane::host {

namespace {

// Made by the first StopSignals and kept: the system may call the handler at any moment.
HANDLE asked = nullptr;
HANDLE ended = nullptr;

HANDLE NewEvent()
{
    HANDLE const event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    if (!event)
        Fail("watch for", "Ctrl-C", DescribeSystemError(GetLastError()));
    return event;
}

// Runs on a thread of the system's. When it returns from anything but Ctrl-C and Ctrl-Break the process is
// over, so it waits for the end of the run; the system waits for it for some seconds.
BOOL WINAPI OnControl(DWORD type)
{
    SetEvent(asked);
    if (type != CTRL_C_EVENT && type != CTRL_BREAK_EVENT)
        WaitForSingleObject(ended, INFINITE);
    return TRUE;
}

}  // namespace

StopSignals::StopSignals()
{
    if (!asked)
        asked = NewEvent();
    if (!ended)
        ended = NewEvent();
    ResetEvent(asked);
    ResetEvent(ended);
    // A parent may have told its children to pass Ctrl-C over.
    SetConsoleCtrlHandler(nullptr, FALSE);
    if (!SetConsoleCtrlHandler(OnControl, TRUE))
        Fail("watch for", "Ctrl-C", DescribeSystemError(GetLastError()));
    asked_ = reinterpret_cast<std::intptr_t>(asked);
    ended_ = reinterpret_cast<std::intptr_t>(ended);
    watcher_ = std::thread([this] { Watch(); });
}

StopSignals::~StopSignals()
{
    SetConsoleCtrlHandler(OnControl, FALSE);
    {
        const std::lock_guard lock(mutex_);
        isEnding_ = true;
        changed_.notify_all();
    }
    SetEvent(ended);
    watcher_.join();
}

void StopSignals::Watch()
{
    const HANDLE events[] = {asked, ended};
    if (WaitForMultipleObjects(2, events, FALSE, INFINITE) == WAIT_OBJECT_0)
        EndWhenOverdue(std::unique_lock(mutex_));
}

bool StopSignals::Wait(std::chrono::milliseconds time) const noexcept
{
    return WaitForSingleObject(asked, static_cast<DWORD>(time.count())) == WAIT_OBJECT_0;
}

}  // namespace quorvane::host
