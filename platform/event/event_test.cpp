#include "platform/event/event.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <thread>
#include <vector>

#include "platform/com/apartment.h"
#include "platform/com/com_object.h"
#include "platform/testing/unimplemented_dispatch.h"

namespace quorvane {
namespace {

using std::chrono::milliseconds;

Event MakeEvent(bool initiallySet = false, std::string_view name = {})
{
    Event event;
    EXPECT_EQ(event.Create(initiallySet, name), S_OK);
    return event;
}

TEST(EventTest, ItStaysSetUntilItIsReset)
{
    Event event = MakeEvent();
    EXPECT_FALSE(event.IsSet());

    EXPECT_EQ(event.Set(), S_OK);
    EXPECT_TRUE(event.Wait(milliseconds(0)));
    EXPECT_TRUE(event.Wait(milliseconds(0)));
    EXPECT_EQ(event.Reset(), S_OK);

    EXPECT_FALSE(event.Wait(milliseconds(0)));
}

TEST(EventTest, NoEventIsNeverSetAndCannotBeSet)
{
    Event none;

    EXPECT_FALSE(none.Exists());
    EXPECT_EQ(none.Set(), E_HANDLE);
    EXPECT_EQ(none.Reset(), E_HANDLE);
    EXPECT_FALSE(none.IsSet());
    EXPECT_FALSE(none.Wait());
}

TEST(EventTest, AWaitEndsWhenAnotherThreadSetsTheEvent)
{
    Event event = MakeEvent();
    Event waiting = MakeEvent();
    bool woken = false;
    std::jthread waiter([&] {
        waiting.Set();
        woken = event.Wait();
    });
    ASSERT_TRUE(waiting.Wait());

    event.Set();
    waiter.join();

    EXPECT_TRUE(woken);
}

TEST(EventTest, AWaitGivesUpWhenTheTimeIsUp)
{
    const Event event = MakeEvent();
    const auto start = std::chrono::steady_clock::now();

    EXPECT_FALSE(event.Wait(milliseconds(5)));

    EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(5));
}

TEST(EventTest, OneNameIsOneEvent)
{
    Event first = MakeEvent(true, "OneNameIsOneEvent");
    Event second = MakeEvent(false, "OneNameIsOneEvent");
    const Event other = MakeEvent(false, "AnotherName");

    EXPECT_TRUE(second.IsSet()) << "the first state is the first creator's";
    second.Reset();

    EXPECT_FALSE(first.IsSet());
    EXPECT_FALSE(other.IsSet());
}

TEST(EventTest, ANameThatNobodyHoldsStartsAnew)
{
    MakeEvent(true, "ANameThatNobodyHolds");

    EXPECT_FALSE(MakeEvent(false, "ANameThatNobodyHolds").IsSet());
}

TEST(EventTest, MovingHandsTheEventOver)
{
    Event event = MakeEvent(true);
    const Event moved = std::move(event);

    EXPECT_TRUE(moved.IsSet());
}

TEST(WaitAnyTest, TheLowestSetPlaceIsTold)
{
    const Event unset = MakeEvent();
    const Event set = MakeEvent(true);
    const std::array events = {&unset, &set, &set};
    size_t index = 77;

    EXPECT_EQ(WaitAny(events, kForever, &index), S_OK);

    EXPECT_EQ(index, 1u);
}

TEST(WaitAnyTest, NothingSetInTimeLeavesTheIndexAlone)
{
    const Event unset = MakeEvent();
    const std::array events = {&unset};
    size_t index = 77;

    EXPECT_EQ(WaitAny(events, milliseconds(1), &index), S_FALSE);

    EXPECT_EQ(index, 77u);
}

TEST(WaitAnyTest, AListWithoutEventsOrWithAHoleIsRefused)
{
    const Event none;
    const Event set = MakeEvent(true);
    const std::array hole = {&set, static_cast<const Event*>(nullptr)};
    const std::array notMade = {&set, &none};

    EXPECT_EQ(WaitAny({}, kForever), E_INVALIDARG);
    EXPECT_EQ(WaitAny(hole, kForever), E_INVALIDARG);
    EXPECT_EQ(WaitAny(notMade, kForever), E_INVALIDARG);
    EXPECT_EQ(WaitAll({}, kForever), E_INVALIDARG);
}

TEST(WaitAnyTest, AnyOfManyEventsWakesTheWaiter)
{
    std::vector<Event> events;
    std::vector<const Event*> all;
    for (int i = 0; i < 50; ++i)
        events.push_back(MakeEvent());
    for (const Event& event : events)
        all.push_back(&event);
    size_t index = 0;
    std::jthread setter([&] { events[33].Set(); });

    EXPECT_EQ(WaitAny(all, kForever, &index), S_OK);

    EXPECT_EQ(index, 33u);
}

TEST(WaitAllTest, AllMustBeSetAtOneTime)
{
    Event first = MakeEvent(true);
    Event second = MakeEvent();
    const std::array events = {static_cast<const Event*>(&first), static_cast<const Event*>(&second),
                               static_cast<const Event*>(&first)};
    EXPECT_EQ(WaitAll(events, milliseconds(1)), S_FALSE);
    std::jthread setter([&] { second.Set(); });

    EXPECT_EQ(WaitAll(events, kForever), S_OK);
}

TEST(WaitAllTest, EventsThatAreNeverSetTogetherNeverSatisfyIt)
{
    Event first = MakeEvent(true);
    Event second = MakeEvent(false);
    const std::array events = {static_cast<const Event*>(&first), static_cast<const Event*>(&second)};
    std::atomic<bool> stop = false;
    std::jthread changer([&] {
        while (!stop) {
            first.Reset();
            second.Set();
            second.Reset();
            first.Set();
        }
    });

    EXPECT_EQ(WaitAll(events, milliseconds(20)), S_FALSE);
    stop = true;
}

TEST(WaitTest, ManyThreadsMayWaitForAndSetTheSameEvents)
{
    constexpr int kRounds = 200;
    Event ping = MakeEvent();
    Event pong = MakeEvent();
    std::jthread other([&] {
        for (int i = 0; i < kRounds; ++i) {
            ping.Wait();
            ping.Reset();
            pong.Set();
        }
    });
    for (int i = 0; i < kRounds; ++i) {
        ping.Set();
        ASSERT_TRUE(pong.Wait());
        pong.Reset();
    }
}

// An automation object that sets an event when it is called.
class CSetter final : public ComObject<CSetter, test::UnimplementedDispatch> {
public:
    explicit CSetter(Event& event) noexcept : m_Event(event) {}

