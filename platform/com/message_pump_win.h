// platform/com/message_pump_win.h: MessagePump, which dispatches a thread's window messages. On Windows
// alone.
#ifndef QUORVANE_PLATFORM_COM_MESSAGE_PUMP_WIN_H_
#define QUORVANE_PLATFORM_COM_MESSAGE_PUMP_WIN_H_

#include "platform/com/com.h"

namespace quorvane {

// For one wait or loop of a thread, made and destroyed there. WM_QUIT is for the thread's own loop to see:
// the first one ends the pump's work, is kept out of the queue as long as the pump lives (it would wake every
// wait for messages), and is posted again when it goes.
class MessagePump {
public:
    MessagePump() noexcept = default;
    MessagePump(const MessagePump&) = delete;
    MessagePump& operator=(const MessagePump&) = delete;
    ~MessagePump();

    // Dispatches every waiting message. True if there was any. Nothing once WM_QUIT was seen.
    bool Run() noexcept;
    // From then on the thread waits without its queue.
    bool SawQuit() const noexcept { return sawQuit_; }

private:
    bool sawQuit_ = false;
    int exitCode_ = 0;
};

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_COM_MESSAGE_PUMP_WIN_H_
