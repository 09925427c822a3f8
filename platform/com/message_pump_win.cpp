#include "platform/com/message_pump_win.h"

namespace quorvane {

MessagePump::~MessagePump()
{
    if (sawQuit_)
        PostQuitMessage(exitCode_);
}

bool MessagePump::Run() noexcept
{
    bool any = false;
    MSG message;
    while (!sawQuit_ && PeekMessageW(&message, nullptr, 0, 0, PM_NOREMOVE)) {
        const bool unicode = message.hwnd && IsWindowUnicode(message.hwnd);
        const BOOL got =
            unicode ? GetMessageW(&message, nullptr, 0, 0) : GetMessageA(&message, nullptr, 0, 0);
        if (got < 0)
            return any;
        if (got == 0) {
            sawQuit_ = true;
            exitCode_ = static_cast<int>(message.wParam);
            return any;
        }
        TranslateMessage(&message);
        if (unicode)
            DispatchMessageW(&message);
        else
            DispatchMessageA(&message);
        any = true;
    }
    return any;
}

}  // namespace quorvane