    HRESULT STDMETHODCALLTYPE Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*,
                                     UINT*) override
    {
        EXPECT_EQ(std::this_thread::get_id(), m_Owner);
        return m_Event.Set();
    }

private:
    Event& m_Event;
    const std::thread::id m_Owner = std::this_thread::get_id();
};

// A thread that calls an object of this thread's apartment through the global table.
class CallFromElsewhere {
public:
    explicit CallFromElsewhere(IDispatch* object)
    {
        EXPECT_EQ(CoCreateInstance(CLSID_StdGlobalInterfaceTable, nullptr, CLSCTX_INPROC_SERVER,
                                   IID_IGlobalInterfaceTable, table_.PutVoid()),
                  S_OK);
        EXPECT_EQ(table_->RegisterInterfaceInGlobal(object, IID_IDispatch, &cookie_), S_OK);
        thread_ = std::jthread([this] {
            const FreeThreadScope free;
            ComPtr<IDispatch> proxy;
            EXPECT_EQ(table_->GetInterfaceFromGlobal(cookie_, IID_IDispatch, proxy.PutVoid()), S_OK);
            DISPPARAMS none{};
            result = proxy->Invoke(1, IID_NULL, 0, DISPATCH_METHOD, &none, nullptr, nullptr, nullptr);
            proxy.Reset();
            EXPECT_EQ(ended_.Set(), S_OK);
        });
    }
    ~CallFromElsewhere() { EXPECT_EQ(table_->RevokeInterfaceFromGlobal(cookie_), S_OK); }

    // The proxy's release may be a call into the apartment, too.
    void Join()
    {
        EXPECT_TRUE(ended_.Wait(kForever, WaitMode::KeepQueueAlive));
        thread_.join();
    }

    HRESULT result = E_UNEXPECTED;

private:
    ComPtr<IGlobalInterfaceTable> table_;
    DWORD cookie_ = 0;
    Event ended_ = MakeEvent();
    std::jthread thread_;
};

TEST(PumpingTest, AWaitThatKeepsTheQueueAliveAnswersCalls)
{
    const ApartmentScope apartment;
    Event called = MakeEvent();
    const auto object = MakeComObject<CSetter>(called);
    CallFromElsewhere call(object.Get());

    EXPECT_TRUE(called.Wait(kForever, WaitMode::KeepQueueAlive));

    call.Join();
    EXPECT_EQ(call.result, S_OK);
}

TEST(PumpingTest, APlainWaitAnswersNobody)
{
    const ApartmentScope apartment;
    Event called = MakeEvent();
    const auto object = MakeComObject<CSetter>(called);
    CallFromElsewhere call(object.Get());

    EXPECT_FALSE(called.Wait(milliseconds(20)));

    EXPECT_TRUE(called.Wait(kForever, WaitMode::KeepQueueAlive));
    call.Join();
}

TEST(PumpingTest, APausePassesTheTimeAndAnswersCalls)
{
    const ApartmentScope apartment;
    Event called = MakeEvent();
    const auto object = MakeComObject<CSetter>(called);
    CallFromElsewhere call(object.Get());
    const auto start = std::chrono::steady_clock::now();
    ULONG pauses = 0;

    while (!called.IsSet()) {
        PumpingWait(1000);
        ++pauses;
    }

    EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(pauses));
    call.Join();
}

TEST(PumpingTest, AWaitWithinACallWithinAWaitLosesNoSignal)
{
    const ApartmentScope apartment;
    Event innerDone = MakeEvent();
    Event outerDone = MakeEvent();
    // The call that runs within the outer wait waits itself, while the outer event is set meanwhile.
    class CWaiter final : public ComObject<CWaiter, test::UnimplementedDispatch> {
    public:
        CWaiter(Event& inner, Event& outer) noexcept : m_Inner(inner), m_Outer(outer) {}
        HRESULT STDMETHODCALLTYPE Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*,
                                         UINT*) override
        {
            std::jthread setter([this] {
                m_Outer.Set();
                m_Inner.Set();
            });
            return m_Inner.Wait(kForever, WaitMode::KeepQueueAlive) ? S_OK : E_FAIL;
        }

    private:
        Event& m_Inner;
        Event& m_Outer;
    };
    const auto object = MakeComObject<CWaiter>(innerDone, outerDone);
    CallFromElsewhere call(object.Get());

    EXPECT_TRUE(outerDone.Wait(kForever, WaitMode::KeepQueueAlive));

    call.Join();
    EXPECT_EQ(call.result, S_OK);
}

}  // namespace
}  // namespace quorvane
