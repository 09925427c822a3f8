// Waits of a thread whose program is about to end.
#include <gtest/gtest.h>

#include <thread>

#include "platform/com/apartment.h"
#include "platform/event/event.h"

namespace quorvane {
namespace {

constexpr int kExitCode = 7;

std::chrono::nanoseconds ProcessorTime()
{
    FILETIME created;
    FILETIME exited;
    FILETIME kernel;
    FILETIME user;
    EXPECT_TRUE(GetThreadTimes(GetCurrentThread(), &created, &exited, &kernel, &user));
    const auto ticks = [](const FILETIME& time) {
        return (static_cast<long long>(time.dwHighDateTime) << 32) + time.dwLowDateTime;
    };
    return std::chrono::nanoseconds(100 * (ticks(kernel) + ticks(user)));
}

// WM_QUIT is posted to this thread, and whatever `wait` does leaves it in the queue.
void WaitBesideQuit(void (*wait)(Event& event))
{
    std::thread([wait] {
        const ApartmentScope apartment;
        Event event;
        ASSERT_EQ(event.Create(false), S_OK);
        PostQuitMessage(kExitCode);
        const auto before = ProcessorTime();
        wait(event);
        EXPECT_LT(ProcessorTime() - before, std::chrono::milliseconds(150));

        MSG message;
        ASSERT_TRUE(PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE));
        EXPECT_EQ(message.message, static_cast<UINT>(WM_QUIT));
        EXPECT_EQ(message.wParam, static_cast<WPARAM>(kExitCode));
    }).join();
}

constexpr std::chrono::seconds kLong{1};

TEST(QuitTest, AWaitForOneEventDoesntSpinAfterWmQuitAndKeepsIt)
{
    WaitBesideQuit([](Event& event) { EXPECT_FALSE(event.Wait(kLong, WaitMode::KeepQueueAlive)); });
}

TEST(QuitTest, AWaitForAllEventsDoesntSpinAfterWmQuitAndKeepsIt)
{
    WaitBesideQuit([](Event& event) {
        const Event* const events[] = {&event, &event};
        EXPECT_EQ(WaitAll(events, kLong, WaitMode::KeepQueueAlive), S_FALSE);
    });
}

// Sets an event as soon as this thread has taken WM_QUIT from its queue.
class SetAtQuit {
public:
    explicit SetAtQuit(Event& event) noexcept
        : hook_(SetWindowsHookExW(WH_GETMESSAGE, NoteMessage, nullptr, GetCurrentThreadId()))
    {
        EXPECT_NE(hook_, nullptr);
        target = &event;
    }
    SetAtQuit(const SetAtQuit&) = delete;
    SetAtQuit& operator=(const SetAtQuit&) = delete;
    ~SetAtQuit() { UnhookWindowsHookEx(hook_); }

private:
    static LRESULT CALLBACK NoteMessage(int code, WPARAM removed, LPARAM message) noexcept
    {
        if (code == HC_ACTION && removed == PM_REMOVE &&
            reinterpret_cast<const MSG*>(message)->message == WM_QUIT)
            target->Set();
        return CallNextHookEx(nullptr, code, removed, message);
    }

    static inline thread_local Event* target = nullptr;
    HHOOK const hook_;
};

TEST(QuitTest, AWaitStillSeesItsEventAfterWmQuit)
{
    WaitBesideQuit([](Event& event) {
        const SetAtQuit setter(event);
        EXPECT_TRUE(event.Wait(std::chrono::seconds(30), WaitMode::KeepQueueAlive));
    });
}

TEST(QuitTest, AnApartmentsLoopDoesntSpinAfterWmQuitAndKeepsIt)
{
    WaitBesideQuit([](Event&) {
        ApartmentLoop loop;
        EXPECT_FALSE(loop.RunFor(kLong));
    });
}

}  // namespace
}  // namespace quorvane
