#include <windows.h>

#include <cstdio>

#include "host/base/screen.h"

namespace quorvane::host {

struct Screen::System {
    HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
    DWORD before = 0;
    bool hasKeys = GetConsoleMode(input, &before) != 0;
};

Screen::Screen() : system_(std::make_unique<System>())
{
    if (system_->hasKeys)
        SetConsoleMode(system_->input, ENABLE_PROCESSED_INPUT | ENABLE_WINDOW_INPUT);
    std::fputs(kBegin, stdout);
}

Screen::~Screen()
{
    std::fputs(kEnd, stdout);
    std::fflush(stdout);
    if (system_->hasKeys)
        SetConsoleMode(system_->input, system_->before);
}

std::intptr_t Screen::Handle() const noexcept
{
    return system_->hasKeys ? reinterpret_cast<std::intptr_t>(system_->input) : -1;
}

bool Screen::TakeKeys()
{
    bool isEnd = false;
    INPUT_RECORD record{};
    DWORD count = 0;
    while (system_->hasKeys && GetNumberOfConsoleInputEvents(system_->input, &count) && count > 0 &&
           ReadConsoleInputW(system_->input, &record, 1, &count)) {
        const wchar_t key = record.EventType == KEY_EVENT && record.Event.KeyEvent.bKeyDown
                                ? record.Event.KeyEvent.uChar.UnicodeChar
                                : L'\0';
        isEnd = isEnd || key == L'q' || key == L'Q';
    }
    return isEnd;
}

}  // namespace quorvane::host
