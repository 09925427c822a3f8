#include <windows.h>

#include <algorithm>
#include <vector>

#include "host/base/change_watch.h"

namespace quorvane::host {

namespace {

constexpr DWORD kChanges = FILE_NOTIFY_CHANGE_FILE_NAME | FILE_NOTIFY_CHANGE_DIR_NAME |
                           FILE_NOTIFY_CHANGE_SIZE | FILE_NOTIFY_CHANGE_LAST_WRITE;

HANDLE AsHandle(std::intptr_t handle) noexcept
{
    return reinterpret_cast<HANDLE>(handle);
}

bool LiesIn(const std::filesystem::path& path, const std::filesystem::path& directory)
{
    return std::mismatch(directory.begin(), directory.end(), path.begin(), path.end()).first ==
           directory.end();
}

}  // namespace

ChangeWatch::ChangeWatch() = default;

ChangeWatch::~ChangeWatch()
{
    End();
}

void ChangeWatch::End()
{
    for (const auto& [path, handle] : watched_)
        FindCloseChangeNotification(AsHandle(handle));
    watched_.clear();
}

void ChangeWatch::Watch(const std::filesystem::path& directory)
{
    const bool isWatched = std::any_of(watched_.begin(), watched_.end(),
                                       [&](const auto& watched) { return LiesIn(directory, watched.first); });
    if (isWatched || watched_.size() + 1 >= MAXIMUM_WAIT_OBJECTS)
        return;
    HANDLE const handle = FindFirstChangeNotificationW(directory.c_str(), TRUE, kChanges);
    if (handle != INVALID_HANDLE_VALUE)
        watched_.emplace(directory, reinterpret_cast<std::intptr_t>(handle));
}

// One that can't go on is watched anew.
void ChangeWatch::Forget()
{
    std::erase_if(watched_, [](const auto& watched) {
        while (WaitForSingleObject(AsHandle(watched.second), 0) == WAIT_OBJECT_0)
            if (!FindNextChangeNotification(AsHandle(watched.second))) {
                FindCloseChangeNotification(AsHandle(watched.second));
                return true;
            }
        return false;
    });
}

ChangeWatch::Woken ChangeWatch::Wait(const StopSignals& signals, std::chrono::milliseconds time)
{
    std::vector<HANDLE> handles{AsHandle(signals.Handle())};
    if (other_ != -1)
        handles.push_back(AsHandle(other_));
    for (const auto& [path, handle] : watched_)
        handles.push_back(AsHandle(handle));
    const DWORD woken = WaitForMultipleObjects(static_cast<DWORD>(handles.size()), handles.data(), FALSE,
                                               static_cast<DWORD>(time.count()));
    if (woken == WAIT_OBJECT_0)
        return Woken::kStop;
    if (woken == WAIT_TIMEOUT || woken == WAIT_FAILED)
        return Woken::kTime;
    if (other_ != -1 && woken == WAIT_OBJECT_0 + 1)
        return Woken::kOther;
    Forget();
    return Woken::kChange;
}

}  // namespace quorvane::host
